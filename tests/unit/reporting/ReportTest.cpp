#include "ComScope.h"
#include "ReportDocument.h"
#include "ReportingBench.h"
#include "StoreFilling.h"

#include "common/BoundedText.h"
#include "reporting/UtilizationReport.h"

#include <catch2/catch.hpp>

#include <limits>

namespace varnex::test
{

namespace
{

constexpr char TIME[] = "2026-01-31 12:00:00";

using Wanted = HasLinesInOrder::Wanted;

UniqueBstr MakeText(std::uint32_t nTotal, std::uint32_t nMinimum)
{
    const ComScope com;
    UtilizationReport report;
    CopyTextW(report.wszTime, L"2026-01-31 12:00:00");
    return CreatePKIXMLToMMF(nTotal, nMinimum, &report);
}

XmlElement MakeTree(std::uint32_t nTotal, std::uint32_t nMinimum)
{
    const UniqueBstr text = MakeText(nTotal, nMinimum);
    REQUIRE(text);
    return ReadReport(text.Get());
}

std::vector<NetworkCard> CardRecords(int nCount)
{
    std::vector<NetworkCard> records;
    for (int i = 1; i <= nCount; ++i)
    {
        // Each record has a speed of its own, to see which one is taken.
        records.push_back(MakeCard(5, L"AA:BB", std::int64_t{i} * 1'000'000 + 999'999, static_cast<unsigned>(i)));
    }
    return records;
}

} // namespace

TEST_CASE("a null report is refused before anything is averaged")
{
    ReportingBench bench;
    CHECK_FALSE(CreatePKIXMLToMMF(1, 1, nullptr));
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 1);
    CHECK_THAT(log, HasLine(1, "CreatePKIXMLToMMF -- checking paramter fail, pstPKIUtlStruct(0000000000000000)"));
}

TEST_CASE("a report averages every history and tells each step in the log")
{
    ReportingBench bench;
    FillCpus({{L"0", {10, 20, 31}}, {L"12", {-1, 90, 100}}});
    FillMemoryStore({50, 60}, {-1, 30});
    FillDisks({{L"0 C:", {1000, 3001}}, {L"17 D:", {6'000'000'000, 6'000'000'000}}});
    FillCards({MakeCard(9, L"CC:DD", 10'000'000'000, 7), MakeCard(2, L"AA:BB", 999'999, 0xFFFFFFFF),
               MakeCard(2, L"AA:BB", 999'999, 4)});

    CHECK(MakeTree(60, 1) == ExpectedReport(TIME)
                                 .Cpu("0", 20)
                                 .Cpu("1", 95)
                                 .Memory(55, 10000, 30, 10000)
                                 .Disk("0", 2000)
                                 .Disk("1", 6'000'000'000)
                                 .Network("AA:BB", 0, 4)
                                 .Network("CC:DD", 10000, 7)
                                 .Tree());
    const LogFile log = bench.ReadLog();
    const std::vector<Wanted> wanted = {
        {3, "CreatePKIXMLToMMF -- Should calculate average PKI utilization, nTotalSampleNum(60), nMinSampleNum(1)"},
        {4, "GetSinglePKIAverageValue -- checking first CPU UTL list size and input minimum sampling "
            "amount,CPUList.size:3, nMinSampleNum:1..."},
        {4, "CreatePKIXMLToMMF -- CPU[0], average value[20 %], prepare to XML."},
        {4, "CreatePKIXMLToMMF -- CPU[1], average value[95 %], prepare to XML."},
        {4, "CreatePKIXMLToMMF --  Total physical memory(10000MB), Total paging file(10000MB)."},
        {4, "CreatePKIXMLToMMF -- Memory: Physical Memory -- total size(10000), average UTL(55 %), Paging file -- "
            "total size(10000), average UTL(30 %)."},
        {4, "CreatePKIXMLToMMF -- Disk[0], average value[2000 B/S], prepare to XML."},
        {4, "CreatePKIXMLToMMF -- Disk[1], average value[1705032704 B/S], prepare to XML."}, // the low 32 bits
        {4, "CreatePKIXMLToMMF -- NIC[AA:BB], LinkSpeed[0 MBps], Average PKI Value(4 ), prepare to XML."},
        {4, "CreatePKIXMLToMMF -- NIC[CC:DD], LinkSpeed[10000 MBps], Average PKI Value(7 ), prepare to XML."},
        {3, "CreatePKIXMLToMMF -- Average PKI Value has prepared, should compose XML file.CPUNum(2), hyMemUtl(55), "
            "PhyMemSize(10000), PagingFileUtl(30), PagingFileSize(10000), DiskNum(2), NetworkNum(2)"},
        {3, "CreatePKIXMLToMMF -- Create KA PKI Utilization XML finish."},
    };
    CHECK(log.Lines().size() == wanted.size());
    CHECK_THAT(log, HasLinesInOrder(wanted));
}

TEST_CASE("averages beyond 0 and 100 stand in a report as they are")
{
    ReportingBench bench;
    FillCpus({{L"0", {150, 151}}, {L"1", {-2, -7}}});
    FillMemoryStore({150, 150}, {4'294'967, 4'294'967});
    FillDisks({{L"0 C:", {-5, -6}}});
    FillCards({MakeCard(2, L"AA:BB", 1'000'000, 250), MakeCard(3, L"CC:DD", -1, 0xFFFFFFFE)});
    const UniqueBstr text = MakeText(60, 1); // not by the schema, which has no place for these
    REQUIRE(text);
    CHECK(ParseXml(text.Get()) == ExpectedReport(TIME)
                                 .Cpu("0", 150)
                                 .Cpu("1", -4)
                                 .Memory(150, 10000, 4'294'967, 10000)
                                 .Disk("0", -5)
                                 .Network("AA:BB", 1, 250)
                                 .Network("CC:DD", 0, -2)
                                 .Tree());
}

TEST_CASE("a report of a machine of which nothing is known has zeroes for its memory only")
{
    ReportingBench bench;
    CHECK(MakeTree(60, 40) == ExpectedReport(TIME).Memory(0, 10000, 0, 10000).Tree());
    const LogFile log = bench.ReadLog();
    CHECK(log.Count(4, "GetSinglePKIAverageValue -- PKI valid item amount is zero, return average value is 0.") == 2);
    CHECK_FALSE(log.Bytes().find("CPUList.size") != std::string::npos);
    CHECK_THAT(log, HasLine(3, "CreatePKIXMLToMMF -- Average PKI Value has prepared, should compose XML "
                               "file.CPUNum(0), hyMemUtl(0), PhyMemSize(10000), PagingFileUtl(0), "
                               "PagingFileSize(10000), DiskNum(0), NetworkNum(0)"));
}

TEST_CASE("too few valid samples give 0 in every part of the report")
{
    ReportingBench bench;
    FillCpus({{L"0", {10, 20, -1}}});
    FillMemoryStore({50, 60, 70}, {1, 2});
    FillDisks({{L"0 C:", {1, 2, -1}}});
    FillCards({MakeCard(2, L"AA:BB", 1, 10), MakeCard(2, L"AA:BB", 1, 20)});
    CHECK(MakeTree(60, 3) ==
          ExpectedReport(TIME).Cpu("0", 0).Memory(60, 10000, 0, 10000).Disk("0", 0).Network("AA:BB", 0, 0).Tree());
    CHECK(MakeTree(60, 2) ==
          ExpectedReport(TIME).Cpu("0", 15).Memory(60, 10000, 1, 10000).Disk("0", 1).Network("AA:BB", 0, 15).Tree());
}

TEST_CASE("the first processor's history is compared with the minimum, as signed numbers, for the log only")
{
    struct Rule
    {
        std::uint32_t nMinimum;
        int nLevel;
        const char* pszText;
    };
    const char* const pszEnough = "GetSinglePKIAverageValue -- checking first CPU UTL list size and input minimum "
                                  "sampling amount,CPUList.size:3, nMinSampleNum:";
    const char* const pszTooFew = "GetSinglePKIAverageValue -- First CPU UTL list size is less than input minimum "
                                  "sampling amount,CPUList.size:3, nMinSampleNum:";
    const Rule rule = GENERATE_COPY(values<Rule>({{3, 4, pszEnough},
                                                  {4, 2, pszTooFew},
                                                  {1440, 2, pszTooFew},
                                                  {0x7FFFFFFF, 2, pszTooFew},
                                                  {0x80000000, 4, pszEnough},
                                                  {0xFFFFFFFF, 4, pszEnough}}));
    ReportingBench bench;
    FillCpus({{L"0", {-1, 20, 30}}, {L"1", {}}});
    const bool bAverages = static_cast<std::int32_t>(rule.nMinimum) <= 2;
    CHECK(MakeTree(60, rule.nMinimum) ==
          ExpectedReport(TIME).Cpu("0", bAverages ? 25 : 0).Cpu("1", 0).Memory(0, 10000, 0, 10000).Tree());
    const LogFile log = bench.ReadLog();
    const std::string text = rule.pszText + std::to_string(static_cast<std::int32_t>(rule.nMinimum)) + "...";
    CHECK_THAT(log, HasLine(rule.nLevel, text));
    CHECK(log.CountContaining("CPUList.size") == 1);
}

TEST_CASE("any two numbers give the averages of an independent calculation, and cut the adapters' histories only")
{
    const auto nTotal = GENERATE(as<std::uint32_t>{}, 1, 30, 1440, 1441, 0x80000000, 0xFFFFFFFF);
    const auto nMinimum = GENERATE(as<std::uint32_t>{}, 1, 30, 1440, 1441, 0x80000000, 0xFFFFFFFF);
    CAPTURE(nTotal, nMinimum);
    ReportingBench bench(1);
    std::vector<int> day(1440);
    std::vector<std::int64_t> wideDay(1440);
    std::vector<NetworkCard> cards;
    for (int i = 0; i < 1440; ++i)
    {
        day[static_cast<std::size_t>(i)] = i % 101;
        wideDay[static_cast<std::size_t>(i)] = std::int64_t{i} * 10'000'000;
        cards.push_back(MakeCard(2, L"AA:BB", 1'000'000, static_cast<unsigned>(i % 101)));
    }
    FillCpus({{L"0", day}});
    FillMemoryStore(day, day);
    FillDisks({{L"0 C:", wideDay}});
    FillCards(cards);

    const long long llCount = std::min<long long>(nTotal, 1440);
    long long llSum = 0;
    long long llWideSum = 0;
    for (long long i = 1440 - llCount; i < 1440; ++i)
    {
        llSum += i % 101;
        llWideSum += i * 10'000'000;
    }
    const bool bEnough = llCount >= static_cast<std::int32_t>(nMinimum);
    const long long llAverage = bEnough ? llSum / llCount : 0;
    CHECK(MakeTree(nTotal, nMinimum) == ExpectedReport(TIME)
                                            .Cpu("0", llAverage)
                                            .Memory(llAverage, 10000, llAverage, 10000)
                                            .Disk("0", bEnough ? llWideSum / llCount : 0)
                                            .Network("AA:BB", 1, llAverage)
                                            .Tree());
    CHECK(Stores().cpu.Of(0).Size() == 1440);
    CHECK(Stores().memory.physical.Size() == 1440);
    CHECK(Stores().memory.pagingFile.Size() == 1440);
    CHECK(Stores().disk.Of(0).Size() == 1440);
    CHECK(Stores().network.histories.at(2).Size() == static_cast<std::size_t>(llCount));
}

TEST_CASE("a report cuts an adapter's history to its span, and takes speed and address from the oldest record left")
{
    ReportingBench bench(1);
    FillCards(CardRecords(100));
    CHECK(MakeTree(60, 1) == ExpectedReport(TIME).Memory(0, 10000, 0, 10000).Network("AA:BB", 41, 70).Tree());
    CHECK(Stores().network.histories.at(5).Size() == 60);
    CHECK(MakeTree(30, 1) == ExpectedReport(TIME).Memory(0, 10000, 0, 10000).Network("AA:BB", 71, 85).Tree());
    CHECK(Stores().network.histories.at(5).Size() == 30);
    // Back at the longer span there are 30 records only.
    CHECK(MakeTree(60, 31) == ExpectedReport(TIME).Memory(0, 10000, 0, 10000).Network("AA:BB", 71, 0).Tree());
    CHECK(Stores().network.histories.at(5).Size() == 30);

    FillCards({MakeCard(5, L"EE:FF", 500'000'000'000, 1)});
    CHECK(MakeTree(1, 1) == ExpectedReport(TIME).Memory(0, 10000, 0, 10000).Network("EE:FF", 500000, 1).Tree());
}

TEST_CASE("adapters are told in ascending order of their interface index")
{
    ReportingBench bench(1);
    FillCards({MakeCard(0xFFFFFFFF, L"last", 0, 1), MakeCard(10, L"second", 0, 2), MakeCard(9, L"first", 0, 3),
               MakeCard(0x80000000, L"third", 0, 4)});
    CHECK(MakeTree(60, 1) == ExpectedReport(TIME)
                                 .Memory(0, 10000, 0, 10000)
                                 .Network("first", 0, 3)
                                 .Network("second", 0, 2)
                                 .Network("third", 0, 4)
                                 .Network("last", 0, 1)
                                 .Tree());
}

TEST_CASE(
    "an adapter's speed is told in units of a million bits, truncated towards zero, and its address to 31 characters")
{
    struct Rule
    {
        std::int64_t nSpeed;
        std::int64_t nTold;
    };
    const Rule rule = GENERATE(values<Rule>(
        {{0, 0}, {-1, 0}, {999'999, 0}, {1'000'000, 1}, {1'999'999, 1}, {400'000'000'000, 400'000}, {-1'000'000, -1}}));
    ReportingBench bench(1);
    FillCards({MakeCard(2, std::wstring(40, L'A'), rule.nSpeed, 1)});
    CHECK(MakeTree(60, 1) ==
          ExpectedReport(TIME).Memory(0, 10000, 0, 10000).Network(std::string(31, 'A'), rule.nTold, 1).Tree());
}

TEST_CASE("a memory size that cannot be had is told as 0")
{
    ReportingBench bench;
    bench.exports.Hide("GlobalMemoryStatusEx");
    FillMemoryStore({50}, {25});
    CHECK(MakeTree(60, 1) == ExpectedReport(TIME).Memory(50, 0, 25, 0).Tree());
    const LogFile log = bench.ReadLog();
    CHECK_THAT(log, HasLine(4, "CreatePKIXMLToMMF --  Get total physical memory(0MB) and paging file(0MB) size fail."));
    CHECK_THAT(log, HasLine(4, "CreatePKIXMLToMMF -- Memory: Physical Memory -- total size(0), average UTL(50 %), "
                               "Paging file -- total size(0), average UTL(25 %)."));
}

TEST_CASE("each part of a report takes its store's lock, and no two at once")
{
    ReportingBench bench(1);
    FillCpus({{L"0", {1}}, {L"1", {1}}});
    FillMemoryStore({1}, {1});
    FillDisks({{L"0 C:", {1}}});
    FillCards({MakeCard(2, L"AA:BB", 1, 1)});
    const auto nStore = GENERATE(0, 1, 2, 3);
    const UniqueHandle release(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    bench.clock.RunOnOtherThread(
        [&]
        {
            UtilizationStores& stores = Stores();
            StoreLock* const apLocks[] = {&stores.cpu.lock, &stores.memory.lock, &stores.disk.lock,
                                          &stores.network.lock};
            const StoreLockHold hold(*apLocks[nStore]);
            bench.clock.Block(release.Get());
        });
    bench.clock.WaitUntilAllAsleep();
    bool bDone = false;
    bench.clock.RunOnOtherThread(
        [&bDone]
        {
            const ScriptedScope scripted;
            MakeText(60, 1);
            bDone = true;
        });
    bench.clock.WaitUntilAllAsleep();
    CHECK_FALSE(bDone);
    // While it waits for one lock it holds none of the others.
    int nFree = 0;
    ForEachStore(
        [&nFree](auto& store)
        {
            if (store.lock.TryEnter())
            {
                ++nFree;
                store.lock.Leave();
            }
        });
    CHECK(nFree == 3);
    SetEvent(release.Get());
    bench.clock.AdvanceUntilWorkersEnd(1);
    CHECK(bDone);
}

TEST_CASE("a part of a report whose store is in use for 20 seconds is left out, and logged")
{
    struct Part
    {
        StoreLock* pLock;
        const char* pszLine;
    };
    UtilizationStores& stores = Stores();
    const Part part = GENERATE_REF(values<Part>({
        {&stores.cpu.lock, "CreatePKIXMLToMMF -- processors left out of the report: the samples are in use."},
        {&stores.memory.lock,
         "CreatePKIXMLToMMF -- averages of memory left out of the report: the samples are in use."},
        {&stores.disk.lock, "CreatePKIXMLToMMF -- disks left out of the report: the samples are in use."},
        {&stores.network.lock, "CreatePKIXMLToMMF -- network adapters left out of the report: the samples are in use."},
    }));
    CAPTURE(part.pszLine);
    ReportingBench bench;
    FillCpus({{L"0", {10}}, {L"1", {20}}});
    FillMemoryStore({30}, {40});
    FillDisks({{L"0 C:", {50}}});
    FillCards({MakeCard(2, L"AA:BB", 1'000'000, 60)});
    const UniqueHandle release(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    bench.clock.RunOnOtherThread(
        [&]
        {
            const StoreLockHold hold(*part.pLock);
            bench.clock.Block(release.Get());
        });
    bench.clock.WaitUntilAllAsleep();
    const ULONGLONG ullStart = bench.clock.ElapsedMs();
    const XmlElement report = MakeTree(60, 1);
    CHECK(bench.clock.ElapsedMs() - ullStart == 20'000);
    ExpectedReport expected(TIME);
    if (part.pLock != &stores.cpu.lock)
    {
        expected.Cpu("0", 10).Cpu("1", 20);
    }
    const bool bMemory = part.pLock != &stores.memory.lock;
    expected.Memory(bMemory ? 30 : 0, 10000, bMemory ? 40 : 0, 10000);
    if (part.pLock != &stores.disk.lock)
    {
        expected.Disk("0", 50);
    }
    if (part.pLock != &stores.network.lock)
    {
        expected.Network("AA:BB", 1, 60);
    }
    CHECK(report == expected.Tree());
    const LogFile log = bench.ReadLog();
    CHECK_THAT(log, HasLine(1, part.pszLine));
    CHECK(log.CountOfLevel(1) == 2); // and the lock's own
    SetEvent(release.Get());
    bench.clock.AdvanceUntilWorkersEnd(1);
}

} // namespace varnex::test
