// When the CPU monitor raises an alert, what it counts, what it stores.

#include "CpuMonitor.h"

#include "support/AlertLines.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr int INTERVAL = static_cast<int>(CpuMonitor::SECONDS);

std::string HostName()
{
    wchar_t wszName[260];
    DWORD cchName = 260;
    REQUIRE(GetComputerNameExW(ComputerNameDnsHostname, wszName, &cchName));
    return Utf8FromWide(wszName);
}

} // namespace

TEST_CASE("an alert fires on the crossing of the threshold, and again only after an average below it")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 5, 5));
    const Lines begin = monitor.StartWith(90);
    REQUIRE(begin.size() == 1);
    CHECK(begin.front().rfind("3 [ID:", 0) == 0);
    for (int i = 0; i < 3; ++i)
    {
        CHECK(monitor.CycleWith(90).empty());
    }
    // The fifth sample is the first that there is something to judge with.
    CHECK(monitor.CycleWith(90) == Lines{CheckLine(90, 85, 0, 0, 5), AlertText(90, 85, 0, 5)});
    CHECK(monitor.CycleWith(90) == Lines{CheckLine(90, 85, 1, 1, 5)});
    CHECK(monitor.CycleWith(90) == Lines{CheckLine(90, 85, 1, 1, 5)});
    // 90 90 90 90 60, then 90 90 90 60 95: 84 is below, 85 has reached it.
    CHECK(monitor.CycleWith(60) == Lines{CheckLine(84, 85, 1, 1, 5)});
    CHECK(monitor.CycleWith(95) == Lines{CheckLine(85, 85, 0, 1, 5), AlertText(85, 85, 1, 5)});
    CHECK(monitor.CycleWith(95) == Lines{CheckLine(86, 85, 1, 2, 5)});
    CHECK(monitor.StoredCount() == L"2");
    CHECK(ReadAlertLines(monitor.tree).size() == 2);
    monitor.End();
}

TEST_CASE("an average is cut to whole percent")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 3, 5));
    monitor.StartWith(85);
    monitor.CycleWith(85);
    CHECK(monitor.CycleWith(84) == Lines{CheckLine(84, 85, 0, 0, 5)}); // 254 / 3
    CHECK(monitor.CycleWith(100) == Lines{CheckLine(89, 85, 0, 0, 5), AlertText(89, 85, 0, 5)});
    monitor.End();
}

TEST_CASE("a threshold above 100 never fires")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 101, 1, 5));
    monitor.StartWith(100);
    CHECK(monitor.CycleWith(100) == Lines{CheckLine(100, 101, 0, 0, 5)});
    monitor.End();
    CHECK_FALSE(FileExists(monitor.tree.InBin(L"LocalAlt.dat")));
}

TEST_CASE("a negative threshold is taken as it is, and an idle machine has reached it")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, -3, 1, 5));
    CHECK(Last(monitor.StartWith(0)) == Lines{AlertText(0, -3, 0, 5)});
    CHECK(monitor.CycleWith(0) == Lines{CheckLine(0, -3, 1, 1, 5)});
    monitor.End();
}

TEST_CASE("with the day's maximum used up nothing fires, the flag stays clear, and every cycle is still checked")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5, 5));
    monitor.StartWith(90);
    for (int i = 0; i < 3; ++i)
    {
        CHECK(monitor.CycleWith(90) == Lines{CheckLine(90, 85, 0, 5, 5)});
    }
    monitor.End();
    CHECK(monitor.StoredCount() == L"5");
    CHECK_FALSE(FileExists(monitor.tree.InBin(L"LocalAlt.dat")));
}

TEST_CASE("a negative maximum lets nothing fire")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, -2));
    monitor.StartWith(90);
    CHECK(monitor.CycleWith(90) == Lines{CheckLine(90, 85, 0, 0, -2)});
    monitor.End();
}

TEST_CASE("the maximum is reached one alert at a time")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 2));
    CHECK(Last(monitor.StartWith(90)) == Lines{AlertText(90, 85, 0, 2)});
    CHECK(monitor.CycleWith(10) == Lines{CheckLine(10, 85, 1, 1, 2)});
    CHECK(monitor.CycleWith(90) == Lines{CheckLine(90, 85, 0, 1, 2), AlertText(90, 85, 1, 2)});
    CHECK(monitor.CycleWith(10) == Lines{CheckLine(10, 85, 1, 2, 2)});
    CHECK(monitor.CycleWith(90) == Lines{CheckLine(90, 85, 0, 2, 2)});
    monitor.End();
    CHECK(ReadAlertLines(monitor.tree).size() == 2);
    CHECK(monitor.StoredCount() == L"2");
}

TEST_CASE("a new date lets an exhausted monitor fire while the load is still high, and begins all counts anew")
{
    CpuMonitor monitor(
        CpuConfig(INTERVAL, 85, 1, 1, 1).SetCounter("PH", "3").SetCounter("Disk", "2").SetCounter("Network", "4"));
    monitor.clock.Set(LocalTime{2026, 1, 31, 23, 58, 30});
    monitor.StartWith(90);
    CHECK(monitor.Cycle() == Lines{CheckLine(90, 85, 0, 1, 1)}); // 23:59:30
    const std::string failed =
        "4 MonCPUThread -- Get alert number from CFG file failed, input date(2026-02-01), error code(0xffffffff). ";
    CHECK(monitor.Cycle() ==
          Lines{failed, CheckLine(90, 85, 0, 0, 1, "2026-02-01"), AlertText(90, 85, 0, 1, "2026-02-01")});
    CHECK(monitor.Cycle() == Lines{CheckLine(90, 85, 1, 1, 1, "2026-02-01")});
    monitor.End();
    CHECK(monitor.StoredDate() == L"2026-02-01");
    CHECK(monitor.StoredCount() == L"1");
    for (const wchar_t* pwszName : {L"PH", L"PF", L"Disk", L"Network"})
    {
        CHECK(monitor.tree.ConfigNode(std::wstring(L"KPMConfiguration/PkiAlertNum/") + pwszName) == L"0");
    }
}

TEST_CASE("a load that stays high over midnight is not reported again: the flag knows no date")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    monitor.clock.Set(LocalTime{2026, 1, 31, 23, 59, 30});
    CHECK(Last(monitor.StartWith(90)) == Lines{AlertText(90, 85, 0, 5)});
    CHECK(Last(monitor.Cycle()) == Lines{CheckLine(90, 85, 1, 0, 5, "2026-02-01")});
    monitor.End();
    CHECK(ReadAlertLines(monitor.tree).size() == 1);
    CHECK(monitor.StoredDate() == L"2026-01-31");
}

TEST_CASE("a restarted monitor has forgotten its samples and its flag, but the day's count goes on")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 2, 5));
    monitor.StartWith(90);
    CHECK(Last(monitor.Cycle()) == Lines{AlertText(90, 85, 0, 5)});
    monitor.End();
    CHECK(monitor.StartWith(90).size() == 1); // the begin line: one sample is too few
    CHECK(monitor.Cycle() == Lines{CheckLine(90, 85, 0, 1, 5), AlertText(90, 85, 1, 5)});
    monitor.End();
    CHECK(monitor.StoredCount() == L"2");
}

TEST_CASE("an alert is one line of the store with its threshold, its average and its moment")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 2, 5));
    monitor.StartWith(90);
    monitor.CycleWith(97);
    const std::string moment = std::to_string(monitor.clock.UnixNow());
    CHECK(monitor.tree.Alerts() == "1;85;93;" + moment + "(2026-01-31 12:01:00);;\r\n");
    monitor.End();
}

TEST_CASE("the host fetches the alert that the monitor raised, once")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    monitor.StartWith(90);
    monitor.End();
    const auto pfnGet = monitor.module.Export<decltype(::GetAlertRecord)>("GetAlertRecord");
    int anTypes[2] = {};
    int anThresholds[2] = {};
    int anValues[2] = {};
    wchar_t wszText[300] = L"";
    wchar_t* apwszTexts[2] = {wszText, nullptr};
    CHECK(pfnGet(anTypes, apwszTexts, 300, anThresholds, anValues, 1) == 1);
    CHECK(anTypes[0] == VARNEX_ALERT_CPU);
    CHECK(anThresholds[0] == 85);
    CHECK(anValues[0] == 90);
    CHECK(Utf8FromWide(wszText) == "2026-01-31 12:00:00, " + HostName());
    CHECK(monitor.tree.Alerts().empty());
    CHECK(pfnGet(anTypes, apwszTexts, 300, anThresholds, anValues, 1) == 0);
}

TEST_CASE("an alert is logged, then counted, then dispatched")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    std::wstring countAtDispatch;
    monitor.redirector.Replace<decltype(::LocalAlloc)>("LocalAlloc",
                                                       [&](UINT nFlags, SIZE_T cbBlock)
                                                       {
                                                           countAtDispatch = monitor.StoredCount();
                                                           return LocalAlloc(nFlags, cbBlock);
                                                       });
    monitor.cpu.SetUtilization(90);
    monitor.Start(VARNEX_ALERT_CPU);
    monitor.clock.WaitUntilAllAsleep();
    CHECK(countAtDispatch == L"1");
    const LogFile log = monitor.ReadLog();
    const std::size_t nAlert = log.Find(3, AlertText(90, 85, 0, 5).substr(2));
    REQUIRE(nAlert != LogFile::npos);
    CHECK(log.Find(4, "SaveAlertNumIntoLocal -- Set type(1) alert number(1) successfully, date(2026-01-31)..",
                   nAlert) != LogFile::npos);
    monitor.End();
}

} // namespace varnex::test
