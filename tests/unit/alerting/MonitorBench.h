#pragma once

#include "StoreBench.h"

#include "entry/AlertReachPKIThread.h"
#include "support/ConfigBuilder.h"

#include <functional>
#include <string>

namespace varnex::test
{

// A monitor whose two operations are the test's.
class ScriptedMonitor final : public CAlertReachPKIThread
{
public:
    ScriptedMonitor() = default;
    ~ScriptedMonitor()
    {
        if (onDelete)
        {
            onDelete();
        }
    }
    DWORD Run() override { return 0; }
    int UpdateAlertPolicy() override { return onUpdate ? onUpdate() : 0; }
    void SetPolicy(int nInterval, int nThreshold, int nSamplingAmount, int nMaxAlertNum)
    {
        SetInterval(nInterval);
        SetThreshold(nThreshold);
        SetSamplingAmount(nSamplingAmount);
        SetMaxAlertNum(nMaxAlertNum);
    }

    std::function<int()> onUpdate;
    std::function<void()> onDelete;
};

// COM on the test's thread, for the configuration file.
class ComScope
{
public:
    ComScope();
    ~ComScope();
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;
};

// The store's bench with a configuration file. The file's path is kept for the life of the process, so every test
// case that reads the configuration runs in a process of its own.
class MonitorBench : public StoreBench
{
public:
    ScriptedMonitor monitor;

    // The text of a counter node, "Date", "CPU", ...; empty when there is none.
    std::string Counter(const std::wstring& name) const;

private:
    ComScope m_com;
};

} // namespace varnex::test
