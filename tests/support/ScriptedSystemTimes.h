#pragma once

#include "support/ScriptedExports.h"

#include <memory>
#include <vector>

namespace varnex::test
{

// Stands in for GetSystemTimes. Each read moves the three times on so that the utilization since the previous read is
// exactly what was set:
//
//     ScriptedExports exports(redirector);
//     ScriptedSystemTimes cpu(exports);
//     cpu.SetUtilization(90);          // every reading from here on
//     cpu.SetUtilizations({90, 84});   // the next two; the last one stays
//
// The times go on where the previous test of this program left them, because the module keeps its last reading. A
// module that was freshly loaded has none: call Restart() then, and its first reading is exact, too.
class ScriptedSystemTimes
{
public:
    explicit ScriptedSystemTimes(ScriptedExports& exports);
    ~ScriptedSystemTimes();
    ScriptedSystemTimes(const ScriptedSystemTimes&) = delete;
    ScriptedSystemTimes& operator=(const ScriptedSystemTimes&) = delete;

    void SetUtilization(int nPercent);
    void SetUtilizations(const std::vector<int>& percents);
    // The next reads give these very times, in units of 100 ns; the kernel's time includes the idle one.
    void SetTimes(ULONGLONG ullIdle, ULONGLONG ullKernel, ULONGLONG ullUser);
    // The times stand still: no time was accounted between two reads.
    void Freeze();
    void Fail(DWORD dwLastError);
    void Restart();
    ULONGLONG Reads() const;

private:
    struct State;
    ScriptedExports& m_exports;
    std::shared_ptr<State> m_state;
};

} // namespace varnex::test
