// The disk monitor of the shipped DLL: the throughput of each disk in MB/s under one policy, one flag and one count.

#include "MonitoredModule.h"

#include "support/CapturedOutput.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <pdhmsg.h>

#include <cstdlib>

namespace varnex::test
{

namespace
{

constexpr double MB = 1048576.0;
constexpr wchar_t OBJECT[] = L"PhysicalDisk";
constexpr char szNoList[] = "1 MonDiskThread --  Fail to get physical disk name list, exit!";

// A pass every ten seconds, each judged at once.
ConfigBuilder EachPassJudged(int nThreshold = 50, int nMaxAlertNum = 5)
{
    return ConfigBuilder()
        .SetPolicy("Disk", 10, nThreshold, 1, nMaxAlertNum)
        .SetLogLevel(4)
        .SetCounter("Date", "2026-01-31")
        .SetCounter("Disk", "0");
}

std::wstring PathOf(const std::wstring& disk)
{
    return L"\\PhysicalDisk(" + disk + L")\\Disk Bytes/sec";
}

void SetMB(MonitoredModule& host, const std::wstring& disk, double fMB)
{
    host.pdh.SetValue(PathOf(disk), fMB * MB);
}

// The two disks of most tests, and the aggregate that is none.
void SetTwoDisks(MonitoredModule& host, double fFirstMB, double fSecondMB)
{
    host.pdh.SetInstances(OBJECT, {L"0 C:", L"1 D:", L"_Total"});
    SetMB(host, L"0 C:", fFirstMB);
    SetMB(host, L"1 D:", fSecondMB);
}

void SetOneDisk(MonitoredModule& host, double fMB)
{
    host.pdh.SetInstances(OBJECT, {L"0 C:", L"_Total"});
    SetMB(host, L"0 C:", fMB);
}

std::string CheckLine(const std::string& disk, int nAverage, int nThreshold, int nFlag, int nCount, int nMaxAlertNum,
                      const std::string& time)
{
    return "4 MonDiskThread -- Before Checking Alert Inf, DiskName(" + disk + "), nAverageValue(" +
           std::to_string(nAverage) + "), Threshold(" + std::to_string(nThreshold) + "), bReachThreshold_LastTime(" +
           std::to_string(nFlag) + "), nTodaySentAlertNum(" + std::to_string(nCount) + "), MaxAlertNum InADay(" +
           std::to_string(nMaxAlertNum) + "), happenTime(" + time + ").";
}

std::string AlertLine(const std::string& disk, int nAverage, int nThreshold, int nCount, const std::string& time)
{
    return "3 MonDiskThread -- Disk(" + disk + ") throughput(" + std::to_string(nAverage) + "MB/S) reach threshold(" +
           std::to_string(nThreshold) + "MB/S), ALERT!!!bReachThreshold_LastTime(0), nTodaySentAlertNum(" +
           std::to_string(nCount) + "), MaxAlertNum InADay(5) and happenTime(" + time + ")";
}

std::string FailureLine(const std::string& disk, int nAverage)
{
    return "1 MonDiskThread -- fail to get disk(" + disk + ") average throughput(" + std::to_string(nAverage) + ")";
}

std::string MeasurementFailureLine(const std::string& disk)
{
    return "1 GetDiskAverageThroughput -- get disk(" + disk + ") Throughput fail(0)";
}

} // namespace

TEST_CASE("the disk monitor logs its start, its checks, its alerts and its end in this order")
{
    MonitoredModule host(EachPassJudged());
    SetTwoDisks(host, 72, 10);
    host.LogEverything();
    host.Start(VARNEX_ALERT_DISK);
    host.clock.Advance(1); // a tenth of a second for each disk
    host.StopAndEnd(VARNEX_ALERT_DISK);

    const Lines wanted = {
        "4 CMonDiskThread construct -- without parameters.",
        "3 [ID:#]Monitor Disk Usage thread begin: Interval(10)S, Threshold(50MB/Sec), SamplingAmount InADay(1), "
        "MaxAlertNum(5)",
        CheckLine("0 C:", 72, 50, 0, 0, 5, "2026-01-31 12:00:00"),
        AlertLine("0 C:", 72, 50, 0, "2026-01-31 12:00:00"),
        CheckLine("1 D:", 10, 50, 1, 1, 5, "2026-01-31 12:00:00"),
        "4 Monitor Disk throughput thread end working...",
    };
    CHECK(host.Log() == wanted);
    CHECK(host.Alerts() == Lines{"3;50;72;0 C:"});
    CHECK(host.Counter("Disk") == "1");
}

TEST_CASE("disks are listed once a run, and each measurement closes what it opened")
{
    MonitoredModule host(EachPassJudged());
    SetTwoDisks(host, 1, 1);
    host.StartAndRun(VARNEX_ALERT_DISK);
    host.clock.Advance(25); // three passes
    CHECK(host.pdh.CountCalls("PdhEnumObjectItemsA") == 1);
    CHECK(host.pdh.CountCalls("PdhEnumObjectItemsW") == 0);
    CHECK(host.pdh.CountCalls("PdhOpenQueryA") == 6);
    CHECK(host.pdh.OpenQueries() == 0);
    CHECK(host.pdh.OpenCounters() == 0);
    CHECK(host.pdh.WrongHandles() == 0);
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("an alert of a disk names it to whoever fetches it")
{
    MonitoredModule host(EachPassJudged());
    SetOneDisk(host, 50);
    host.Start(VARNEX_ALERT_DISK);
    host.clock.Advance(1);
    host.StopAndEnd(VARNEX_ALERT_DISK);
    const std::vector<FetchedAlert> alerts = FetchAlerts(host);
    REQUIRE(alerts.size() == 1);
    CHECK(alerts[0].nType == VARNEX_ALERT_DISK);
    CHECK(alerts[0].nThreshold == 50);
    CHECK(alerts[0].nValue == 50);
    const std::wstring ending = L", 0 C:";
    CHECK(alerts[0].text.substr(alerts[0].text.size() - ending.size()) == ending);
}

TEST_CASE("with the default policy a disk first alerts in the fifth pass, four minutes after the start")
{
    MonitoredModule host(ConfigBuilder().SetCounter("Date", "").SetLogLevel(4));
    SetOneDisk(host, 50);
    host.LogEverything();
    host.Start(VARNEX_ALERT_DISK);
    host.clock.AdvanceMs(4 * 60'000 + 499); // five measurements take half a second
    CHECK(host.Alerts().empty());
    CHECK(host.LogOf("MonDiskThread --").empty());
    host.clock.AdvanceMs(1);
    CHECK(host.Alerts() == Lines{"3;50;50;0 C:"});
    CHECK(host.LogOf("thread begin") == Lines{"3 [ID:#]Monitor Disk Usage thread begin: Interval(60)S, "
                                              "Threshold(50MB/Sec), SamplingAmount InADay(5), MaxAlertNum(5)"});
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("of two disks that stay above the threshold only the first in the list alerts, and once")
{
    MonitoredModule host(EachPassJudged());
    SetTwoDisks(host, 60, 70);
    host.StartAndRun(VARNEX_ALERT_DISK);
    host.clock.Advance(60);
    CHECK(host.Alerts() == Lines{"3;50;60;0 C:"});
    CHECK(host.Counter("Disk") == "1");
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("a disk below the threshold re-arms the one before it, until the day's limit is used up")
{
    MonitoredModule host(EachPassJudged());
    SetTwoDisks(host, 60, 10);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_DISK);
    host.clock.Advance(75); // eight passes of 10.2 s
    CHECK(host.Alerts() == Lines(5, "3;50;60;0 C:"));
    CHECK(host.Counter("Disk") == "5");
    const Lines checks = host.LogOf("DiskName(0 C:)");
    REQUIRE(checks.size() == 8);
    CHECK(checks[4] == CheckLine("0 C:", 60, 50, 0, 4, 5, "2026-01-31 12:00:40"));
    CHECK(checks[5] == CheckLine("0 C:", 60, 50, 0, 5, 5, "2026-01-31 12:00:51"));
    CHECK(checks[7] == CheckLine("0 C:", 60, 50, 0, 5, 5, "2026-01-31 12:01:11"));
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("a new day lets disks alert again")
{
    MonitoredModule host(EachPassJudged().SetCounter("Disk", "5"));
    host.clock.Set({2026, 1, 31, 23, 59, 45});
    SetOneDisk(host, 60);
    host.StartAndRun(VARNEX_ALERT_DISK);
    host.clock.Advance(14);
    CHECK(host.Alerts().empty());
    host.clock.Advance(10);
    CHECK(host.Alerts() == Lines{"3;50;60;0 C:"});
    CHECK(host.Counter("Date") == "2026-02-01");
    CHECK(host.Counter("Disk") == "1");
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("a disk threshold of 0 means the default, one of -2 is taken as it is")
{
    MonitoredModule host(EachPassJudged(0));
    SetOneDisk(host, 49);
    host.LogEverything();
    host.Start(VARNEX_ALERT_DISK);
    host.clock.Advance(1);
    CHECK(host.Alerts().empty());
    host.tree.WriteConfig(EachPassJudged(-2));
    SetOneDisk(host, 0.5);
    host.clock.Advance(10);
    CHECK(host.Alerts() == Lines{"3;-2;0;0 C:"});
    CHECK(host.LogOf("reach threshold") == Lines{AlertLine("0 C:", 0, -2, 0, "2026-01-31 12:00:10")});
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("throughput counts in whole megabytes, and an average cuts off its fraction")
{
    MonitoredModule host(EachPassJudged());
    host.pdh.SetInstances(OBJECT, {L"0 C:"});
    host.pdh.QueueValues(PathOf(L"0 C:"), {1048575.0, 1048576.0});
    host.LogEverything();
    host.Start(VARNEX_ALERT_DISK);
    host.clock.Advance(11);
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine("0 C:", 0, 50, 0, 0, 5, "2026-01-31 12:00:00"),
                                                 CheckLine("0 C:", 1, 50, 0, 0, 5, "2026-01-31 12:00:10")});

    host.tree.WriteConfig(EachPassJudged().Set("DiskSamplingAmount", 3));
    host.pdh.QueueValues(PathOf(L"0 C:"), {MB, 2 * MB, 3 * MB});
    host.ForgetLog();
    host.clock.Advance(30); // 1, 1, 2 and then 1, 2, 3
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine("0 C:", 1, 50, 0, 0, 5, "2026-01-31 12:00:30"),
                                                 CheckLine("0 C:", 2, 50, 0, 0, 5, "2026-01-31 12:00:40")});
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("an idle disk costs six seconds a pass and is judged as 0 MB/s")
{
    MonitoredModule host(EachPassJudged());
    SetOneDisk(host, 0);
    host.LogEverything();
    host.Start(VARNEX_ALERT_DISK);
    host.clock.AdvanceMs(6099);
    CHECK(host.LogOf("MonDiskThread --").empty());
    host.clock.AdvanceMs(1);
    CHECK(host.LogOf("0 C:") ==
          Lines{"4 GetSingleDiskThroughput -- PdhGetFormattedCounterValuefail too many times(5), diskName(0 C:), "
                "exit...",
                CheckLine("0 C:", 0, 50, 0, 0, 5, "2026-01-31 12:00:06")});
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("without disks the monitor is done at once: it keeps its slot and its apartment and logs no end")
{
    struct Machine
    {
        const char* pszWhat;
        void (*pfnSet)(ScriptedPdh&);
        std::string output;
    };
    const Machine machine = GENERATE(values<Machine>({
        {"the aggregate instance alone", [](ScriptedPdh& pdh) { pdh.SetInstances(OBJECT, {L"_Total"}); }, ""},
        {"no instance", [](ScriptedPdh& pdh) { pdh.SetInstances(OBJECT, {}); },
         "GetDiskNameList -- ERROR to get physical disk interface[2], PdhEnumObjectItemsHA(0x00000000)."},
        {"no such object", [](ScriptedPdh&) {},
         "GetDiskNameList -- ERROR to get physical disk interface[1], PdhEnumObjectItemsHA(0xc0000bb8)."},
    }));
    INFO(machine.pszWhat);
    MonitoredModule host(EachPassJudged());
    machine.pfnSet(host.pdh);
    host.LogEverything();
    const ULONGLONG ullLeft = host.imports.Calls("CoUninitialize");
    const std::string output = CaptureOutput(
        [&]
        {
            host.Start(VARNEX_ALERT_DISK);
            host.clock.AdvanceUntilWorkersEnd(1);
        });

    const Lines wanted = {
        "4 CMonDiskThread construct -- without parameters.",
        "3 [ID:#]Monitor Disk Usage thread begin: Interval(10)S, Threshold(50MB/Sec), SamplingAmount InADay(1), "
        "MaxAlertNum(5)",
        szNoList,
    };
    CHECK(host.Log() == wanted);
    CHECK(output.find(machine.output) == 0);
    CHECK(output.empty() == machine.output.empty());
    CHECK(host.imports.Calls("CoUninitialize") == ullLeft);
    CHECK(host.IsStartRefused(VARNEX_ALERT_DISK));
    host.Stop(VARNEX_ALERT_DISK);
    CHECK(host.IsStartRefused(VARNEX_ALERT_DISK)); // nothing empties the slot any more
}

TEST_CASE("without memory for the histories the monitor is done at once and keeps its slot")
{
    MonitoredModule host(EachPassJudged());
    std::vector<std::wstring> names;
    for (int i = 0; i < 137; ++i)
    {
        names.push_back(L"d" + std::to_wstring(i));
    }
    host.pdh.SetInstances(OBJECT, names);
    host.LogEverything();
    const ULONGLONG ullLeft = host.imports.Calls("CoUninitialize");
    // A history is an array of three pointers; nothing else of the run is as long as so many of them.
    host.imports.Replace<decltype(::malloc)>("malloc",
                                             [](std::size_t cbBlock) -> void* {
                                                 return cbBlock == 137 * 3 * sizeof(void*) ? nullptr
                                                                                           : std::malloc(cbBlock);
                                             });
    host.Start(VARNEX_ALERT_DISK);
    host.clock.AdvanceUntilWorkersEnd(1);
    host.imports.Restore("malloc");

    CHECK(host.LogOf("MonDiskThread --") ==
          Lines{"1 MonDiskThread -- fail to alloc new buffer to all disk throughput, exit!"});
    CHECK(host.LogOf("end working").empty());
    CHECK(host.imports.Calls("CoUninitialize") == ullLeft);
    CHECK(host.IsStartRefused(VARNEX_ALERT_DISK));
}

TEST_CASE("a sampling amount of -2 is refused by the average of each disk in each pass")
{
    MonitoredModule host(EachPassJudged().Set("DiskSamplingAmount", -2));
    SetTwoDisks(host, 60, 60);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_DISK);
    host.clock.Advance(15); // two passes
    const Lines refusals = host.LogOf("GetDiskAverageThroughput");
    CHECK(refusals.size() == 4);
    for (const std::string& line : refusals)
    {
        CHECK_THAT(line, Catch::StartsWith("1 GetDiskAverageThroughput -- checking parameters fail, pszDiskName("));
        CHECK_THAT(line, Catch::Contains("), nSamplingAmount(-2), pnAveragevalue("));
    }
    CHECK(host.LogOf("MonDiskThread --").empty());
    CHECK(host.pdh.CountCalls("PdhOpenQueryA") == 0);
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("a disk's failure is logged with the latest average of any disk, and the others go on")
{
    MonitoredModule host(EachPassJudged());
    SetTwoDisks(host, 10, 20);
    host.LogEverything();
    host.Start(VARNEX_ALERT_DISK);
    host.clock.Advance(1);
    host.ForgetLog();
    host.pdh.QueueStatus("PdhOpenQueryA", {static_cast<PDH_STATUS>(PDH_MEMORY_ALLOCATION_FAILURE)});
    const std::string output = CaptureOutput([&] { host.clock.Advance(10); });
    CHECK(host.Log() == Lines{MeasurementFailureLine("0 C:"), FailureLine("0 C:", 20),
                              CheckLine("1 D:", 20, 50, 0, 0, 5, "2026-01-31 12:00:10")});
    CHECK(output.find("GetSingleDiskThroughput -- Open PDH failed(0x") == 0);
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("a failed measurement is not stored, and is no failure of the average while the history fills")
{
    MonitoredModule host(EachPassJudged().Set("DiskSamplingAmount", 2));
    host.pdh.SetInstances(OBJECT, {L"0 C:"});
    host.pdh.QueueValues(PathOf(L"0 C:"), {10 * MB, 20 * MB, 40 * MB});
    const auto failed = static_cast<PDH_STATUS>(PDH_MEMORY_ALLOCATION_FAILURE);
    host.pdh.QueueStatus("PdhOpenQueryA", {ERROR_SUCCESS, failed, ERROR_SUCCESS, failed, ERROR_SUCCESS});
    host.LogEverything();
    (void)CaptureOutput(
        [&]
        {
            host.Start(VARNEX_ALERT_DISK);
            host.clock.Advance(41); // five passes
        });
    const Lines wanted = {
        MeasurementFailureLine("0 C:"),
        CheckLine("0 C:", 15, 50, 0, 0, 5, "2026-01-31 12:00:20"),
        MeasurementFailureLine("0 C:"),
        FailureLine("0 C:", 15),
        CheckLine("0 C:", 30, 50, 0, 0, 5, "2026-01-31 12:00:40"),
    };
    CHECK(host.LogOf("0 C:") == wanted);
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("a second collection that fails is a measurement of 0")
{
    MonitoredModule host(EachPassJudged());
    SetOneDisk(host, 60);
    host.pdh.QueueStatus("PdhCollectQueryData", {ERROR_SUCCESS, static_cast<PDH_STATUS>(PDH_NO_DATA)});
    host.LogEverything();
    host.Start(VARNEX_ALERT_DISK);
    host.clock.Advance(1);
    CHECK(host.LogOf("0 C:") == Lines{CheckLine("0 C:", 0, 50, 0, 0, 5, "2026-01-31 12:00:00")});
    CHECK(host.pdh.CountCalls("PdhGetFormattedCounterValue") == 0);
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("no memory for one disk's sample ends that pass, and the next one measures all disks again")
{
    MonitoredModule host(EachPassJudged());
    SetTwoDisks(host, 60, 20);
    host.LogEverything();
    // The first sample of a disk needs the first memory of its history.
    int nBlocks = 0;
    host.imports.Replace<void*(std::size_t)>("malloc",
                                             [&](std::size_t cb) -> void*
                                             {
                                                 const bool bHistory = cb == sizeof(unsigned) &&
                                                                       host.pdh.CountCalls("PdhCloseQuery") == 1;
                                                 nBlocks += bHistory ? 1 : 0;
                                                 return bHistory ? nullptr : std::malloc(cb);
                                             });
    host.Start(VARNEX_ALERT_DISK);
    host.clock.Advance(1);
    host.imports.Restore("malloc");
    REQUIRE(nBlocks == 1);
    CHECK(host.LogOf("exception") == Lines{"1 CMonDiskThread -- exception stopped(std::bad_alloc)."});
    CHECK(host.LogOf("Before Checking").empty());
    CHECK(host.pdh.CountCalls("PdhOpenQueryA") == 1);
    CHECK(host.pdh.OpenQueries() == 0);

    host.clock.Advance(10);
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine("0 C:", 60, 50, 0, 0, 5, "2026-01-31 12:00:10"),
                                                 CheckLine("1 D:", 20, 50, 1, 1, 5, "2026-01-31 12:00:10")});
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

TEST_CASE("a stop waits for all disks of the pass")
{
    MonitoredModule host(EachPassJudged());
    SetTwoDisks(host, 0, 0);
    host.LogEverything();
    const ULONGLONG ullBeginMs = host.clock.ElapsedMs();
    host.Start(VARNEX_ALERT_DISK);
    host.clock.Advance(3); // half-way through the idle first disk
    host.Stop(VARNEX_ALERT_DISK);
    host.clock.AdvanceUntilWorkersEnd(10);
    CHECK(host.clock.ElapsedMs() == ullBeginMs + 2 * 6100); // both disks, and no wait behind them
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine("0 C:", 0, 50, 0, 0, 5, "2026-01-31 12:00:06"),
                                                 CheckLine("1 D:", 0, 50, 0, 0, 5, "2026-01-31 12:00:12")});
    CHECK(host.Log().back() == "4 Monitor Disk throughput thread end working...");
}

TEST_CASE("a disk count that cannot be read is said for each disk, and taken as none")
{
    MonitoredModule host(ConfigBuilder().SetPolicy("Disk", 10, 50, 1, 5).SetLogLevel(4).SetCounter("Disk", "5"));
    SetTwoDisks(host, 10, 20);
    host.LogEverything();
    host.Start(VARNEX_ALERT_DISK);
    host.clock.Advance(1);
    const std::string unread = "4 MonDiskThread -- Get alert number from CFG file failed, input date(2026-01-31), "
                               "error code(0xffffffff). ";
    CHECK(host.LogOf("MonDiskThread --") == Lines{unread, CheckLine("0 C:", 10, 50, 0, 0, 5, "2026-01-31 12:00:00"),
                                                  unread, CheckLine("1 D:", 20, 50, 0, 0, 5, "2026-01-31 12:00:00")});
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

} // namespace varnex::test
