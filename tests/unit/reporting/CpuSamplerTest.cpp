#include "ComJournal.h"
#include "FailingMemory.h"
#include "SamplerBench.h"
#include "StoreFilling.h"

#include "diag/SPLogger.h"
#include "reporting/UtlCPUThread.h"

#include <catch2/catch.hpp>

#include <pdhmsg.h>

namespace varnex::test
{

namespace
{

using Wanted = HasLinesInOrder::Wanted;

constexpr char BEGIN_LINE[] = "MonPKIUtlCPUThread --  CPU PKI Utilization thread begin...";
constexpr char EXIT_LINE[] = "MonPKIUtlCPUThread --  CPU PKI Utilization thread exit...";

class CpuRun : public SamplerRun<CPKIUtlCPUThread>
{
public:
    explicit CpuRun(ReportingBench& bench) : SamplerRun(bench, g_pUtlCPUThread) {}
};

std::vector<int> Samples(std::size_t nProcessor)
{
    return SamplesOf(Stores().cpu.Of(nProcessor));
}

} // namespace

TEST_CASE("the CPU sampler takes a sample of each processor a minute until it is stopped")
{
    ReportingBench bench;
    bench.SetProcessors({L"0", L"1"});
    bench.QueueProcessor(L"0", {10, 20});
    bench.QueueProcessor(L"1", {30, 40});
    const ComJournal com(bench);
    {
        CpuRun run(bench);
        CHECK(Samples(0) == std::vector<int>{10});
        CHECK(Samples(1) == std::vector<int>{30});
        bench.clock.AdvanceMs(59'999);
        CHECK(Samples(0).size() == 1);
        bench.clock.AdvanceMs(1);
        CHECK(Samples(0) == std::vector<int>{10, 20});
        CHECK(Samples(1) == std::vector<int>{30, 40});
        run.RequestStop();
        bench.clock.AdvanceUntilWorkersEnd(1);
        CHECK(run.ExitCode() == 1);
        CHECK_FALSE(run.KeepsSlot());
    }
    CHECK(com.Steps() == std::vector<std::string>{"multi", "leave"});
    CHECK_THAT(LogFile::FromBytes(com.LogAtLeave()), HasLine(3, EXIT_LINE));
    const std::vector<Wanted> wanted = {
        {4, "CPKIUtlCPUThread construct -- without parameters."},
        {3, BEGIN_LINE},
        {3, "GetCPUNameListW -- get processor name instance finish."},
        {4, "MonPKIUtlCPUThread -- (2026-01-31 12:00:00)(CPU:0) usage value(10)"},
        {4, "MonPKIUtlCPUThread -- (2026-01-31 12:00:00)(CPU:1) usage value(30)"},
        {4, "[NeedToOutputCurrentUtil]failed to open registry (2)"},
        {4, "MonPKIUtlCPUThread -- (2026-01-31 12:01:00)(CPU:0) usage value(20)"},
        {4, "MonPKIUtlCPUThread -- (2026-01-31 12:01:00)(CPU:1) usage value(40)"},
        {4, "[NeedToOutputCurrentUtil]failed to open registry (2)"},
        {3, EXIT_LINE},
    };
    CHECK(bench.ReadLog().Lines().size() == wanted.size());
    CHECK_THAT(bench.ReadLog(), HasLinesInOrder(wanted));
}

TEST_CASE("a processor's reading outside 0 to 100 is stored as failed and logged with its name")
{
    struct Rule
    {
        double fReading;
        int nSample;
        int nTold;
    };
    const Rule rule = GENERATE(values<Rule>({{101, -1, 101},
                                             {-5, -1, -5},
                                             {100.9, 100, 0},
                                             {100, 100, 0},
                                             {1, 1, 0},
                                             {0.4, 0, 0},
                                             {-1, -1, -1},
                                             {1e12, -1, -1}}));
    CAPTURE(rule.fReading);
    ReportingBench bench;
    bench.SetProcessors({L"0", L"7"});
    bench.SetProcessor(L"7", rule.fReading);
    CpuRun run(bench);
    CHECK(Samples(0) == std::vector<int>{42});
    CHECK(Samples(1) == std::vector<int>{rule.nSample});
    const LogFile log = bench.ReadLog();
    CHECK(log.CountContaining("fail to get CPU") == (rule.nSample == -1 ? 1 : 0));
    CHECK(log.Count(1, "MonPKIUtlCPUThread -- fail to get CPU(7) utilization, return value(" +
                           std::to_string(rule.nTold) + ").") == (rule.nSample == -1 ? 1 : 0));
    CHECK_THAT(log, HasLine(4, "MonPKIUtlCPUThread -- (2026-01-31 12:00:00)(CPU:7) usage value(" +
                                   std::to_string(rule.nSample) + ")"));
}

TEST_CASE("a processor that cannot be queried is stored as failed, and the next minute's sample counts again")
{
    ReportingBench bench;
    bench.SetProcessors({L"0"});
    bench.pdh.QueueStatus("PdhOpenQueryW", {static_cast<PDH_STATUS>(PDH_MEMORY_ALLOCATION_FAILURE)});
    CpuRun run(bench);
    bench.clock.Advance(60);
    CHECK(Samples(0) == std::vector<int>{-1, 42});
    CHECK_THAT(bench.ReadLog(), HasLine(1, "MonPKIUtlCPUThread -- fail to get CPU(0) utilization, return value(" +
                                               std::to_string(static_cast<int>(PDH_MEMORY_ALLOCATION_FAILURE)) + ")."));
}

TEST_CASE("without a processor name the CPU sampler ends, keeps its slot and leaves COM initialised")
{
    ReportingBench bench;
    const ComJournal com(bench);
    CpuRun run(bench);
    CHECK(run.ExitCode() == 1);
    CHECK(run.KeepsSlot());
    CHECK(com.Steps() == std::vector<std::string>{"multi"});
    const LogFile log = bench.ReadLog();
    CHECK_THAT(log, HasLinesInOrder({{3, BEGIN_LINE}, {1, "MonPKIUtlCPUThread --  Fail to get CPU name list, Exit!"}}));
    CHECK_THAT(log, !HasLineContaining("thread exit"));
}

TEST_CASE("an empty name list replaces the one of an earlier run")
{
    ReportingBench bench;
    FillCpus({{L"0", {1}}});
    CpuRun run(bench);
    CHECK(Stores().cpu.GetNames()->empty());
    CHECK(Stores().cpu.All().empty());
}

TEST_CASE("without memory for the histories the CPU sampler ends and keeps its slot")
{
    ReportingBench bench;
    std::vector<std::wstring> processors;
    for (int i = 0; i < 37; ++i)
    {
        processors.push_back(std::to_wstring(i));
    }
    bench.SetProcessors(processors);
    bench.imports.Replace<void*(std::size_t)>(
        "malloc",
        [](std::size_t cb) -> void* { return cb == 37 * sizeof(BoundedHistory<int>) ? nullptr : std::malloc(cb); });
    CpuRun run(bench);
    bench.imports.Restore("malloc");
    CHECK(run.ExitCode() == 1);
    CHECK(run.KeepsSlot());
    CHECK(Stores().cpu.All().empty());
    CHECK(Stores().cpu.GetNames()->empty());
    const LogFile log = bench.ReadLog();
    CHECK(log.CountOfLevel(1) == 1);
    CHECK_THAT(log, HasLine(1, "MonPKIUtlCPUThread -- fail to alloc CPU utilization list, exit!"));
}

TEST_CASE("without COM the CPU sampler ends with -1 and keeps its slot")
{
    ReportingBench bench;
    bench.SetProcessors({L"0"});
    const ComJournal com(bench, E_OUTOFMEMORY);
    CpuRun run(bench);
    CHECK(run.ExitCode() == 0xFFFFFFFF);
    CHECK(run.KeepsSlot());
    CHECK(com.Steps() == std::vector<std::string>{"multi"});
    CHECK_THAT(
        bench.ReadLog(),
        HasLinesInOrder({{3, BEGIN_LINE}, {1, "MonPKIUtlCPUThread -- initialize COM interface failed(0x8007000e)."}}));
    CHECK(Stores().cpu.All().empty());
}

TEST_CASE("an apartment of the other model is good enough for the CPU sampler")
{
    ReportingBench bench;
    bench.SetProcessors({L"0"});
    const ComJournal com(bench, RPC_E_CHANGED_MODE);
    CpuRun run(bench);
    CHECK_FALSE(run.HasEnded());
    CHECK(Samples(0).size() == 1);
    CHECK_THAT(bench.ReadLog(), !HasLineContaining("initialize COM"));
}

TEST_CASE("after 1441 cycles a processor's history holds 1440 samples, without the first")
{
    ReportingBench bench(1);
    bench.SetProcessors({L"0"});
    bench.QueueProcessor(L"0", {1, 2});
    CpuRun run(bench);
    bench.clock.Advance(1439 * 60);
    CHECK(Samples(0).size() == 1440);
    CHECK(Stores().cpu.Of(0).Oldest() == 1);
    bench.clock.Advance(60);
    CHECK(Samples(0).size() == 1440);
    CHECK(Stores().cpu.Of(0).Oldest() == 2);
}

TEST_CASE("a stop request during the CPU sampler's wait is noticed within a second")
{
    ReportingBench bench;
    bench.SetProcessors({L"0"});
    CpuRun run(bench);
    bench.clock.AdvanceMs(30'500);
    run.RequestStop();
    bench.clock.AdvanceMs(499);
    CHECK_FALSE(run.HasEnded());
    bench.clock.AdvanceMs(1);
    CHECK(run.HasEnded());
    CHECK(Samples(0).size() == 1);
}

TEST_CASE("between two processors the sampler looks whether it should stop")
{
    ReportingBench bench;
    bench.SetProcessors({L"0", L"1", L"2", L"3"});
    for (const wchar_t* pwszName : {L"0", L"1", L"2", L"3"})
    {
        bench.SetProcessor(pwszName, 0); // an idle processor takes five seconds
    }
    bench.registry.SetSwitch(1);
    CpuRun run(bench);
    bench.clock.AdvanceMs(6'500);
    run.RequestStop();
    bench.clock.AdvanceMs(3'500);
    CHECK(run.HasEnded());
    CHECK(Samples(0) == std::vector<int>{0});
    CHECK(Samples(1) == std::vector<int>{0});
    CHECK(Samples(2).empty());
    CHECK_FALSE(FileExists(bench.tree.InLogs(L"CPUUtil.log"))); // a cycle that was broken off has no line
}

TEST_CASE("the CPU sampler takes over the configured log level in each cycle")
{
    ReportingBench bench;
    bench.SetProcessors({L"0"});
    bench.tree.WriteConfig(ConfigBuilder().SetLogLevel(2));
    CpuRun run(bench);
    CHECK(Log()->Level == 2);
    bench.tree.WriteConfig(ConfigBuilder().SetLogLevel(5));
    bench.clock.Advance(60);
    CHECK(Log()->Level == 2);
    bench.tree.WriteConfig(ConfigBuilder().SetLogLevel(0));
    bench.clock.Advance(60);
    CHECK(Log()->Level == 0);
    bench.tree.RemoveConfig();
    Log()->Level = 3;
    bench.clock.Advance(60);
    CHECK(Log()->Level == 3);
    CHECK(Samples(0).size() == 4);
}

TEST_CASE("the CPU sampler traces each cycle while the switch is on")
{
    ReportingBench bench;
    bench.SetProcessors({L"0", L"1"});
    bench.QueueProcessor(L"0", {10, 20, 150, 40, 50});
    CpuRun run(bench);
    bench.registry.SetSwitch(1);
    bench.clock.Advance(120);
    bench.registry.SetSwitch(0);
    bench.clock.Advance(60);
    bench.registry.SetSwitch(1);
    bench.clock.Advance(60);
    CHECK(ReadFileBytes(bench.tree.InLogs(L"CPUUtil.log")) == "Time\t\tCPU1\tCPU2\r\n"
                                                              "2026-01-31 12:01:00\t20\t42\r\n"
                                                              "2026-01-31 12:02:00\t-1\t42\r\n"
                                                              "2026-01-31 12:04:00\t50\t42\r\n");
}

TEST_CASE("without memory for one processor's sample its oldest one makes room, and the others get theirs")
{
    ReportingBench bench;
    bench.SetProcessors({L"0", L"1", L"2"});
    bench.QueueProcessor(L"0", {1, 2, 3});
    FailingMemory memory(bench.imports, 2 * sizeof(int)); // the second sample's, when the first one moves
    CpuRun run(bench);
    memory.FailBlock(1);
    bench.clock.Advance(60);
    CHECK(memory.Failed() == 1);
    CHECK(Samples(0) == std::vector<int>{2});
    CHECK(Samples(1) == std::vector<int>{42, 42});
    CHECK(Samples(2) == std::vector<int>{42, 42});
    CHECK(bench.ReadLog().Count(1, NO_MEMORY_LINE) == 1);
    bench.clock.Advance(60);
    CHECK(Samples(0) == std::vector<int>{2, 3});
    CHECK(Samples(2) == std::vector<int>{42, 42, 42});
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
}

TEST_CASE("without memory for a processor's first sample its history begins a minute later, and the others begin")
{
    ReportingBench bench;
    bench.SetProcessors({L"12", L"13"}); // names whose copies are larger than a sample
    FailingMemory memory(bench.imports, sizeof(int));
    memory.FailBlock(1);
    CpuRun run(bench);
    CHECK(memory.Failed() == 1);
    CHECK(Samples(0).empty());
    CHECK(Samples(1) == std::vector<int>{42});
    CHECK(bench.ReadLog().Count(1, NO_MEMORY_LINE) == 1);
    bench.clock.Advance(60);
    CHECK(Samples(0) == std::vector<int>{42});
    CHECK(Samples(1) == std::vector<int>{42, 42});
}

TEST_CASE("without memory for a trace line the CPU sampler logs the exception and goes on a minute later")
{
    ReportingBench bench;
    std::vector<std::wstring> processors;
    for (int i = 0; i < 37; ++i)
    {
        processors.push_back(std::to_wstring(i));
    }
    bench.SetProcessors(processors);
    bench.registry.SetSwitch(1);
    FailingMemory memory(bench.imports, 37 * sizeof(std::int64_t)); // the line's values
    memory.FailBlock(1);
    CpuRun run(bench);
    bench.clock.Advance(5);
    CHECK(memory.Failed() == 1);
    CHECK(bench.ReadLog().Count(1, "MonPKIUtlCPUThread -- exception stopped(std::bad_alloc).") == 1);
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
    CHECK_FALSE(FileExists(bench.tree.InLogs(L"CPUUtil.log")));
    bench.clock.Advance(65);
    CHECK(FileExists(bench.tree.InLogs(L"CPUUtil.log")));
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
}

} // namespace varnex::test
