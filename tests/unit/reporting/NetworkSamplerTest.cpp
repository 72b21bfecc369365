#include "ComJournal.h"
#include "FailingMemory.h"
#include "SamplerBench.h"
#include "StoreFilling.h"

#include "reporting/UtlNetworkThread.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

using Wanted = HasLinesInOrder::Wanted;

constexpr char BEGIN_LINE[] = "MonPKIUtlNetworkThread -- Network PKI Utilization thread begin...";
constexpr char END_LINE[] = "MonPKIUtlNetworkThread -- Network PKI Utilization thread end...";
constexpr char REFRESH_LINE[] = "CPKIUtlNetworkThread -- Update Network Card Info failed(0x80070005).";
constexpr char FIRST_REFRESH_LINE[] =
    "CPKIUtlNetworkThread -- MainThread -- Update Network Card Info failed(0x80070005).";

class NetworkRun : public SamplerRun<CPKIUtlNetworkThread>
{
public:
    explicit NetworkRun(ReportingBench& bench) : SamplerRun(bench, g_pUtlNetworkThread) {}
};

std::size_t RecordsOf(DWORD dwInterfaceIndex)
{
    const auto& histories = Stores().network.histories;
    const auto found = histories.find(dwInterfaceIndex);
    return found == histories.end() ? 0 : found->second.Size();
}

const NetworkCard& NewestOf(DWORD dwInterfaceIndex)
{
    return Stores().network.histories.at(dwInterfaceIndex).Newest();
}

void SetTwoCards(ReportingBench& bench)
{
    bench.wmi.SetObjects({WmiAdapter(L"A", 2, WmiText(L"1000000")), WmiAdapter(L"B", 3, WmiText(L"1000000"))});
    for (const DWORD dwCard : {2, 3})
    {
        bench.table.AddRow(dwCard);
        bench.table.SetOctets(dwCard, 1, 1);
    }
}

// What the collector's first look at the table asks for, and nothing else does.
constexpr std::size_t TABLE_LOOK_BYTES = 8;

} // namespace

TEST_CASE("the network sampler measures each adapter over a second, a minute until it is stopped")
{
    ReportingBench bench;
    bench.SetOneCard();
    const ComJournal com(bench);
    {
        NetworkRun run(bench);
        bench.clock.AdvanceMs(999);
        CHECK(RecordsOf(2) == 0);
        bench.clock.AdvanceMs(1);
        REQUIRE(RecordsOf(2) == 1);
        CHECK(std::wstring(NewestOf(2).Name) == L"Card");
        CHECK(std::wstring(NewestOf(2).MACAddress) == L"00:15:5D:00:00:12");
        CHECK(NewestOf(2).Speed == 1'000'000'000);
        CHECK(NewestOf(2).DeltaBytes == 12'500'000);
        CHECK(NewestOf(2).Utilization == 10);
        bench.clock.AdvanceMs(60'999);
        CHECK(RecordsOf(2) == 1);
        bench.clock.AdvanceMs(1);
        CHECK(RecordsOf(2) == 2);
        CHECK(NewestOf(2).Utilization == 10);
        run.RequestStop();
        bench.clock.AdvanceUntilWorkersEnd(1);
        CHECK(run.ExitCode() == 1);
        CHECK_FALSE(run.KeepsSlot());
    }
    CHECK(bench.wmi.LiveObjects() == 0);
    CHECK(bench.wmi.LiveTexts() == 0);
    CHECK(com.Steps() == std::vector<std::string>{"multi", "leave"});
    CHECK_THAT(LogFile::FromBytes(com.LogAtLeave()), HasLine(3, END_LINE));
    const std::vector<Wanted> wanted = {
        {4, "CPKIUtlNetworkThread construct -- without parameters."},
        {3, BEGIN_LINE},
        {4, "[NeedToOutputCurrentUtil]failed to open registry (2)"},
        {4, "[NeedToOutputCurrentUtil]failed to open registry (2)"},
        {3, END_LINE},
    };
    CHECK(bench.ReadLog().Lines().size() == wanted.size());
    CHECK_THAT(bench.ReadLog(), HasLinesInOrder(wanted));
}

TEST_CASE("without COM the network sampler ends with -1 and keeps its slot")
{
    ReportingBench bench;
    const ComJournal com(bench, E_OUTOFMEMORY);
    NetworkRun run(bench);
    CHECK(run.ExitCode() == 0xFFFFFFFF);
    CHECK(run.KeepsSlot());
    CHECK(com.Steps() == std::vector<std::string>{"multi"});
    CHECK_THAT(bench.ReadLog(),
               HasLinesInOrder(
                   {{3, BEGIN_LINE}, {1, "CPKIUtlNetworkThread -- initialize COM interface failed(0x8007000e)."}}));
    CHECK_THAT(bench.ReadLog(), !HasLine(3, END_LINE));
}

TEST_CASE("an apartment of the other model is good enough for the network sampler")
{
    ReportingBench bench;
    bench.SetOneCard();
    const ComJournal com(bench, RPC_E_CHANGED_MODE);
    NetworkRun run(bench);
    bench.clock.Advance(1);
    CHECK_FALSE(run.HasEnded());
    CHECK(RecordsOf(2) == 1);
}

TEST_CASE("a refresh that fails is logged, and the next cycle has the cards again")
{
    ReportingBench bench;
    bench.SetOneCard();
    bench.wmi.Fail(ScriptedWmi::Step::Connect, E_ACCESSDENIED);
    NetworkRun run(bench);
    CHECK(bench.ReadLog().Count(1, FIRST_REFRESH_LINE) == 1);
    bench.clock.Advance(1);
    CHECK(RecordsOf(2) == 0);
    CHECK(bench.ReadLog().Count(1, REFRESH_LINE) == 1);
    bench.clock.Advance(60);
    bench.wmi.Succeed(ScriptedWmi::Step::Connect);
    bench.clock.Advance(1); // this cycle had no cards either; its refresh finds one
    CHECK(RecordsOf(2) == 0);
    CHECK(bench.ReadLog().Count(1, REFRESH_LINE) == 1);
    bench.clock.Advance(61);
    CHECK(RecordsOf(2) == 1);
    CHECK(NewestOf(2).Utilization == 10);
    CHECK(bench.ReadLog().Count(1, FIRST_REFRESH_LINE) == 1);
}

TEST_CASE("a refresh after a cycle that fails leaves the histories and an empty card list")
{
    ReportingBench bench;
    bench.SetOneCard();
    NetworkRun run(bench);
    bench.wmi.Fail(ScriptedWmi::Step::Query, E_ACCESSDENIED);
    bench.clock.Advance(1);
    CHECK(RecordsOf(2) == 1);
    CHECK(Stores().network.collector.CardList().empty());
    CHECK_THAT(bench.ReadLog(), HasLine(1, REFRESH_LINE));
    bench.clock.Advance(61);
    CHECK(RecordsOf(2) == 1);
}

TEST_CASE("a cycle in which a collection failed appends nothing and goes on")
{
    const int nLook = GENERATE(1, 2);
    CAPTURE(nLook);
    ReportingBench bench;
    bench.SetOneCard();
    FailingMemory memory(bench.imports, TABLE_LOOK_BYTES);
    NetworkRun run(bench);
    bench.clock.Advance(1);
    REQUIRE(RecordsOf(2) == 1);
    const std::size_t nQueries = bench.wmi.Calls().size();

    memory.FailBlock(nLook);
    bench.clock.Advance(61);
    CHECK(memory.Failed() == 1);
    CHECK(RecordsOf(2) == 1);
    CHECK(bench.wmi.Calls().size() > nQueries); // the card list is refreshed all the same
    bench.clock.Advance(61);
    CHECK(RecordsOf(2) == 2);
    CHECK(NewestOf(2).Utilization == 10);
}

TEST_CASE("a first collection that failed is not followed by the second's pause")
{
    ReportingBench bench;
    bench.SetOneCard();
    FailingMemory memory(bench.imports, TABLE_LOOK_BYTES);
    memory.FailBlock(1);
    NetworkRun run(bench);
    bench.clock.AdvanceMs(60'999); // the second cycle measures since a second, but for a millisecond
    CHECK(RecordsOf(2) == 0);
    bench.clock.AdvanceMs(1);
    CHECK(memory.Failed() == 1);
    CHECK(RecordsOf(2) == 1);
}

TEST_CASE("without memory for a new adapter's first record no empty history stays behind, and the others get theirs")
{
    ReportingBench bench;
    SetTwoCards(bench);
    bench.registry.SetSwitch(1);
    FailingMemory memory(bench.imports, sizeof(NetworkCard));
    NetworkRun run(bench);
    memory.FailBlock(1); // the card list has its records already
    bench.clock.Advance(1);
    CHECK(memory.Failed() == 1);
    CHECK(Stores().network.histories.count(2) == 0);
    CHECK(RecordsOf(3) == 1);
    CHECK(bench.ReadLog().Count(1, NO_MEMORY_LINE) == 1);
    CHECK(ReadFileBytes(bench.tree.InLogs(L"NetworkUtil.log")) == "Time\t\tB-3\r\n2026-01-31 12:00:00\t0\r\n");
    bench.clock.Advance(61);
    CHECK(RecordsOf(2) == 1);
    CHECK(RecordsOf(3) == 2);
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
}

TEST_CASE("without memory for one adapter's record its oldest one makes room, and the others get theirs")
{
    ReportingBench bench;
    SetTwoCards(bench);
    bench.table.MoveAtEachRead(2, 1000, 0);
    NetworkRun run(bench);
    bench.clock.Advance(1 + 61);
    bench.table.MoveAtEachRead(2, 2000, 0);
    FailingMemory memory(bench.imports, 4 * sizeof(NetworkCard)); // the third record's; the card list has two
    memory.FailBlock(1);
    bench.clock.Advance(61);
    CHECK(memory.Failed() == 1);
    CHECK(RecordsOf(2) == 2);
    CHECK(Stores().network.histories.at(2).Oldest().DeltaBytes == 1000);
    CHECK(NewestOf(2).DeltaBytes == 2000);
    CHECK(RecordsOf(3) == 3);
    CHECK(bench.ReadLog().Count(1, NO_MEMORY_LINE) == 1);
    bench.clock.Advance(61);
    CHECK(RecordsOf(2) == 3);
    CHECK(Stores().network.histories.at(2).Oldest().DeltaBytes == 1000);
    CHECK(RecordsOf(3) == 4);
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
}

TEST_CASE(
    "an exception in the network sampler's first refresh is logged, and the first cycle's refresh finds the cards")
{
    ReportingBench bench;
    bench.SetOneCard();
    FailingMemory memory(bench.imports, sizeof(NetworkCard));
    memory.FailBlock(1);
    NetworkRun run(bench);
    CHECK(memory.Failed() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "CPKIUtlNetworkThread -- exception stopped(std::bad_alloc)."));
    bench.clock.Advance(1);
    CHECK(RecordsOf(2) == 0);
    bench.clock.Advance(61);
    CHECK(RecordsOf(2) == 1);
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
}

TEST_CASE("a card that vanished keeps its history, a new one gets its own, and names do not matter")
{
    ReportingBench bench;
    bench.wmi.SetObjects({WmiAdapter(L"A", 2, WmiText(L"1000000")), WmiAdapter(L"A", 3, WmiText(L"1000000"))});
    for (const DWORD dwCard : {2, 3, 4})
    {
        bench.table.AddRow(dwCard);
        bench.table.SetOctets(dwCard, 1, 1);
    }
    NetworkRun run(bench);
    bench.wmi.SetObjects({WmiAdapter(L"Renamed", 3, WmiText(L"1000000")), WmiAdapter(L"A", 4, WmiText(L"1000000"))});
    bench.clock.Advance(1);
    CHECK(RecordsOf(2) == 1);
    CHECK(RecordsOf(3) == 1);
    CHECK(RecordsOf(4) == 0);
    bench.clock.Advance(61);
    CHECK(RecordsOf(2) == 1);
    CHECK(RecordsOf(3) == 2);
    CHECK(RecordsOf(4) == 1);
    CHECK(std::wstring(NewestOf(3).Name) == L"Renamed");
    CHECK(std::wstring(Stores().network.histories.at(3).Oldest().Name) == L"A");
}

TEST_CASE("the network sampler holds its lock from the sampling to the refresh")
{
    ReportingBench bench;
    bench.SetOneCard();
    std::vector<bool> free;
    const auto tryLock = []
    {
        const bool bFree = Stores().network.lock.TryEnter();
        if (bFree)
        {
            Stores().network.lock.Leave();
        }
        return bFree;
    };
    NetworkRun run(bench);
    for (int i = 0; i < 4; ++i)
    {
        free.push_back(tryLock());
        bench.clock.AdvanceMs(400);
    }
    CHECK(free == std::vector<bool>{false, false, false, true});
    bench.clock.AdvanceMs(60'000);
    CHECK_FALSE(tryLock());
}

TEST_CASE("after 1441 cycles an adapter's history holds 1440 records, without the first")
{
    ReportingBench bench(1);
    bench.wmi.SetObjects({WmiAdapter(L"A", 2, WmiText(L"1000000000"))});
    bench.table.AddRow(2);
    bench.table.SetOctets(2, 1, 1);
    bench.table.MoveAtEachRead(2, 1000, 0);
    NetworkRun run(bench);
    bench.clock.Advance(1);
    bench.table.MoveAtEachRead(2, 2000, 0);
    bench.clock.Advance(1439 * 61);
    CHECK(RecordsOf(2) == 1440);
    CHECK(Stores().network.histories.at(2).Oldest().DeltaBytes == 1000);
    bench.clock.Advance(61);
    CHECK(RecordsOf(2) == 1440);
    CHECK(Stores().network.histories.at(2).Oldest().DeltaBytes == 2000);
}

TEST_CASE("the network trace waits for an adapter and then takes each cycle")
{
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    NetworkRun run(bench);
    bench.SetOneCard();
    bench.clock.Advance(1);
    CHECK_FALSE(FileExists(bench.tree.InLogs(L"NetworkUtil.log")));
    bench.clock.Advance(61);
    bench.clock.Advance(61);
    CHECK(ReadFileBytes(bench.tree.InLogs(L"NetworkUtil.log")) == "Time\t\tCard-2\r\n"
                                                                  "2026-01-31 12:01:01\t12500000\r\n"
                                                                  "2026-01-31 12:02:02\t12500000\r\n");
}

TEST_CASE("the trace switch is read in each cycle of the network sampler, also while no adapter is known")
{
    ReportingBench bench;
    NetworkRun run(bench);
    bench.clock.Advance(1 + 2 * 61);
    CHECK(bench.ReadLog().Count(4, "[NeedToOutputCurrentUtil]failed to open registry (2)") == 3);
}

TEST_CASE("a stop request during the network sampler's wait is noticed within a second")
{
    ReportingBench bench;
    NetworkRun run(bench);
    bench.clock.Advance(30);
    run.RequestStop();
    bench.clock.Advance(1);
    CHECK(run.HasEnded());
}

TEST_CASE("without memory for a trace line the network sampler logs the exception and goes on a minute later")
{
    ReportingBench bench;
    SetTwoCards(bench);
    bench.registry.SetSwitch(1);
    FailingMemory memory(bench.imports, 2 * sizeof(std::int64_t)); // the line's values
    memory.FailBlock(1);
    NetworkRun run(bench);
    bench.clock.Advance(1);
    CHECK(memory.Failed() == 1);
    CHECK(bench.ReadLog().Count(1, "CPKIUtlNetworkThread -- exception stopped(std::bad_alloc).") == 1);
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
    CHECK_FALSE(FileExists(bench.tree.InLogs(L"NetworkUtil.log")));
    bench.clock.Advance(61);
    CHECK(FileExists(bench.tree.InLogs(L"NetworkUtil.log")));
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
}

} // namespace varnex::test
