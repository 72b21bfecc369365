#pragma once

#include "ModuleLibrary.h"
#include "StopSignal.h"

#include <vector>

namespace varnex::host
{

// The monitors that were started in a module. However it ends, they are asked to stop and waited for, and a module
// whose threads have not ended is never unloaded under them.
class MonitorRun
{
public:
    MonitorRun(ModuleLibrary& library, const StopSignal& stop) noexcept;
    ~MonitorRun();
    MonitorRun(const MonitorRun&) = delete;
    MonitorRun& operator=(const MonitorRun&) = delete;

    // Throws HostError when the module takes a selector for a wrong one.
    void Start(const std::vector<unsigned>& selectors);

    // Asks the monitors to end and waits for their threads, and those of their alert writers: at most a minute, since
    // a disk that is idle keeps its monitor for six seconds, or until the operator asks again. True when all have
    // ended; otherwise the module stays loaded.
    bool StopAndWait() noexcept;

private:
    bool WaitForThreads() const noexcept;

    ModuleLibrary& m_library;
    const StopSignal& m_stop;
    std::vector<unsigned> m_started;
};

} // namespace varnex::host
