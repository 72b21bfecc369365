// The network monitor of the shipped DLL: the utilization of each adapter under one policy, one flag and one count.

#include "MonitoredModule.h"

#include "support/ProcessMeter.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <cstdlib>

namespace varnex::test
{

namespace
{

constexpr char szEnd[] = "4 Monitor Network throughput thread end working...";

// A pass every eleven seconds (one of measuring, ten of waiting), each judged at once.
ConfigBuilder EachPassJudged(int nThreshold = 60, int nMaxAlertNum = 5)
{
    return ConfigBuilder()
        .SetPolicy("Network", 10, nThreshold, 1, nMaxAlertNum)
        .SetLogLevel(4)
        .SetCounter("Date", "2026-01-31")
        .SetCounter("Network", "0");
}

// An adapter of one megabit a second.
WmiObject Adapter(const std::wstring& name, LONG nInterfaceIndex)
{
    return WmiAdapter(name, nInterfaceIndex, WmiText(L"1000000"));
}

void AddRow(MonitoredModule& host, DWORD dwIndex)
{
    host.interfaces.AddRow(dwIndex);
    host.interfaces.SetOctets(dwIndex, 1000, 2000);
}

// What the adapter's link carries in each second from now on.
void SetPercent(MonitoredModule& host, DWORD dwIndex, DWORD dwPercent)
{
    host.interfaces.MoveAtEachRead(dwIndex, dwPercent * 1250, 0);
}

void SetOneAdapter(MonitoredModule& host, DWORD dwPercent)
{
    host.wmi.SetObjects({Adapter(L"Eth A", 2)});
    AddRow(host, 2);
    SetPercent(host, 2, dwPercent);
}

void SetTwoAdapters(MonitoredModule& host, DWORD dwFirstPercent, DWORD dwSecondPercent)
{
    host.wmi.SetObjects({Adapter(L"Eth A", 7), Adapter(L"Eth B", 3)});
    AddRow(host, 3); // the table's order is not WMI's
    AddRow(host, 7);
    SetPercent(host, 7, dwFirstPercent);
    SetPercent(host, 3, dwSecondPercent);
}

// The first pass up to its wait.
void StartAndMeasure(MonitoredModule& host)
{
    host.Start(VARNEX_ALERT_NETWORK);
    host.clock.Advance(1);
}

void RunPasses(MonitoredModule& host, unsigned nPasses)
{
    host.clock.Advance(11 * nPasses);
}

std::size_t Refreshes(const MonitoredModule& host)
{
    const std::vector<std::string> calls = host.wmi.Calls();
    return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), "ConnectServer"));
}

std::string CheckLine(const std::string& adapter, int nAverage, int nThreshold, int nFlag, int nCount, int nMaxAlertNum,
                      const std::string& time)
{
    return "4 MonNetworkThread -- Before Checking Alert Inf, NICName(" + adapter + "), nAverageValue(" +
           std::to_string(nAverage) + "%), Threshold(" + std::to_string(nThreshold) + "%), bReachThreshold_LastTime(" +
           std::to_string(nFlag) + "), nTodaySentAlertNum(" + std::to_string(nCount) + "), MaxAlertNum InADay(" +
           std::to_string(nMaxAlertNum) + "), happenTime(" + time + ").";
}

std::string AlertLine(const std::string& adapter, int nAverage, int nThreshold, int nCount, const std::string& time)
{
    return "3 MonNetworkThread -- NIC(" + adapter + ") throughput(" + std::to_string(nAverage) + "%) reach threshold(" +
           std::to_string(nThreshold) + "%), ALERT!!!bReachThreshold_LastTime(0), nTodaySentAlertNum(" +
           std::to_string(nCount) + "), MaxAlertNum InADay(5) and happenTime(" + time + ")";
}

} // namespace

TEST_CASE("the network monitor logs its start, its checks, its alerts and its end in this order")
{
    MonitoredModule host(EachPassJudged());
    SetTwoAdapters(host, 80, 10);
    host.LogEverything();
    StartAndMeasure(host);
    host.StopAndEnd(VARNEX_ALERT_NETWORK);

    const Lines wanted = {
        "4 CMonNetworkThread construct -- without parameters.",
        "3 [ID:#]Monitor Network utilization thread begin: Interval(10)S, Threshold(60%), SamplingAmount InADay(1), "
        "MaxAlertNum(5)",
        CheckLine("Eth A", 80, 60, 0, 0, 5, "2026-01-31 12:00:01"),
        AlertLine("Eth A", 80, 60, 0, "2026-01-31 12:00:01"),
        CheckLine("Eth B", 10, 60, 1, 1, 5, "2026-01-31 12:00:01"),
        szEnd,
    };
    CHECK(host.Log() == wanted);
    CHECK(host.Alerts() == Lines{"4;60;80;Eth A"});
    CHECK(host.Counter("Network") == "1");
    CHECK(host.wmi.LiveObjects() == 0);
    CHECK(host.wmi.LiveTexts() == 0);
}

TEST_CASE("the network monitor lists the adapters before it reads its policy")
{
    MonitoredModule host(ConfigBuilder().SetLogLevel(4));
    host.wmi.SetObjects({WmiAdapter(L"Eth A", 2, WmiOfType(VT_NULL))}); // its speed is looked for in the table
    host.imports.FailCall("GetIfTable", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED, ERROR_INVALID_DATA);
    host.Start(VARNEX_ALERT_NETWORK);
    host.clock.WaitUntilAllAsleep();
    const Lines log = host.Log();
    REQUIRE(log.size() >= 6);
    CHECK(Lines(log.begin(), log.begin() + 6) ==
          Lines{"1 GetNICSpeed::GetIfTable()failed! Error code=5",
                "2 CMonNetworkThread::UpdateAlertPolicy -- Get Interval policy fail, return value(-1), using default "
                "value(90)",
                "2 CMonNetworkThread::UpdateAlertPolicy -- Get threshold policy fail, return value(-1), using default "
                "value(60)",
                "2 CMonNetworkThread::UpdateAlertPolicy -- Get SamplingAmount policy fail, return value(-1), using "
                "default value(5)",
                "2 CMonNetworkThread::UpdateAlertPolicy -- Get MaxAlertNum policy fail, return value(-1), using "
                "default value(5)",
                "3 [ID:#]Monitor Network utilization thread begin: Interval(90)S, Threshold(60%), SamplingAmount "
                "InADay(5), MaxAlertNum(5)"});
    host.clock.Advance(1);
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("a first list of adapters that fails ends the monitor in full, with neither policy nor begin line")
{
    using Step = ScriptedWmi::Step;
    const Step step = GENERATE(Step::CreateLocator, Step::Connect, Step::SetBlanket, Step::Query);
    MonitoredModule host(ConfigBuilder().SetLogLevel(4)); // a policy read would be heard
    host.LogEverything();
    host.wmi.Fail(step, static_cast<HRESULT>(0x80041003));
    const ULONGLONG ullLeft = host.imports.Calls("CoUninitialize");
    host.Start(VARNEX_ALERT_NETWORK);
    host.clock.AdvanceUntilWorkersEnd(1);

    const Lines wanted = {
        "4 CMonNetworkThread construct -- without parameters.",
        "1 MonNetworkThread -- initialize NetworkUtilizationCollector class failed(0x80041003).",
        szEnd,
    };
    CHECK(host.Log() == wanted);
    CHECK(host.imports.Calls("CoUninitialize") == ullLeft + 1);
    CHECK(host.wmi.LiveObjects() == 0);
    host.wmi.Succeed(step);
    CHECK_FALSE(host.IsStartRefused(VARNEX_ALERT_NETWORK));
}

TEST_CASE("a list of adapters that breaks off ends the monitor, too")
{
    MonitoredModule host(EachPassJudged());
    SetTwoAdapters(host, 80, 80);
    host.wmi.EndAfter(1, static_cast<HRESULT>(0x80041001));
    host.Start(VARNEX_ALERT_NETWORK);
    host.clock.AdvanceUntilWorkersEnd(1);
    CHECK(host.LogOf("initialize") ==
          Lines{"1 MonNetworkThread -- initialize NetworkUtilizationCollector class failed(0x80041001)."});
    CHECK(host.wmi.LiveObjects() == 0);
    CHECK(host.wmi.LiveTexts() == 0);
}

TEST_CASE("a later list of adapters that fails ends the monitor, which closes the handle of its thread")
{
    MonitoredModule host(EachPassJudged());
    host.LogEverything();
    SetOneAdapter(host, 10);
    std::size_t nHandles = 0;
    for (int nRun = 0; nRun < 3; ++nRun)
    {
        StartAndMeasure(host);
        host.ForgetLog();
        host.wmi.Fail(ScriptedWmi::Step::Connect, E_ACCESSDENIED);
        host.clock.AdvanceMs(9999);
        CHECK(host.clock.Workers() == 1);
        const ULONGLONG ullLeft = host.imports.Calls("CoUninitialize");
        host.clock.AdvanceUntilWorkersEnd(1);
        CHECK(host.Log() == Lines{"1 MonNetworkThread -- Refresh the network card list failed(0x80070005).", szEnd});
        CHECK(host.imports.Calls("CoUninitialize") == ullLeft + 1);
        host.wmi.Succeed(ScriptedWmi::Step::Connect);
        if (nRun > 0) // the first run opens what stays open
        {
            CHECK(CountHandles() == nHandles);
        }
        nHandles = CountHandles();
    }
}

TEST_CASE("with the default policy an adapter is first checked in the fifth pass")
{
    MonitoredModule host(ConfigBuilder().SetCounter("Date", "").SetLogLevel(4));
    SetOneAdapter(host, 60);
    host.LogEverything();
    host.Start(VARNEX_ALERT_NETWORK);
    host.clock.AdvanceMs(4 * 91'000 + 999); // a second of measuring and ninety of waiting
    CHECK(host.LogOf("MonNetworkThread --").empty());
    host.clock.AdvanceMs(1);
    CHECK(host.LogOf("Before Checking").size() == 1);
    CHECK(host.Alerts() == Lines{"4;60;60;Eth A"});
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("an adapter that is missing from the interface table for one pass adds 0 and counts")
{
    MonitoredModule host(EachPassJudged().Set("NetworkSamplingAmount", 5));
    SetOneAdapter(host, 80);
    host.LogEverything();
    StartAndMeasure(host);
    RunPasses(host, 1);
    host.interfaces.RemoveRows();
    RunPasses(host, 1);
    AddRow(host, 2);
    SetPercent(host, 2, 80);
    RunPasses(host, 2); // 80, 80, none, 80, 80
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine("Eth A", 64, 60, 0, 0, 5, "2026-01-31 12:00:45")});
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("a table that cannot be read leaves an adapter missing, or at the 0 of the first collection")
{
    MonitoredModule host(EachPassJudged().Set("NetworkSamplingAmount", 2));
    SetOneAdapter(host, 90);
    host.LogEverything();
    StartAndMeasure(host);
    host.imports.FailCall("GetIfTable", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED, ERROR_INVALID_DATA);
    RunPasses(host, 1); // 90 and missing
    host.imports.FailCall("GetIfTable", 3, FailMode::FromThereOn, ERROR_ACCESS_DENIED, ERROR_INVALID_DATA);
    RunPasses(host, 1); // missing and 0
    CHECK(host.imports.Failures("GetIfTable") > 0);
    host.imports.StopFailing("GetIfTable");
    RunPasses(host, 1); // 0 and 90
    CHECK(host.LogOf("MonNetworkThread --") == Lines{CheckLine("Eth A", 45, 60, 0, 0, 5, "2026-01-31 12:00:12"),
                                                     CheckLine("Eth A", 0, 60, 0, 0, 5, "2026-01-31 12:00:23"),
                                                     CheckLine("Eth A", 45, 60, 0, 0, 5, "2026-01-31 12:00:34")});
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("a pass without memory for its first look at the table sees no adapters and does not measure")
{
    MonitoredModule host(EachPassJudged());
    SetOneAdapter(host, 90);
    host.LogEverything();
    StartAndMeasure(host);
    host.clock.AdvanceMs(9'999);
    host.ForgetLog();
    // Eight bytes are the first look's; for this pass there are none.
    host.imports.Replace<decltype(::malloc)>(
        "malloc", [](std::size_t cbBlock) -> void* { return cbBlock == 8 ? nullptr : std::malloc(cbBlock); });
    const std::size_t nReads = host.interfaces.Calls().size();
    host.clock.AdvanceMs(5'001);
    host.imports.Restore("malloc");
    CHECK(host.Log().empty());
    CHECK(host.interfaces.Calls().size() == nReads);
    host.clock.Advance(6); // the pass took no second of its own, so that the next is under way at 5 + 6
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine("Eth A", 90, 60, 1, 1, 5, "2026-01-31 12:00:22")});
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("of two adapters that stay above the threshold only the first in WMI's order alerts, until one falls below")
{
    MonitoredModule host(EachPassJudged());
    SetTwoAdapters(host, 80, 70);
    StartAndMeasure(host);
    RunPasses(host, 3);
    CHECK(host.Alerts() == Lines{"4;60;80;Eth A"});
    SetPercent(host, 3, 10);
    RunPasses(host, 1); // B re-arms the flag
    CHECK(host.Alerts().size() == 1);
    SetPercent(host, 3, 70);
    RunPasses(host, 3);
    CHECK(host.Alerts() == Lines(2, "4;60;80;Eth A"));
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("after five alerts of adapters none follows on that day")
{
    MonitoredModule host(EachPassJudged());
    host.clock.Set({2026, 1, 31, 23, 58, 30});
    SetTwoAdapters(host, 80, 10);
    StartAndMeasure(host);
    RunPasses(host, 7); // 23:59:48
    CHECK(host.Alerts() == Lines(5, "4;60;80;Eth A"));
    CHECK(host.Counter("Network") == "5");
    RunPasses(host, 2); // 00:00:10
    CHECK(host.Alerts() == Lines(6, "4;60;80;Eth A"));
    CHECK(host.Counter("Date") == "2026-02-01");
    CHECK(host.Counter("Network") == "1");
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("an adapter's name outside the ANSI code page is stored with the code page's replacements")
{
    MonitoredModule host(EachPassJudged());
    host.wmi.SetObjects({Adapter(L"R\x00E9seau \x4E2D\x6587 1", 2)});
    AddRow(host, 2);
    SetPercent(host, 2, 60);
    StartAndMeasure(host);
    host.StopAndEnd(VARNEX_ALERT_NETWORK);

    const std::string stored = AnsiFromWide(L"R\x00E9seau ") + "?? 1";
    CHECK(host.Alerts() == Lines{"4;60;60;" + stored});
    CHECK(host.LogOf("reach threshold") == Lines{AlertLine(stored, 60, 60, 0, "2026-01-31 12:00:01")});
    const std::vector<FetchedAlert> alerts = FetchAlerts(host);
    REQUIRE(alerts.size() == 1);
    CHECK(alerts[0].nType == VARNEX_ALERT_NETWORK);
    const std::wstring ending = L", " + WideFromAnsi(stored);
    CHECK(alerts[0].text.substr(alerts[0].text.size() - ending.size()) == ending);
}

TEST_CASE("a line feed in an adapter's name is stored as CR LF")
{
    MonitoredModule host(EachPassJudged());
    host.wmi.SetObjects({Adapter(L"Eth\nA", 2)});
    AddRow(host, 2);
    SetPercent(host, 2, 60);
    StartAndMeasure(host);
    host.StopAndEnd(VARNEX_ALERT_NETWORK);

    const std::string stored = host.tree.Alerts();
    CHECK(stored.substr(stored.find(");")) == ");Eth\r\nA;\r\n");
}

TEST_CASE("adapters that vanish keep their histories, and new ones start their own")
{
    MonitoredModule host(EachPassJudged().Set("NetworkSamplingAmount", 2));
    SetTwoAdapters(host, 80, 20);
    host.wmi.SetObjects({Adapter(L"Eth A", 7)});
    host.LogEverything();
    StartAndMeasure(host);
    host.wmi.SetObjects({Adapter(L"Eth B", 3)});
    RunPasses(host, 1);
    host.wmi.SetObjects({Adapter(L"Eth A", 7), Adapter(L"Eth B", 3)});
    SetPercent(host, 7, 38);
    RunPasses(host, 1); // 80 and 38; 20 and 20
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine("Eth A", 59, 60, 0, 0, 5, "2026-01-31 12:00:23"),
                                                 CheckLine("Eth B", 20, 60, 0, 0, 5, "2026-01-31 12:00:23")});
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("a full history loses its oldest value behind the wait, a shorter one stays as it is")
{
    MonitoredModule host(EachPassJudged().Set("NetworkSamplingAmount", 2));
    SetOneAdapter(host, 80);
    host.LogEverything();
    StartAndMeasure(host);
    SetPercent(host, 2, 40);
    RunPasses(host, 1); // 80 and 40; the 80 goes
    host.wmi.SetObjects({});
    RunPasses(host, 3);
    host.wmi.SetObjects({Adapter(L"Eth A", 2)});
    SetPercent(host, 2, 10);
    RunPasses(host, 1); // 40 and 10
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine("Eth A", 60, 60, 0, 0, 5, "2026-01-31 12:00:12"),
                                                 CheckLine("Eth A", 25, 60, 1, 1, 5, "2026-01-31 12:00:56")});
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("a sampling amount that grows by one takes two more passes, for the oldest value is gone")
{
    MonitoredModule host(EachPassJudged().Set("NetworkSamplingAmount", 2));
    SetOneAdapter(host, 40);
    host.LogEverything();
    StartAndMeasure(host);
    RunPasses(host, 1);
    host.tree.WriteConfig(EachPassJudged().Set("NetworkSamplingAmount", 3));
    RunPasses(host, 2);
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine("Eth A", 40, 60, 0, 0, 5, "2026-01-31 12:00:12"),
                                                 CheckLine("Eth A", 40, 60, 0, 0, 5, "2026-01-31 12:00:34")});
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("a sampling amount that shrinks averages the newest values at once")
{
    MonitoredModule host(EachPassJudged().Set("NetworkSamplingAmount", 3));
    SetOneAdapter(host, 20);
    host.LogEverything();
    StartAndMeasure(host);
    RunPasses(host, 2); // 20, 20, 20; one of them goes
    host.tree.WriteConfig(EachPassJudged());
    SetPercent(host, 2, 10);
    RunPasses(host, 1);
    CHECK(host.LogOf("Before Checking") == Lines{CheckLine("Eth A", 20, 60, 0, 0, 5, "2026-01-31 12:00:23"),
                                                 CheckLine("Eth A", 10, 60, 0, 0, 5, "2026-01-31 12:00:34")});
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("a network sampling amount of -2 measures nothing, but waits and lists the adapters anew")
{
    MonitoredModule host(EachPassJudged().Set("NetworkSamplingAmount", -2));
    SetOneAdapter(host, 90);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_NETWORK);
    CHECK(Refreshes(host) == 1);
    host.clock.AdvanceMs(9'999);
    CHECK(Refreshes(host) == 1);
    host.clock.AdvanceMs(20'001);
    CHECK(Refreshes(host) == 4);
    CHECK(host.interfaces.Calls().empty());
    CHECK(host.LogOf("MonNetworkThread --").empty());
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("a stop during the wait still lists the adapters once more")
{
    MonitoredModule host(EachPassJudged());
    SetOneAdapter(host, 10);
    StartAndMeasure(host);
    host.clock.AdvanceMs(2500);
    REQUIRE(Refreshes(host) == 1);
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
    CHECK(Refreshes(host) == 2);

    StartAndMeasure(host);
    host.wmi.Fail(ScriptedWmi::Step::Query, E_FAIL);
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
    CHECK(host.LogOf("failed") == Lines{"1 MonNetworkThread -- Refresh the network card list failed(0x80004005)."});
}

TEST_CASE("a network count that cannot be read is said for each adapter, and taken as none")
{
    MonitoredModule host(ConfigBuilder().SetPolicy("Network", 10, 60, 1, 5).SetLogLevel(4).SetCounter("Network", "5"));
    SetTwoAdapters(host, 10, 20);
    host.LogEverything();
    StartAndMeasure(host);
    const std::string unread = "4 MonNetworkThread -- Get alert number from CFG file failed, input date(2026-01-31), "
                               "error code(0xffffffff). ";
    CHECK(host.LogOf("MonNetworkThread --") == Lines{unread, CheckLine("Eth A", 10, 60, 0, 0, 5, "2026-01-31 12:00:01"),
                                                     unread,
                                                     CheckLine("Eth B", 20, 60, 0, 0, 5, "2026-01-31 12:00:01")});
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

TEST_CASE("an adapter's utilization is what it moved in a second against its link's speed")
{
    struct Link
    {
        const char* pszWhat;
        WmiValue speed;
        DWORD dwTableSpeed;
        DWORD dwIn; // the counter's first reading
        DWORD dwMovedIn;
        DWORD dwMovedOut;
        int nPercent;
    };
    const Link link = GENERATE(values<Link>({
        {"12.5 of 125 MB", WmiText(L"1000000000"), 0, 1, 12500000, 0, 10},
        {"in and out together", WmiText(L"1000000"), 0, 1, 2500, 1250, 3},
        {"the whole link", WmiText(L"1000000"), 0, 1, 125000, 0, 100},
        {"a byte less than one percent", WmiText(L"1000000"), 0, 1, 1249, 0, 0},
        {"more than the link carries", WmiText(L"1000000"), 0, 1, 500000, 0, 100},
        {"the speed of the table", WmiOfType(VT_NULL), 1000000, 1, 12500, 0, 10},
        {"ten gigabits, cut by the table", WmiOfType(VT_NULL), 1410065408, 1, 125000000, 0, 10},
        {"no speed at all", WmiOfType(VT_NULL), 0, 1, 12500, 0, 0},
        {"a speed beyond all numbers", WmiText(L"9223372036854775807"), 0, 1, 12500, 0, 0},
        {"a counter that wrapped, less one", WmiText(L"800"), 0, 4294967290U, 11, 0, 10},
        {"no reading before", WmiText(L"1000000"), 0, 0, 12500, 0, 0},
    }));
    INFO(link.pszWhat);
    MonitoredModule host(EachPassJudged());
    host.wmi.SetObjects({WmiAdapter(L"Eth A", 2, link.speed)});
    host.interfaces.AddRow(2, link.dwTableSpeed);
    host.interfaces.SetOctets(2, link.dwIn, 1);
    host.LogEverything();
    host.StartAndRun(VARNEX_ALERT_NETWORK); // after the first collection
    host.interfaces.SetOctets(2, link.dwIn + link.dwMovedIn, 1 + link.dwMovedOut);
    host.clock.Advance(1);
    CHECK(host.LogOf("Before Checking") ==
          Lines{CheckLine("Eth A", link.nPercent, 60, 0, 0, 5, "2026-01-31 12:00:01")});
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
}

} // namespace varnex::test
