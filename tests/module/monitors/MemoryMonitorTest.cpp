// The memory monitor of the shipped DLL: physical memory and paging file under one policy.

#include "MonitoredModule.h"

#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <cstdlib>
#include <set>

namespace varnex::test
{

namespace
{

// A cycle every ten seconds, each judged at once.
ConfigBuilder EachCycleJudged(int nThreshold = 85, int nMaxAlertNum = 5)
{
    return ConfigBuilder()
        .SetPolicy("Memory", 10, nThreshold, 1, nMaxAlertNum)
        .SetLogLevel(4)
        .SetCounter("Date", "2026-01-31")
        .SetCounter("PH", "0")
        .SetCounter("PF", "0");
}

std::string CheckLine(int nPhysical, int nPagingFile, int nThreshold, int nPhysicalFlag, int nPagingFileFlag,
                      int nPhysicalCount, int nPagingFileCount, int nMaxAlertNum)
{
    const auto text = [](int nValue) { return std::to_string(nValue); };
    return "4 MonMemThread -- Before Checking Alert Inf, nPhysicalAverageValue(" + text(nPhysical) +
           "), nPagingFileAverageValue(" + text(nPagingFile) + "),  Threshold(" + text(nThreshold) +
           "), bPhysical_ReachThreshold_LastTime(" + text(nPhysicalFlag) + "), bPagingFile_ReachThreshold_LastTime(" +
           text(nPagingFileFlag) + "), nTodaySentAlertNum_PhysicalMemory(" + text(nPhysicalCount) +
           "), nTodaySentAlertNum_Pagingfile(" + text(nPagingFileCount) + "), MaxAlertNum InADay(" +
           text(nMaxAlertNum) + "), current date(2).";
}

std::string AlertLine(const std::string& kind, int nAverage, int nThreshold, int nCount, int nMaxAlertNum)
{
    return "3 MonMemThread -- " + kind + "emory utilization(" + std::to_string(nAverage) + "%) reach threshold(" +
           std::to_string(nThreshold) + "%), ALERT!!!bReachThreshold_LastTime(0), nTodaySentAlertNum(" +
           std::to_string(nCount) + "), MaxAlertNum InADay(" + std::to_string(nMaxAlertNum) +
           "), current date(2026-01-31)";
}

constexpr char szPhysical[] = "Physical M";
constexpr char szPagingFile[] = "Paging file M";
constexpr char szNoAverage[] = "2 MonMemThread -- Get Memory average utilization value fail, next loop.";

} // namespace

TEST_CASE("the memory monitor logs its start, its checks, its alerts and its end in this order")
{
    MonitoredModule host(EachCycleJudged());
    host.memory.SetUtilization(90, 88);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    host.StopAndEnd(VARNEX_ALERT_MEMORY);

    const Lines log = host.Log();
    const Lines wanted = {
        "4 CMonMemThread construct -- without parameters.",
        "3 [ID:#]Monitor Memory Usage thread begin: Interval(10)S, Threshold(85%), SamplingAmount InADay(1), "
        "MaxAlertNum(5)",
        CheckLine(90, 88, 85, 0, 0, 0, 0, 5),
        AlertLine(szPhysical, 90, 85, 0, 5),
        AlertLine(szPagingFile, 88, 85, 0, 5),
        "4 Monitor Memory Utilization thread end working...",
    };
    CHECK(log == wanted);
}

TEST_CASE("physical memory alone over the threshold gives one record named PH")
{
    MonitoredModule host(EachCycleJudged());
    host.memory.SetUtilization(90, 40);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    host.clock.Advance(10);

    CHECK(host.Alerts() == Lines{"2;85;90;PH"});
    CHECK(host.Counter("PH") == "1");
    CHECK(host.Counter("PF") == "0");
    CHECK(host.LogOf("Before Checking") ==
          Lines{CheckLine(90, 40, 85, 0, 0, 0, 0, 5), CheckLine(90, 40, 85, 1, 0, 1, 0, 5)});
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("an average of memory beyond 100 is judged and alerted as it is")
{
    MonitoredModule host(EachCycleJudged(101));
    host.memory.SetPhysicalMB(1000, 1001); // more available than there is
    host.memory.SetPagingMB(1000, 100);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    CHECK(host.Alerts() == Lines{"2;101;4294967;PH"});
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine(4'294'967, 90, 101, 0, 0, 0, 0, 5)});
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("both kinds of memory over the threshold give two records, two counts and two flags in one cycle")
{
    MonitoredModule host(EachCycleJudged());
    host.memory.SetUtilization(91, 92);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    host.clock.Advance(10);

    const Lines alerts = host.Alerts(); // two writers: their order is not fixed
    CHECK(std::multiset<std::string>(alerts.begin(), alerts.end()) ==
          std::multiset<std::string>{"2;85;91;PH", "2;85;92;PF"});
    CHECK(host.Counter("PH") == "1");
    CHECK(host.Counter("PF") == "1");
    CHECK(host.Counter("Date") == "2026-01-31");
    CHECK(host.LogOf("Before Checking") ==
          Lines{CheckLine(91, 92, 85, 0, 0, 0, 0, 5), CheckLine(91, 92, 85, 1, 1, 1, 1, 5)});
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("an alert of the paging file comes back as a type of its own, one of physical memory as memory")
{
    MonitoredModule host(EachCycleJudged());
    host.memory.SetUtilization(91, 40);
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    host.memory.SetUtilization(20, 99);
    host.clock.Advance(10);
    host.StopAndEnd(VARNEX_ALERT_MEMORY);

    const std::vector<FetchedAlert> alerts = FetchAlerts(host);
    REQUIRE(alerts.size() == 2);
    CHECK(alerts[0].nType == VARNEX_ALERT_MEMORY);
    CHECK(alerts[0].nThreshold == 85);
    CHECK(alerts[0].nValue == 91);
    CHECK(alerts[0].text.find(L"2026-01-31 12:00:00, ") == 0);
    CHECK(alerts[1].nType == VARNEX_ALERT_PAGING_FILE);
    CHECK(alerts[1].nValue == 99);
    CHECK(alerts[1].text.find(L"2026-01-31 12:00:10, ") == 0);
    CHECK(alerts[1].text.find(L"PF") == std::wstring::npos);
}

TEST_CASE("a used-up count of physical memory leaves its flag clear and the paging file free to alert")
{
    MonitoredModule host(EachCycleJudged().SetCounter("PH", "5"));
    host.memory.SetUtilization(95, 95);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    host.clock.Advance(10);

    CHECK(host.Alerts() == Lines{"2;85;95;PF"});
    CHECK(host.Counter("PH") == "5");
    CHECK(host.LogOf("Before Checking") ==
          Lines{CheckLine(95, 95, 85, 0, 0, 5, 0, 5), CheckLine(95, 95, 85, 0, 1, 5, 1, 5)});
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("each kind of memory is re-armed by its own average")
{
    MonitoredModule host(EachCycleJudged());
    host.memory.SetUtilization(90, 90);
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    host.memory.SetUtilization(84, 90); // below, and still above
    host.clock.Advance(10);
    host.memory.SetUtilization(85, 90); // equal is reached
    host.clock.Advance(10);
    CHECK(host.Counter("PH") == "2");
    CHECK(host.Counter("PF") == "1");
    CHECK(host.Alerts().size() == 3);
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("with the default policy memory is first judged in its fifth cycle, six minutes after the start")
{
    MonitoredModule host(ConfigBuilder().SetCounter("Date", "").SetLogLevel(4));
    host.memory.SetUtilization(85, 0);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    host.clock.Advance(4 * 90 - 1);
    CHECK(host.memory.Reads() == 4);
    CHECK(host.LogOf("Before Checking").empty());
    CHECK(host.LogOf("next loop").empty()); // filling up is no failure
    CHECK(host.Alerts().empty());
    host.clock.Advance(1);
    CHECK(host.memory.Reads() == 5);
    CHECK(host.Alerts() == Lines{"2;85;85;PH"});
    CHECK(host.LogOf("thread begin") == Lines{"3 [ID:#]Monitor Memory Usage thread begin: Interval(90)S, "
                                              "Threshold(85%), SamplingAmount InADay(5), MaxAlertNum(5)"});
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("both averages cut off their fractions")
{
    MonitoredModule host(EachCycleJudged().Set("MemorySamplingAmount", 3));
    host.memory.SetUtilization(80, 10);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    host.memory.SetUtilization(81, 11);
    host.clock.Advance(20); // (80 + 81 + 81) / 3 and (10 + 11 + 11) / 3
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine(80, 10, 85, 0, 0, 0, 0, 5)});
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("a smaller sampling amount cuts both histories at once")
{
    MonitoredModule host(EachCycleJudged().Set("MemorySamplingAmount", 5));
    host.LogEverything();
    host.memory.SetUtilization(10, 20);
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    host.clock.Advance(20); // three samples
    host.memory.SetUtilization(40, 50);
    host.tree.WriteConfig(EachCycleJudged().Set("MemorySamplingAmount", 2));
    host.clock.Advance(10);
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine(25, 35, 85, 0, 0, 0, 0, 5)});
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("a sampling amount of -2 takes no memory sample, says nothing and waits")
{
    MonitoredModule host(EachCycleJudged().Set("MemorySamplingAmount", -2));
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    host.clock.Advance(25);
    CHECK(host.memory.Reads() == 0);
    CHECK(host.clock.SleepCount(1000) >= 25);
    CHECK(host.LogOf("MonMemThread --").empty());
    CHECK(host.LogOf("thread begin").size() == 1);
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("a memory sample that fails is logged, and called a failed average only once the history is full")
{
    MonitoredModule host(EachCycleJudged().Set("MemorySamplingAmount", 2));
    host.memory.SetUtilization(90, 20);
    host.LogEverything();
    host.imports.FailCall("GetProcAddress", 1, FailMode::Once, ERROR_PROC_NOT_FOUND);
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    const Lines failure = {
        "1 GetAvaMemoryUtilization -- GetProcAddress GlobalMemoryStatusEx failed(127).",
        "1 GetMemoryUtilizationAverage -- get memory utilization (127)",
    };
    CHECK(host.LogOf("emoryUtilization") == failure);
    CHECK(host.LogOf("next loop").empty());

    host.clock.Advance(20); // full
    REQUIRE(host.Alerts() == Lines{"2;85;90;PH"});
    host.ForgetLog();
    host.imports.FailCall("LoadLibraryA", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    host.clock.Advance(10);
    const Lines wanted = {
        "1 GetAvaMemoryUtilization -- LoadLibrary kernel32.dll failed(8).",
        "1 GetMemoryUtilizationAverage -- get memory utilization (8)",
        szNoAverage,
    };
    CHECK(host.Log() == wanted);
    host.ForgetLog();
    host.clock.Advance(10); // flag and history were untouched
    CHECK(host.Log() == Lines{CheckLine(90, 20, 85, 1, 0, 1, 0, 5)});
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("without memory for one of the two histories neither takes the sample")
{
    MonitoredModule host(EachCycleJudged().Set("MemorySamplingAmount", 3));
    host.memory.SetUtilization(10, 20);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    // The second samples need more memory than the first ones had: two equal blocks after the reading, and the second
    // of them is refused.
    constexpr std::size_t cbTwoSamples = 2 * sizeof(unsigned);
    int nBlocks = 0;
    host.imports.Replace<void*(std::size_t)>("malloc",
                                             [&nBlocks, nReads = host.memory.Reads(), &host](std::size_t cb) -> void*
                                             {
                                                 const bool bHistory =
                                                     cb == cbTwoSamples && host.memory.Reads() > nReads;
                                                 return bHistory && ++nBlocks == 2 ? nullptr : std::malloc(cb);
                                             });
    host.memory.SetUtilization(30, 40);
    host.clock.Advance(10);
    host.imports.Restore("malloc");
    REQUIRE(nBlocks == 2);
    CHECK(host.LogOf("exception") == Lines{"1 CMonMemThread -- exception stopped(std::bad_alloc)."});

    host.clock.Advance(10);
    CHECK(host.LogOf("Before Checking").empty()); // two samples each
    host.memory.SetUtilization(50, 60);
    host.clock.Advance(10); // (10 + 30 + 50) / 3 and (20 + 40 + 60) / 3
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine(30, 40, 85, 0, 0, 0, 0, 5)});
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("a status call that fails is a sample of zero")
{
    MonitoredModule host(EachCycleJudged());
    host.LogEverything();
    host.memory.Fail(ERROR_INVALID_PARAMETER);
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    CHECK(host.LogOf("MonMemThread --") == Lines{CheckLine(0, 0, 85, 0, 0, 0, 0, 5)});
    CHECK(host.memory.BadReads() == 0);
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("a percentage beyond a hundred is judged as it comes")
{
    MonitoredModule host(EachCycleJudged());
    host.LogEverything();
    host.memory.SetUtilization(0, 0);
    host.memory.SetPhysicalMB(100, 200); // (2^32 - 100) * 100 in 32 bits, over 100
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    CHECK(host.LogOf("MonMemThread --") ==
          Lines{CheckLine(42949572, 0, 85, 0, 0, 0, 0, 5), AlertLine(szPhysical, 42949572, 85, 0, 5)});
    CHECK(host.Alerts() == Lines{"2;85;42949572;PH"});
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("two of eight gigabytes available are 75 percent, one megabyte less than all is none")
{
    MonitoredModule host(EachCycleJudged(75));
    host.LogEverything();
    host.memory.SetPhysicalBytes(8ULL << 30, 2ULL << 30);
    host.memory.SetPagingMB(8192, 8191);
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    CHECK(host.LogOf("MonMemThread --") ==
          Lines{CheckLine(75, 0, 75, 0, 0, 0, 0, 5), AlertLine(szPhysical, 75, 75, 0, 5)});
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("both counts that cannot be read are said before the one check line, and taken as none")
{
    MonitoredModule host(ConfigBuilder().SetPolicy("Memory", 10, 85, 1, 5).SetLogLevel(4).SetCounter("PH", "5"));
    host.memory.SetUtilization(10, 10);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    const Lines wanted = {
        "4 MonMemThread -- Get physical memory alert number from CFG file failed, input date(2026-01-31), error "
        "code(0xffffffff). ",
        "4 MonMemThread -- Get paging file alert number from CFG file failed, input date(2026-01-31), error "
        "code(0xffffffff). ",
        CheckLine(10, 10, 85, 0, 0, 0, 0, 5),
    };
    CHECK(host.LogOf("MonMemThread --") == wanted);
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

TEST_CASE("memory that stays high alerts again on a new day only when the old day's limit had held it back")
{
    MonitoredModule host(EachCycleJudged(85, 1).SetCounter("PH", "1"));
    host.clock.Set({2026, 1, 31, 23, 59, 55});
    host.memory.SetUtilization(90, 90); // the paging file alerts at once, physical memory is held back
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    REQUIRE(host.Alerts() == Lines{"2;85;90;PF"});
    host.clock.Advance(10); // 00:00:05
    CHECK(host.Alerts() == Lines{"2;85;90;PF", "2;85;90;PH"});
    CHECK(host.Counter("Date") == "2026-02-01");
    CHECK(host.Counter("PH") == "1");
    CHECK(host.Counter("PF") == "0");
    host.StopAndEnd(VARNEX_ALERT_MEMORY);
}

} // namespace varnex::test
