#pragma once

#include "support/ConfigBuilder.h"
#include "support/ImportRedirector.h"
#include "support/LoadedModule.h"
#include "support/ModuleTree.h"
#include "support/PrivateMutexes.h"
#include "support/ScriptedExports.h"
#include "support/ScriptedInterfaceTable.h"
#include "support/ScriptedMemoryStatus.h"
#include "support/ScriptedPdh.h"
#include "support/ScriptedWmi.h"
#include "support/VirtualClock.h"

#include <varnex/Varnex.h>

#include <string>
#include <vector>

namespace varnex::test
{

using Lines = std::vector<std::string>;

// The shipped DLL with a configuration of the test's, under a virtual clock that begins at 2026-01-31 12:00:00, and
// with every source of the memory, disk and network monitors scripted.
class MonitoredModule
{
    class ReadyTree : public ModuleTree
    {
    public:
        explicit ReadyTree(const ConfigBuilder& config);
    };

public:
    explicit MonitoredModule(const ConfigBuilder& config);
    ~MonitoredModule();
    MonitoredModule(const MonitoredModule&) = delete;
    MonitoredModule& operator=(const MonitoredModule&) = delete;

    ReadyTree tree;
    LoadedModule module;
    ImportRedirector imports;
    PrivateMutexes mutexes;
    VirtualClock clock;
    ScriptedExports exports;
    ScriptedMemoryStatus memory;
    ScriptedPdh pdh;
    ScriptedWmi wmi;
    ScriptedInterfaceTable interfaces;

    // Has the module log everything, which the CPU monitor alone can bring about; then the clock starts anew. The
    // configuration must ask for level 4.
    void LogEverything();

    void Start(unsigned nAlertType);
    void Stop(unsigned nAlertType);
    // Starts a monitor and lets it do its first pass.
    void StartAndRun(unsigned nAlertType);
    // Asks a monitor to stop, and lets it. Two seconds are enough for one that waits.
    void StopAndEnd(unsigned nAlertType, unsigned nMaxSeconds = 2);
    // Starts a monitor; true when the module says that there is one already.
    bool IsStartRefused(unsigned nAlertType);

    // What was logged since the last ForgetLog: "3 text", level and message in file order, the number of a thread as
    // "[ID:#]". Without the lines of the control exports, of the counter store and of the alert store.
    Lines Log() const;
    // Those that contain the text.
    Lines LogOf(const std::string& part) const;
    void ForgetLog();

    // The text of a counter node: "Date", "PH", "Disk", ...; empty when there is none.
    std::string Counter(const std::string& name) const;
    // The stored alerts as "type;threshold;value;resource".
    Lines Alerts() const;

private:
    std::size_t m_nForgotten = 0;
};

// What GetAlertRecord hands out.
struct FetchedAlert
{
    int nType;
    int nThreshold;
    int nValue;
    std::wstring text;
};
std::vector<FetchedAlert> FetchAlerts(MonitoredModule& host);

// A monitor's thread held up on its way into CoUninitialize, which it calls near its end.
class HeldAtUninitialize
{
public:
    explicit HeldAtUninitialize(MonitoredModule& host);
    ~HeldAtUninitialize();
    HeldAtUninitialize(const HeldAtUninitialize&) = delete;
    HeldAtUninitialize& operator=(const HeldAtUninitialize&) = delete;

    void LetGo();

private:
    MonitoredModule& m_host;
    HANDLE m_hGo;
};

} // namespace varnex::test
