#pragma once

#include "support/ConfigBuilder.h"
#include "support/HostAgent.h"
#include "support/ImportRedirector.h"
#include "support/LogFile.h"
#include "support/LogMatchers.h"
#include "support/ModulePathScript.h"
#include "support/ModuleTree.h"
#include "support/PrivateNames.h"
#include "support/ScriptedExports.h"
#include "support/ScriptedInterfaceTable.h"
#include "support/ScriptedMemoryStatus.h"
#include "support/ScriptedPdh.h"
#include "support/ScriptedWmi.h"
#include "support/TraceRegistry.h"
#include "support/VirtualClock.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace varnex::test
{

// Utilization reporting on a scripted machine, under a virtual clock: private named objects, no tracing, the log at
// level 4, 10000 MB of physical memory and of paging file. At first it has no processor, disk or adapter. The file of
// the configuration is found once in a process, so its tests run in processes of their own.
class ReportingBench
{
public:
    // nLogLevel is also the configured one.
    explicit ReportingBench(int nLogLevel = 4);
    // Stops what still runs and empties the stores.
    ~ReportingBench();
    ReportingBench(const ReportingBench&) = delete;
    ReportingBench& operator=(const ReportingBench&) = delete;

    ModuleTree tree;
    ImportRedirector imports;
    PrivateNames names;
    ModulePathScript path;
    TraceRegistry registry;
    ScriptedExports exports;
    ScriptedMemoryStatus memory;
    ScriptedPdh pdh;
    ScriptedWmi wmi;
    ScriptedInterfaceTable table;
    VirtualClock clock;

    LogFile ReadLog() const;
    void ForgetLog();

    void SetProcessors(const std::vector<std::wstring>& names);
    void SetProcessor(const std::wstring& name, double fPercent);
    // What the next samples of that processor read; each takes two readings.
    void QueueProcessor(const std::wstring& name, const std::vector<double>& percents);
    void SetDisks(const std::vector<std::wstring>& names);
    void SetDisk(const std::wstring& name, double fBytesPerSecond);
    static std::wstring ProcessorPath(const std::wstring& name);
    static std::wstring DiskPath(const std::wstring& name);
    // One adapter "Card", index 2, of 1 Gbit/s, that moves 12.5 MB from one reading to the next: 10 percent.
    void SetOneCard();

    // Starts reporting and lets every worker go to its first wait.
    void Start();
    // Stops it; the virtual seconds that it took.
    unsigned Stop();
    static std::size_t WorkersInSlots();
};

} // namespace varnex::test
