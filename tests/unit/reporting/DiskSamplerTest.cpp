#include "ComJournal.h"
#include "FailingMemory.h"
#include "SamplerBench.h"
#include "StoreFilling.h"

#include "reporting/UtlDiskThread.h"

#include <catch2/catch.hpp>

#include <pdhmsg.h>

#include <cstdlib>

namespace varnex::test
{

namespace
{

using Wanted = HasLinesInOrder::Wanted;
using Throughputs = std::vector<std::int64_t>;

constexpr char BEGIN_LINE[] = "MonPKIUtlDiskThread --  Physical Disk PKI Utilization thread begin...";
constexpr char EXIT_LINE[] = "MonPKIUtlDiskThread --  Physical Disk PKI Utilization thread exit...";

class DiskRun : public SamplerRun<CPKIUtlDiskThread>
{
public:
    explicit DiskRun(ReportingBench& bench) : SamplerRun(bench, g_pUtlDiskThread)
    {
        bench.clock.AdvanceMs(500); // a tenth of a second for each of up to five disks
    }
};

Throughputs Samples(std::size_t nDisk)
{
    return SamplesOf(Stores().disk.Of(nDisk));
}

} // namespace

TEST_CASE("the disk sampler measures each disk a minute until it is stopped, without COM")
{
    ReportingBench bench;
    bench.SetDisks({L"0 C:", L"1 D: E:"});
    bench.SetDisk(L"0 C:", 1000.9);
    bench.SetDisk(L"1 D: E:", 6e9);
    const ComJournal com(bench);
    {
        DiskRun run(bench);
        CHECK(Samples(0) == Throughputs{1000});
        CHECK(Samples(1) == Throughputs{6'000'000'000});
        bench.clock.AdvanceMs(59'700); // measuring took 200 ms
        CHECK(Samples(0).size() == 1);
        bench.clock.AdvanceMs(200);
        CHECK(Samples(0).size() == 2);
        CHECK(Samples(1).size() == 2);
        run.RequestStop();
        bench.clock.AdvanceUntilWorkersEnd(1);
        CHECK(run.ExitCode() == 1);
        CHECK_FALSE(run.KeepsSlot());
    }
    CHECK(com.Steps().empty());
    const std::vector<Wanted> wanted = {
        {4, "CPKIUtlDiskThread construct -- without parameters."},
        {3, BEGIN_LINE},
        {4, "MonPKIUtlDiskThread -- (2026-01-31 12:00:00)(Disk:0 C:) throughput(1000 B/S)"},
        {4, "MonPKIUtlDiskThread -- (2026-01-31 12:00:00)(Disk:1 D: E:) throughput(6000000000 B/S)"},
        {4, "[NeedToOutputCurrentUtil]failed to open registry (2)"},
        {4, "MonPKIUtlDiskThread -- (2026-01-31 12:01:00)(Disk:0 C:) throughput(1000 B/S)"},
        {4, "MonPKIUtlDiskThread -- (2026-01-31 12:01:00)(Disk:1 D: E:) throughput(6000000000 B/S)"},
        {4, "[NeedToOutputCurrentUtil]failed to open registry (2)"},
        {3, EXIT_LINE},
    };
    CHECK(bench.ReadLog().Lines().size() == wanted.size());
    CHECK_THAT(bench.ReadLog(), HasLinesInOrder(wanted));
}

TEST_CASE("a disk that cannot be queried is stored as failed and logged, and the others are measured")
{
    ReportingBench bench;
    bench.SetDisks({L"0 C:", L"1 D:"});
    bench.pdh.QueueStatus("PdhOpenQueryA", {static_cast<PDH_STATUS>(PDH_MEMORY_ALLOCATION_FAILURE)});
    DiskRun run(bench);
    CHECK(Samples(0) == Throughputs{-1});
    CHECK(Samples(1) == Throughputs{1000});
    const LogFile log = bench.ReadLog();
    CHECK(log.CountOfLevel(1) == 1);
    // The name's address stands where the text has a number.
    const std::string status = std::to_string(static_cast<int>(PDH_MEMORY_ALLOCATION_FAILURE));
    CHECK_THAT(log.Bytes(), Catch::Matches("[^]*\\[1\\] - MonPKIUtlDiskThread -- fail to get disk\\(-?[0-9]+\\) "
                                           "throughput, return value\\(" +
                                           status + "\\)\\.[^]*"));
    CHECK_THAT(log, HasLine(4, "MonPKIUtlDiskThread -- (2026-01-31 12:00:00)(Disk:0 C:) throughput(-1 B/S)"));
}

TEST_CASE("a disk whose second collection fails is stored as failed, without a message of its own")
{
    ReportingBench bench;
    bench.SetDisks({L"0 C:"});
    bench.pdh.QueueStatus("PdhCollectQueryData", {ERROR_SUCCESS, static_cast<PDH_STATUS>(PDH_NO_DATA)});
    DiskRun run(bench);
    CHECK(Samples(0) == Throughputs{-1});
    CHECK(bench.ReadLog().CountOfLevel(1) == 0);
    bench.clock.Advance(60);
    CHECK(Samples(0) == Throughputs{-1, 1000});
}

TEST_CASE("a disk whose counter is refused is stored as failed after 100 ms, without a message of its own")
{
    ReportingBench bench;
    bench.SetDisks({L"0 C:", L"1 D:"});
    bench.pdh.QueueStatus("PdhAddCounterA", {static_cast<PDH_STATUS>(PDH_CSTATUS_NO_COUNTER)});
    DiskRun run(bench);
    bench.clock.AdvanceMs(200);
    CHECK(Samples(0) == Throughputs{-1});
    CHECK(Samples(1) == Throughputs{1000});
    CHECK(bench.ReadLog().CountOfLevel(1) == 0);
    CHECK(bench.ReadLog().CountContaining("too many times") == 0);
}

TEST_CASE("a disk that stays idle is measured as 0 after six seconds")
{
    ReportingBench bench;
    bench.SetDisks({L"0 C:"});
    bench.SetDisk(L"0 C:", 0);
    DiskRun run(bench);
    bench.clock.Advance(5);
    CHECK(Samples(0).empty());
    bench.clock.Advance(1);
    CHECK(Samples(0) == Throughputs{0});
}

TEST_CASE("without a disk name the disk sampler ends and keeps its slot")
{
    ReportingBench bench;
    FillDisks({{L"9", {1}}});
    DiskRun run(bench);
    CHECK(run.ExitCode() == 1);
    CHECK(run.KeepsSlot());
    CHECK(Stores().disk.GetNames()->empty());
    const LogFile log = bench.ReadLog();
    CHECK_THAT(log,
               HasLinesInOrder({{3, BEGIN_LINE}, {1, "MonPKIUtlDiskThread --  Fail to get Disk name list, Exit!"}}));
    CHECK_THAT(log, !HasLine(3, EXIT_LINE));
}

TEST_CASE("without memory for the histories the disk sampler ends and keeps its slot")
{
    ReportingBench bench;
    std::vector<std::wstring> disks;
    for (int i = 0; i < 37; ++i)
    {
        disks.push_back(std::to_wstring(i));
    }
    bench.SetDisks(disks);
    bench.imports.Replace<void*(std::size_t)>(
        "malloc",
        [](std::size_t cb) -> void*
        { return cb == 37 * sizeof(BoundedHistory<std::int64_t>) ? nullptr : std::malloc(cb); });
    DiskRun run(bench);
    bench.imports.Restore("malloc");
    CHECK(run.ExitCode() == 1);
    CHECK(run.KeepsSlot());
    CHECK(Stores().disk.All().empty());
    const LogFile log = bench.ReadLog();
    CHECK(log.CountOfLevel(1) == 1);
    CHECK_THAT(log, HasLine(1, "MonPKIUtlDiskThread -- fail to alloc physical disk list, exit!"));
}

TEST_CASE("without memory for one disk's sample its oldest one makes room, and the others get theirs")
{
    ReportingBench bench;
    bench.SetDisks({L"0 C:", L"1 D:"});
    bench.pdh.QueueValues(bench.DiskPath(L"0 C:"), {1, 2, 3});
    FailingMemory memory(bench.imports, 2 * sizeof(std::int64_t)); // the second sample's, when the first one moves
    DiskRun run(bench);
    bench.clock.Advance(1); // each disk takes a tenth of a second
    memory.FailBlock(1);
    bench.clock.Advance(60);
    CHECK(memory.Failed() == 1);
    CHECK(Samples(0) == Throughputs{2});
    CHECK(Samples(1) == Throughputs{1000, 1000});
    CHECK(bench.ReadLog().Count(1, NO_MEMORY_LINE) == 1);
    bench.clock.Advance(60);
    CHECK(Samples(0) == Throughputs{2, 3});
    CHECK(Samples(1) == Throughputs{1000, 1000, 1000});
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
}

TEST_CASE("a disk's name is cut to 127 characters for the measurement")
{
    ReportingBench bench;
    const std::wstring name = L"0 " + std::wstring(198, L'C');
    bench.SetDisks({name});
    bench.SetDisk(name.substr(0, 127), 77.0);
    DiskRun run(bench);
    CHECK(Samples(0) == Throughputs{77});
    CHECK(std::wstring((*Stores().disk.GetNames())[0].get()) == name);
}

TEST_CASE("after 1441 cycles a disk's history holds 1440 samples, without the first")
{
    ReportingBench bench(1);
    bench.SetDisks({L"0 C:"});
    bench.pdh.QueueValues(bench.DiskPath(L"0 C:"), {1, 2});
    DiskRun run(bench);
    bench.clock.AdvanceMs(1439 * 60'100);
    CHECK(Samples(0).size() == 1440);
    CHECK(Samples(0).front() == 1);
    bench.clock.AdvanceMs(60'100);
    CHECK(Samples(0).size() == 1440);
    CHECK(Samples(0).front() == 2);
}

TEST_CASE("between two disks the sampler looks whether it should stop")
{
    ReportingBench bench;
    bench.SetDisks({L"0 C:", L"1 D:", L"2 E:"});
    for (const wchar_t* pwszName : {L"0 C:", L"1 D:", L"2 E:"})
    {
        bench.SetDisk(pwszName, 0);
    }
    bench.registry.SetSwitch(1);
    DiskRun run(bench);
    bench.clock.Advance(6);
    run.RequestStop();
    bench.clock.Advance(6);
    CHECK(run.HasEnded());
    CHECK(Samples(0) == Throughputs{0});
    CHECK(Samples(1) == Throughputs{0});
    CHECK(Samples(2).empty());
    CHECK_FALSE(FileExists(bench.tree.InLogs(L"DiskUtil.log")));
}

TEST_CASE("a stop request during the disk sampler's wait is noticed within a second")
{
    ReportingBench bench;
    bench.SetDisks({L"0 C:"});
    DiskRun run(bench);
    bench.clock.Advance(30);
    run.RequestStop();
    bench.clock.Advance(1);
    CHECK(run.HasEnded());
}

TEST_CASE("the disk sampler traces each cycle while the switch is on")
{
    ReportingBench bench;
    bench.SetDisks({L"0 C:", L"10 D:"});
    bench.registry.SetSwitch(1);
    DiskRun run(bench);
    bench.clock.AdvanceMs(60'200);
    CHECK(ReadFileBytes(bench.tree.InLogs(L"DiskUtil.log")) == "Time\t\tDisk0\tDisk10\r\n"
                                                               "2026-01-31 12:00:00\t1000\t1000\r\n"
                                                               "2026-01-31 12:01:00\t1000\t1000\r\n");
}

TEST_CASE("without memory for a trace line the disk sampler logs the exception and goes on a minute later")
{
    ReportingBench bench;
    std::vector<std::wstring> disks;
    for (int i = 0; i < 37; ++i)
    {
        disks.push_back(std::to_wstring(i));
    }
    bench.SetDisks(disks);
    bench.registry.SetSwitch(1);
    FailingMemory memory(bench.imports, 37 * sizeof(std::int64_t)); // the line's values
    memory.FailBlock(1);
    DiskRun run(bench);
    bench.clock.Advance(5);
    CHECK(memory.Failed() == 1);
    CHECK(bench.ReadLog().Count(1, "MonPKIUtlDiskThread -- exception stopped(std::bad_alloc).") == 1);
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
    CHECK_FALSE(FileExists(bench.tree.InLogs(L"DiskUtil.log")));
    bench.clock.Advance(65);
    CHECK(FileExists(bench.tree.InLogs(L"DiskUtil.log")));
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
}

} // namespace varnex::test
