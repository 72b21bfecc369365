#include "sampling/NetworkUtilizationCollector.h"

#include "support/ScriptedInterfaceTable.h"
#include "support/ScriptedWmi.h"
#include "unit/reporting/ComScope.h"
#include "unit/sampling/ArrayFailure.h"
#include "unit/sampling/SamplingTest.h"

#include <cstdint>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr DWORD INDEX = 7;

class UtilizationTest : public SamplingTest
{
protected:
    // A system with one adapter, which moves from the one pair of octet counts to the other.
    void AddAdapter(const WmiValue& speed)
    {
        m_wmi.SetObjects({WmiAdapter(L"Ethernet", INDEX, speed)});
        REQUIRE(m_collector.RefreshCardList() == 0);
    }
    void AddAdapter(std::int64_t nSpeed)
    {
        m_table.AddRow(INDEX);
        AddAdapter(WmiText(std::to_wstring(nSpeed)));
    }
    const NetworkCard& Collect(DWORD dwIn, DWORD dwOut)
    {
        m_table.SetOctets(INDEX, dwIn, dwOut);
        CHECK(m_collector.CollectUtilization() == 0);
        return m_collector.CardList().front();
    }
    const NetworkCard& Card() const { return m_collector.CardList().front(); }

    const ComScope m_com;
    ScriptedWmi m_wmi{m_redirector};
    ScriptedInterfaceTable m_table{m_redirector};
    NetworkUtilizationCollector m_collector;
};

} // namespace

TEST_CASE_METHOD(UtilizationTest, "the bits moved between two collections are a percentage of the speed")
{
    struct Traffic
    {
        std::int64_t nSpeed;
        DWORD dwIn;
        DWORD dwOut;
        std::uint32_t nPercent;
    };
    const auto traffic = GENERATE(values<Traffic>({
        {1'000'000'000, 12'500'000, 0, 10},
        {1'000'000'000, 0, 12'500'000, 10},
        {1'000'000'000, 6'250'000, 6'250'000, 10},
        {1'000'000'000, 12'499'999, 0, 9},
        {1'000'000'000, 0, 0, 0},
        {1'000'000'000, 124'999'999, 0, 99},
        {1'000'000'000, 125'000'000, 0, 100},
        {1'000'000'000, 125'000'001, 0, 100}, // more than the link can carry
        {1'000'000'000, 4'000'000'000, 4'000'000'000, 100},
        {10'000'000'000, 125'000'000, 0, 10},
        {1'000'000'000'000, 4'000'000'000, 4'000'000'000, 6}, // the sum has more than 32 bits
        {1, 0, 0, 0},
        {1, 1, 0, 100},
        {9, 1, 0, 88},
        {0, 12'500'000, 0, 0},
        {-5, 12'500'000, 0, 0},
    }));
    CAPTURE(traffic.nSpeed, traffic.dwIn, traffic.dwOut);
    AddAdapter(traffic.nSpeed);
    Collect(1000, 2000);
    const NetworkCard& card = Collect(1000 + traffic.dwIn, 2000 + traffic.dwOut);
    CHECK(card.Utilization == traffic.nPercent);
    CHECK(card.DeltaBytes == std::uint64_t{traffic.dwIn} + traffic.dwOut);
    CheckNoLog();
}

TEST_CASE_METHOD(UtilizationTest, "an adapter with a speed too large to tell has a utilization of 0")
{
    m_table.AddRow(INDEX);
    AddAdapter(WmiText(L"9223372036854775807"));
    REQUIRE(Card().Speed == -1);
    Collect(1000, 1000);
    CHECK(Collect(100'000'000, 1000).Utilization == 0);
    CHECK(Card().DeltaBytes == 99'999'000);
}

TEST_CASE_METHOD(UtilizationTest, "a ten gigabit adapter without a WMI speed is measured against its real speed")
{
    m_table.AddRow(INDEX, 1'410'065'408);
    AddAdapter(WmiOfType(VT_NULL));
    Collect(1000, 1000);
    CHECK(Collect(1000 + 625'000'000, 1000).Utilization == 50);
}

TEST_CASE_METHOD(UtilizationTest, "the first collection after a refresh gives 0")
{
    AddAdapter(1'000'000'000);
    CHECK(Collect(500'000'000, 500'000'000).Utilization == 0);
    CHECK(Card().DeltaBytes == 0);
    CHECK(Card().LastInOctets == 500'000'000);
    CHECK(Card().LastOutOctets == 500'000'000);
    CHECK(Collect(500'000'000, 625'000'000).Utilization == 100);

    m_collector.ClearCardList();
    REQUIRE(m_collector.RefreshCardList() == 0);
    CHECK(Collect(625'000'000, 625'000'000).Utilization == 0);
}

TEST_CASE_METHOD(UtilizationTest, "collections a second apart show the traffic of that second")
{
    AddAdapter(1'000'000'000);
    m_table.SetOctets(INDEX, 1, 1);
    m_table.MoveAtEachRead(INDEX, 25'000'000, 12'500'000);
    m_collector.CollectUtilization();
    for (int i = 0; i < 3; ++i)
    {
        m_collector.CollectUtilization();
        CHECK(Card().Utilization == 30);
    }
}

TEST_CASE_METHOD(UtilizationTest, "a counter that goes backwards counts one byte less than its wrap")
{
    struct Wrap
    {
        DWORD dwLastIn;
        DWORD dwIn;
        DWORD dwLastOut;
        DWORD dwOut;
        std::uint64_t nDelta;
    };
    const auto wrap = GENERATE(values<Wrap>({
        {4'294'967'290, 5, 100, 100, 10},
        {100, 100, 4'294'967'290, 5, 10},
        {4'294'967'290, 5, 4'294'967'290, 5, 20},
        {4'294'967'295, 0, 100, 100, 0},
        {101, 100, 100, 100, 4'294'967'294},
        {1, 4'294'967'295, 1, 4'294'967'295, 8'589'934'588},
    }));
    CAPTURE(wrap.dwLastIn, wrap.dwIn, wrap.dwLastOut, wrap.dwOut);
    AddAdapter(1'000'000'000);
    Collect(wrap.dwLastIn, wrap.dwLastOut);
    CHECK(Collect(wrap.dwIn, wrap.dwOut).DeltaBytes == wrap.nDelta);
}

TEST_CASE_METHOD(UtilizationTest, "a previous reading of 0 in either direction is none")
{
    AddAdapter(1'000'000'000);
    SECTION("nothing had come in")
    {
        Collect(0, 1000);
    }
    SECTION("nothing had gone out")
    {
        Collect(1000, 0);
    }
    CHECK(Collect(50'000'000, 50'000'000).DeltaBytes == 0);
    CHECK(Card().Utilization == 0);
    CHECK(Collect(50'000'000, 62'500'000).Utilization == 10); // it became the previous reading
}

TEST_CASE_METHOD(UtilizationTest, "an adapter without a row keeps its missing utilization")
{
    m_table.AddRow(INDEX + 1);
    AddAdapter(WmiText(L"1000000000"));
    CHECK(m_collector.CollectUtilization() == 0);
    CHECK(m_collector.CollectUtilization() == 0);
    CHECK(Card().Utilization == 0xFFFFFFFF);
    CHECK(Card().LastInOctets == 0);
}

TEST_CASE_METHOD(UtilizationTest, "an adapter whose row vanishes keeps its last utilization")
{
    AddAdapter(1'000'000'000);
    Collect(1000, 1000);
    Collect(1000 + 12'500'000, 1000);
    m_table.RemoveRows();
    CHECK(m_collector.CollectUtilization() == 0);
    CHECK(Card().Utilization == 10);
}

TEST_CASE_METHOD(UtilizationTest, "of two adapters with one index the first gets the row")
{
    m_wmi.SetObjects(
        {WmiAdapter(L"First", INDEX, WmiText(L"1000000000")), WmiAdapter(L"Second", INDEX, WmiText(L"1000000000"))});
    m_table.AddRow(INDEX);
    REQUIRE(m_collector.RefreshCardList() == 0);
    Collect(1000, 1000);
    CHECK(m_collector.CardList()[0].Utilization == 0);
    CHECK(m_collector.CardList()[1].Utilization == 0xFFFFFFFF);
}

TEST_CASE_METHOD(UtilizationTest, "each adapter has its own readings")
{
    m_wmi.SetObjects({WmiAdapter(L"Fast", 1, WmiText(L"1000000000")), WmiAdapter(L"Slow", 2, WmiText(L"100000000"))});
    REQUIRE(m_collector.RefreshCardList() == 0);
    for (const DWORD dwIndex : {3U, 2U, 1U})
    {
        m_table.AddRow(dwIndex);
        m_table.SetOctets(dwIndex, 1000, 1000);
        m_table.MoveAtEachRead(dwIndex, 6'250'000, 0);
    }
    m_collector.CollectUtilization();
    m_collector.CollectUtilization();
    CHECK(m_collector.CardList()[0].Utilization == 5);
    CHECK(m_collector.CardList()[1].Utilization == 50);
}

TEST_CASE_METHOD(UtilizationTest, "of two rows with one index both count one after the other")
{
    AddAdapter(1'000'000'000);
    m_table.AddRow(INDEX); // all its counters stay 0
    Collect(1000, 1000);
    CHECK(Card().LastInOctets == 0);
    CHECK(Card().LastOutOctets == 0);
}

TEST_CASE_METHOD(UtilizationTest, "the interface table is read with 8 bytes first and then with the size that it wants")
{
    AddAdapter(1'000'000'000);
    m_table.AddRow(INDEX + 1);
    REQUIRE(m_table.Calls().empty());
    m_collector.CollectUtilization();
    const std::vector<InterfaceTableCall> calls = m_table.Calls();
    REQUIRE(calls.size() == 2);
    CHECK(calls[0].cbBuffer == 8);
    CHECK(calls[0].bHasBuffer);
    CHECK_FALSE(calls[0].bSorted);
    CHECK(calls[1].cbBuffer == 4 + 2 * 860);
    CHECK(calls[1].dwStatus == NO_ERROR);
    CHECK_FALSE(calls[1].bSorted);
}

TEST_CASE_METHOD(UtilizationTest, "an interface table without rows fits the 8 bytes")
{
    AddAdapter(WmiText(L"1000000000"));
    CHECK(m_collector.CollectUtilization() == 0);
    CHECK(m_table.Calls().size() == 1);
    CHECK(Card().Utilization == 0xFFFFFFFF);
}

TEST_CASE_METHOD(UtilizationTest, "an interface table that cannot be read changes no card and is no failure")
{
    struct Failure
    {
        ULONGLONG ullCall;
        DWORD dwStatus;
        std::size_t nCalls;
    };
    const auto failure = GENERATE(
        values<Failure>({{1, ERROR_NOT_SUPPORTED, 1}, {2, ERROR_INVALID_DATA, 2}, {2, ERROR_INSUFFICIENT_BUFFER, 2}}));
    CAPTURE(failure.ullCall, failure.dwStatus);
    AddAdapter(1'000'000'000);
    Collect(1000, 1000);
    Collect(1000 + 12'500'000, 1000);
    const ULONGLONG ullBefore = m_redirector.Calls("GetIfTable");
    m_redirector.FailCall("GetIfTable", failure.ullCall, FailMode::Once, ERROR_GEN_FAILURE, failure.dwStatus);
    Collect(1000 + 62'500'000, 1000);
    CHECK(m_redirector.Calls("GetIfTable") - ullBefore == failure.nCalls);
    CHECK(Card().Utilization == 10);
    CHECK(Card().LastInOctets == 1000 + 12'500'000);
    CheckNoLog();
    CHECK(Collect(1000 + 25'000'000, 1000).Utilization == 10); // counted from the last one that was read
}

TEST_CASE_METHOD(UtilizationTest, "no memory for the first 8 bytes is the only failure of a collection")
{
    struct Failure
    {
        unsigned nArray;
        unsigned nResult;
    };
    const auto failure = GENERATE(values<Failure>({{1, 1}, {2, 0}}));
    CAPTURE(failure.nArray);
    AddAdapter(1'000'000'000);
    Collect(1000, 1000);
    m_table.SetOctets(INDEX, 1000 + 12'500'000, 1000);
    {
        const ArrayFailure noMemory(failure.nArray);
        CHECK(m_collector.CollectUtilization() == failure.nResult);
        CHECK(noMemory.IsMet());
    }
    CHECK(Card().LastInOctets == 1000);
    CheckNoLog();
}

} // namespace varnex::test
