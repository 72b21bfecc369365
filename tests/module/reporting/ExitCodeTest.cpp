// What the threads of the samplers and of the report end with. Nobody in the process asks, but a debugger shows it.

#include "ReportingModule.h"

#include "reporting/BoundedHistory.h"
#include "support/LogMatchers.h"
#include "support/StartedThreads.h"

#include <catch2/catch.hpp>

#include <cstdlib>
#include <functional>

namespace varnex::test
{

namespace
{

constexpr DWORD MINUS_ONE = 0xFFFFFFFF;

// A way in which some of the five threads end early.
struct Ending
{
    const char* pszWhat;
    std::vector<const char*> signs; // lines that tell it from the others
    std::vector<DWORD> codes;       // CPU, memory, disk and network sampler, report thread
    std::function<void(ReportingModule&)> bringAbout;
};

void FailApartments(ReportingModule& module)
{
    for (const char* pszImport : {"CoInitialize", "CoInitializeEx"})
    {
        module.imports.FailCall(pszImport, 1, FailMode::FromThereOn, {0, static_cast<DWORD>(E_OUTOFMEMORY), true});
    }
}

void TakeNamesAway(ReportingModule& module)
{
    module.pdh.SetInstances(L"Processor", {});
    module.pdh.SetInstances(L"PhysicalDisk", {});
}

// Nothing else is as long as 137 histories.
void FailHistories(ReportingModule& module)
{
    std::vector<std::wstring> names;
    for (int i = 0; i < 137; ++i)
    {
        names.push_back(std::to_wstring(i));
    }
    module.pdh.SetInstances(L"Processor", names);
    module.pdh.SetInstances(L"PhysicalDisk", names);
    module.imports.Replace<decltype(::malloc)>("malloc",
                                               [](std::size_t cb)
                                               {
                                                   const bool bHistories =
                                                       cb == 137 * sizeof(BoundedHistory<int>) ||
                                                       cb == 137 * sizeof(BoundedHistory<std::int64_t>);
                                                   return bHistories ? nullptr : std::malloc(cb);
                                               });
}

std::vector<Ending> AllEndings()
{
    return {{"a stop", {}, {1, 1, 1, 1, 1}, [](ReportingModule&) {}},
            {"no COM",
             {"MonPKIUtlCPUThread -- initialize COM interface failed(0x8007000e).",
              "CPKIUtlNetworkThread -- initialize COM interface failed(0x8007000e).",
              "CPKIUtlCheckingThread -- initialize COM interface failed(0x8007000e)."},
             {MINUS_ONE, 1, 1, MINUS_ONE, 0},
             FailApartments},
            {"no names",
             {"MonPKIUtlCPUThread --  Fail to get CPU name list, Exit!",
              "MonPKIUtlDiskThread --  Fail to get Disk name list, Exit!"},
             {1, 1, 1, 1, 1},
             TakeNamesAway},
            {"no memory for histories",
             {"MonPKIUtlCPUThread -- fail to alloc CPU utilization list, exit!",
              "MonPKIUtlDiskThread -- fail to alloc physical disk list, exit!"},
             {1, 1, 1, 1, 1},
             FailHistories}};
}

} // namespace

TEST_CASE("the threads of reporting end with 1, without COM with -1 and the report's with 0")
{
    const Ending ending = GENERATE(from_range(AllEndings()));
    INFO(ending.pszWhat);
    ReportingModule module;
    const StartedThreads threads(module.imports);
    ending.bringAbout(module);
    module.Start();
    module.Stop();
    const LogFile log(module.tree);
    for (const char* pszSign : ending.signs)
    {
        CHECK_THAT(log, HasLine(1, pszSign));
    }
    CHECK(threads.ExitCodes() == ending.codes);
    CHECK(module.imports.Calls("TerminateThread") == 0);
}

TEST_CASE("a thread of reporting that a stop ends by force ends with 0")
{
    ReportingModule module;
    const StartedThreads threads(module.imports);
    const UniqueHandle stuck(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const UniqueHandle never(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    module.exports.Replace<decltype(::GlobalMemoryStatusEx)>("GlobalMemoryStatusEx",
                                                             [&](LPMEMORYSTATUSEX)
                                                             {
                                                                 SetEvent(stuck.Get());
                                                                 WaitForSingleObject(never.Get(), INFINITE);
                                                                 return FALSE;
                                                             });
    module.Start();
    REQUIRE(WaitForSingleObject(stuck.Get(), 10'000) == WAIT_OBJECT_0);
    module.Stop();
    CHECK(threads.ExitCodes() == std::vector<DWORD>{1, 0, 1, 1, 1});
    CHECK(module.imports.Calls("TerminateThread") == 1);
}

} // namespace varnex::test
