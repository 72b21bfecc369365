#include "ComJournal.h"
#include "FailingMemory.h"
#include "SamplerBench.h"
#include "StoreFilling.h"

#include "reporting/UtlCheckingThread.h"
#include "reporting/UtlDiskThread.h"
#include "reporting/UtlMemoryThread.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

using Wanted = HasLinesInOrder::Wanted;

class MemoryRun : public SamplerRun<CPKIUtlMemoryThread>
{
public:
    explicit MemoryRun(ReportingBench& bench) : SamplerRun(bench, g_pUtlMemoryThread) {}
};

std::vector<int> Physical()
{
    return SamplesOf(Stores().memory.physical);
}

std::vector<int> PagingFile()
{
    return SamplesOf(Stores().memory.pagingFile);
}

} // namespace

TEST_CASE("the memory sampler takes both percentages a minute until it is stopped, without COM")
{
    ReportingBench bench;
    bench.memory.SetUtilization(75, 40);
    const ComJournal com(bench);
    {
        MemoryRun run(bench);
        bench.memory.SetUtilization(76, 0);
        bench.clock.AdvanceMs(59'999);
        CHECK(Physical() == std::vector<int>{75});
        bench.clock.AdvanceMs(1);
        CHECK(Physical() == std::vector<int>{75, 76});
        CHECK(PagingFile() == std::vector<int>{40, 0});
        run.RequestStop();
        bench.clock.AdvanceUntilWorkersEnd(1);
        CHECK(run.ExitCode() == 1);
        CHECK_FALSE(run.KeepsSlot());
    }
    CHECK(com.Steps().empty());
    const std::vector<Wanted> wanted = {
        {4, "CPKIUtlMemoryThread construct -- without parameters."},
        {3, "MonPKIUtlMemoryThread --  Memory PKI Utilization thread begin..."},
        {3, "MonPKIUtlMemoryThread -- Total physical memory(10000MB), Total paging file(10000MB)."},
        {4, "[NeedToOutputCurrentUtil]failed to open registry (2)"},
        {4, "MonPKIUtlMemoryThread -- (2026-01-31 12:00:00)(physical memory usage:75, paging file usage:40)."},
        {4, "[NeedToOutputCurrentUtil]failed to open registry (2)"},
        {4, "MonPKIUtlMemoryThread -- (2026-01-31 12:01:00)(physical memory usage:76, paging file usage:0)."},
        {3, "MonPKIUtlMemoryThread -- Memory PKI Utilization thread exit..."},
    };
    CHECK(bench.ReadLog().Lines().size() == wanted.size());
    CHECK_THAT(bench.ReadLog(), HasLinesInOrder(wanted));
}

TEST_CASE("a memory query that fails stores a failed sample in both histories of that cycle, and is traced")
{
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    bench.imports.FailCall("GetProcAddress", 1, FailMode::FromThereOn, ERROR_PROC_NOT_FOUND);
    bench.memory.SetUtilization(60, 30);
    MemoryRun run(bench);
    bench.imports.StopFailing("GetProcAddress");
    bench.clock.Advance(60);
    CHECK(Physical() == std::vector<int>{-1, 60});
    CHECK(PagingFile() == std::vector<int>{-1, 30});
    const LogFile log = bench.ReadLog();
    CHECK_THAT(log, HasLinesInOrder(
                        {{3, "MonPKIUtlMemoryThread -- Get total physical memory(0MB) and paging file(0MB) size fail."},
                         {1, "MonPKIUtlMemoryThread -- get memory utilization fail(127), next loop"},
                         {4, "MonPKIUtlMemoryThread -- (2026-01-31 12:00:00)(physical memory usage:-1, paging file "
                             "usage:-1)."},
                         {4, "MonPKIUtlMemoryThread -- (2026-01-31 12:01:00)(physical memory usage:60, paging file "
                             "usage:30)."}}));
    CHECK(log.CountContaining("get memory utilization fail") == 1);
    CHECK(ReadFileBytes(bench.tree.InLogs(L"MemoryUtil.log")) == "Time\t\tPhysical Mem\tPage File\r\n"
                                                                 "2026-01-31 12:00:00\t-1\t-1\r\n"
                                                                 "2026-01-31 12:01:00\t60\t30\r\n");
}

TEST_CASE("memory percentages beyond 100 are stored, traced and told as they are")
{
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    bench.memory.SetPhysicalMB(1000, 1001); // more available than there is
    bench.memory.SetPagingMB(2000, 2001);
    MemoryRun run(bench);
    CHECK(Physical() == std::vector<int>{4'294'967});
    CHECK(PagingFile() == std::vector<int>{2'147'483});
    CHECK(ReadFileBytes(bench.tree.InLogs(L"MemoryUtil.log")) == "Time\t\tPhysical Mem\tPage File\r\n"
                                                                 "2026-01-31 12:00:00\t4294967\t2147483\r\n");
    CHECK_THAT(bench.ReadLog(), HasLine(4, "MonPKIUtlMemoryThread -- (2026-01-31 12:00:00)(physical memory "
                                           "usage:4294967, paging file usage:2147483)."));
    CHECK(bench.ReadLog().CountOfLevel(1) == 0);
}

TEST_CASE("after 1441 cycles both memory histories hold 1440 samples, without the first")
{
    ReportingBench bench(1);
    bench.memory.SetUtilization(1, 2);
    MemoryRun run(bench);
    bench.memory.SetUtilization(50, 25);
    bench.clock.Advance(1439 * 60);
    CHECK(Physical().size() == 1440);
    CHECK(Physical().front() == 1);
    CHECK(PagingFile().front() == 2);
    bench.clock.Advance(60);
    CHECK(Physical() == std::vector<int>(1440, 50));
    CHECK(PagingFile() == std::vector<int>(1440, 25));
}

TEST_CASE("without memory for one of the two histories the other one gets its sample, and both end with the newest")
{
    const int nBlock = GENERATE(1, 2); // physical memory's, the paging file's
    CAPTURE(nBlock);
    ReportingBench bench;
    FailingMemory memory(bench.imports, 2 * sizeof(int)); // the second sample's, when the first one moves
    MemoryRun run(bench);
    bench.memory.SetUtilization(60, 30);
    memory.FailBlock(nBlock);
    bench.clock.Advance(60);
    CHECK(memory.Failed() == 1);
    CHECK(Physical() == (nBlock == 1 ? std::vector<int>{60} : std::vector<int>{50, 60}));
    CHECK(PagingFile() == (nBlock == 2 ? std::vector<int>{30} : std::vector<int>{25, 30}));
    CHECK(bench.ReadLog().Count(1, NO_MEMORY_LINE) == 1);
    bench.memory.SetUtilization(70, 35);
    bench.clock.Advance(60);
    CHECK(Physical() == (nBlock == 1 ? std::vector<int>{60, 70} : std::vector<int>{50, 60, 70}));
    CHECK(PagingFile() == (nBlock == 2 ? std::vector<int>{30, 35} : std::vector<int>{25, 30, 35}));
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
}

TEST_CASE("a stop request during the memory sampler's wait is noticed within a second")
{
    ReportingBench bench;
    MemoryRun run(bench);
    bench.clock.AdvanceMs(500);
    run.RequestStop();
    bench.clock.AdvanceMs(499);
    CHECK_FALSE(run.HasEnded());
    bench.clock.AdvanceMs(1);
    CHECK(run.HasEnded());
}

TEST_CASE("without memory for a trace line the memory sampler logs the exception and goes on a minute later")
{
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    FailingMemory memory(bench.imports, 2 * sizeof(std::int64_t)); // the line's values
    memory.FailBlock(1);
    MemoryRun run(bench);
    bench.clock.Advance(1);
    CHECK(memory.Failed() == 1);
    CHECK(bench.ReadLog().Count(1, "MonPKIUtlMemoryThread -- exception stopped(std::bad_alloc).") == 1);
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
    CHECK_FALSE(FileExists(bench.tree.InLogs(L"MemoryUtil.log")));
    bench.clock.Advance(61);
    CHECK(FileExists(bench.tree.InLogs(L"MemoryUtil.log")));
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
}

TEST_CASE("the memory and the disk sampler and the report thread have nothing to refresh and answer 1")
{
    ReportingBench bench;
    CHECK(CPKIUtlMemoryThread().UpdateAlertPolicy() == 1);
    CHECK(CPKIUtlDiskThread().UpdateAlertPolicy() == 1);
    CHECK(CPKIUtlCheckingThread().UpdateAlertPolicy() == 1);
    CHECK(bench.ReadLog().Lines().size() == 3); // their constructions
}

} // namespace varnex::test
