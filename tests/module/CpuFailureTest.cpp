// What the CPU monitor does when something that it needs fails.

#include "CpuMonitor.h"

#include "support/AlertLines.h"
#include "support/ProcessMeter.h"

#include <catch2/catch.hpp>

#include <objbase.h>

#include <cstdlib>

namespace varnex::test
{

namespace
{

constexpr int INTERVAL = static_cast<int>(CpuMonitor::SECONDS);

std::string SampleFailure(int nValue)
{
    return "1 GetCPUUtlAverage -- get CPU utilization fail(" + std::to_string(nValue) + ")";
}

std::string CountFailure(const char* pszStatus)
{
    return std::string("4 MonCPUThread -- Get alert number from CFG file failed, input date(2026-01-31), error code(") +
           pszStatus + "). ";
}

} // namespace

TEST_CASE("a sample above 100 is logged and not stored, and the flag and the count stay as they are")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 2, 5));
    monitor.StartWith(90);
    // Too few samples so far: nothing more is said.
    CHECK(monitor.CycleWith(150) == Lines{SampleFailure(150)});
    CHECK(Last(monitor.CycleWith(90)) == Lines{AlertText(90, 85, 0, 5)});
    // With enough of them the cycle says that it judges nothing.
    CHECK(monitor.CycleWith(101) == Lines{SampleFailure(101), NOTHING_TO_JUDGE});
    CHECK(monitor.CycleWith(96) == Lines{CheckLine(93, 85, 1, 1, 5)});  // 90 96
    CHECK(monitor.CycleWith(100) == Lines{CheckLine(98, 85, 1, 1, 5)}); // 100 is a sample
    monitor.End();
}

TEST_CASE("a negative sample is logged and not stored")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    monitor.cpu.SetTimes(1000, 2000, 1000);
    monitor.Start(VARNEX_ALERT_CPU);
    monitor.clock.WaitUntilAllAsleep();
    monitor.OwnNews();
    monitor.cpu.SetTimes(1000 + 200, 2000 + 60, 1000 + 40); // more idle time than all time
    CHECK(monitor.Cycle() == Lines{SampleFailure(-100), NOTHING_TO_JUDGE});
    monitor.End();
}

TEST_CASE(
    "a failed sample says that nothing is judged only while there are enough samples for the amount of the moment")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    monitor.StartWith(10);
    CHECK(monitor.CycleWith(150) == Lines{SampleFailure(150), NOTHING_TO_JUDGE});
    monitor.tree.WriteConfig(CpuConfig(INTERVAL, 85, 2, 5));
    CHECK(monitor.CycleWith(150) == Lines{SampleFailure(150)}); // one sample is less than two
    monitor.End();
}

TEST_CASE("without the system's times the load reads as 0")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    monitor.exports.Hide("GetSystemTimes");
    CHECK(Last(monitor.StartWith(90)) == Lines{CheckLine(0, 85, 0, 0, 5)});
    monitor.End();
}

TEST_CASE("without COM the monitor ends with a line, and its object keeps the slot for good")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    monitor.TakeOverLogLevel4();
    monitor.redirector.CountCalls("CoUninitialize");
    monitor.redirector.FailCall("CoInitialize", 1, FailMode::Once, CallFailure{0, 0x80004005, true});
    monitor.Start(VARNEX_ALERT_CPU);
    monitor.clock.AdvanceUntilWorkersEnd(0);
    CHECK(monitor.redirector.Failures("CoInitialize") == 1);
    CHECK(monitor.OwnNews() == Lines{"1 MonCPUThread -- initialize COM interface failed(0x80004005)."});
    CHECK(monitor.redirector.Calls("CoUninitialize") == 0);
    CHECK(monitor.cpu.Reads() == 1); // that of the run before
    for (int i = 0; i < 2; ++i)
    {
        monitor.Start(VARNEX_ALERT_CPU);
        CHECK(Last(monitor.News()) == Lines{"1 StartWorkingThread -- CPU Monitor thread has exist. exist..."});
        monitor.Stop(VARNEX_ALERT_CPU);
        monitor.News();
    }
}

TEST_CASE("a thread whose COM model is another one monitors all the same, and leaves COM once")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    monitor.redirector.Replace<decltype(::CoInitialize)>("CoInitialize",
                                                         [](LPVOID)
                                                         {
                                                             CoInitializeEx(nullptr, COINIT_MULTITHREADED);
                                                             return RPC_E_CHANGED_MODE;
                                                         });
    monitor.redirector.CountCalls("CoUninitialize");
    CHECK(Last(monitor.StartWith(90)) == Lines{AlertText(90, 85, 0, 5)});
    CHECK(monitor.End() == Lines{END_LINE});
    CHECK(monitor.redirector.Calls("CoUninitialize") == 1);
}

TEST_CASE("an unreadable configuration means the defaults, and a count of 0 with no limit that holds")
{
    struct Configuration
    {
        const char* pszText; // null: no file
        const char* pszStatus;
    };
    const auto broken =
        GENERATE(values<Configuration>({{nullptr, "0xfffffffe"}, {"<KPMConfiguration>", "0xffffffff"}}));
    CpuMonitor monitor(CpuConfig(90, 85, 5, 5));
    monitor.TakeOverLogLevel4();
    if (broken.pszText != nullptr)
    {
        monitor.tree.WriteConfigText(broken.pszText);
    }
    else
    {
        monitor.tree.RemoveConfig();
    }
    const auto cycleWith = [&monitor](int nLoad)
    {
        monitor.cpu.SetUtilization(nLoad);
        monitor.clock.Advance(90);
        return monitor.OwnNews();
    };
    monitor.StartWith(100);
    for (int i = 0; i < 3; ++i)
    {
        CHECK(cycleWith(100).size() == 4); // four defaults
    }
    // Six alerts, one more than the maximum: an average of 80 after each one clears the flag.
    for (int i = 0; i < 6; ++i)
    {
        const Lines high = cycleWith(100);
        REQUIRE(high.size() == 7);
        CHECK(Lines(high.begin() + 4, high.end()) ==
              Lines{CountFailure(broken.pszStatus), CheckLine(100, 85, 0, 0, 5), AlertText(100, 85, 0, 5)});
        CHECK(Last(cycleWith(0)) == Lines{CheckLine(80, 85, 1, 0, 5)});
        for (int k = 0; k < 4; ++k)
        {
            CHECK(Last(cycleWith(100)) == Lines{CheckLine(80, 85, 0, 0, 5)});
        }
    }
    monitor.End();
    CHECK(ReadAlertLines(monitor.tree).size() == 6);
    CHECK(FileExists(monitor.tree.InBin(L"KpmCfg.xml")) == (broken.pszText != nullptr)); // it is never made
}

TEST_CASE("a count that is missing is taken as 0, and written by the first alert")
{
    CpuMonitor monitor(
        ConfigBuilder().SetPolicy("CPU", INTERVAL, 85, 1, 5).SetLogLevel(4).SetCounter("Date", "2026-01-31"));
    const Lines lines = monitor.StartWith(90);
    REQUIRE(lines.size() == 4);
    CHECK(Lines(lines.begin() + 1, lines.end()) ==
          Lines{CountFailure("0x00000064"), CheckLine(90, 85, 0, 0, 5), AlertText(90, 85, 0, 5)});
    CHECK(monitor.StoredCount() == L"1");
    monitor.End();
}

TEST_CASE("an alert without memory for its record is logged, counted and not raised again")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    monitor.redirector.FailCall("LocalAlloc", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    const Lines lines = monitor.StartWith(90);
    CHECK(monitor.redirector.Failures("LocalAlloc") == 1);
    CHECK(Last(lines, 2) == Lines{AlertText(90, 85, 0, 5), "1 SendAlertToAllServer -- Failed to allocate TSL memory!"});
    CHECK(monitor.StoredCount() == L"1");
    CHECK(monitor.Cycle() == Lines{CheckLine(90, 85, 1, 1, 5)});
    monitor.End();
    CHECK_FALSE(FileExists(monitor.tree.InBin(L"LocalAlt.dat")));
}

TEST_CASE("an alert without a thread for its record is logged, counted and not raised again, and the record is freed")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    monitor.redirector.FailCall("_beginthreadex", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    monitor.redirector.CountCalls("LocalAlloc");
    monitor.redirector.CountCalls("LocalFree");
    const Lines lines = monitor.StartWith(90);
    CHECK(Last(lines, 2) ==
          Lines{AlertText(90, 85, 0, 5), "4 SendAlertToAllServer -- Start SendAlert_Tread thread failed(8)!"});
    CHECK(monitor.redirector.Calls("LocalAlloc") == 1);
    CHECK(monitor.redirector.Calls("LocalFree") == 1);
    CHECK(monitor.StoredCount() == L"1");
    CHECK(monitor.Cycle() == Lines{CheckLine(90, 85, 1, 1, 5)});
    monitor.End();
    CHECK_FALSE(FileExists(monitor.tree.InBin(L"LocalAlt.dat")));
}

TEST_CASE("a record that cannot be stored is logged, counted and not raised again")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    REQUIRE(CreateDirectoryW(monitor.tree.InBin(L"LocalAlt.dat").c_str(), nullptr)); // a file of that name cannot open
    const Lines lines = monitor.StartWith(90);
    CHECK(Last(lines) == Lines{"4 WriteAlertRecord_Thread -- save alert to local fail(-1)"});
    CHECK(monitor.StoredCount() == L"1");
    CHECK(monitor.Cycle() == Lines{CheckLine(90, 85, 1, 1, 5)});
    monitor.End();
}

TEST_CASE("a count that cannot be written does not hold the alert back")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    monitor.redirector.FailCall("MoveFileExW", 1, FailMode::Once, ERROR_DISK_FULL);
    CHECK(Last(monitor.StartWith(90)) == Lines{AlertText(90, 85, 0, 5)});
    CHECK(monitor.redirector.Failures("MoveFileExW") == 1);
    CHECK(monitor.StoredCount() == L"0");
    CHECK(ReadAlertLines(monitor.tree).size() == 1);
    CHECK(monitor.Cycle() == Lines{CheckLine(90, 85, 1, 0, 5)});
    monitor.End();
}

TEST_CASE("memory that runs out for a sample is logged, and the monitor goes on after its wait")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    int nRefused = 0;
    monitor.redirector.Replace<void*(std::size_t)>("malloc",
                                                   [&nRefused](std::size_t cbBlock) -> void*
                                                   {
                                                       const bool bFirstSample =
                                                           cbBlock == sizeof(unsigned) && nRefused == 0;
                                                       nRefused += bFirstSample ? 1 : 0;
                                                       return bFirstSample ? nullptr : std::malloc(cbBlock);
                                                   });
    CHECK(Last(monitor.StartWith(90)) == Lines{"1 CMonCPUThread -- exception stopped(std::bad_alloc)."});
    CHECK(nRefused == 1);
    monitor.clock.Advance(CpuMonitor::SECONDS - 1);
    CHECK(monitor.OwnNews().empty());
    monitor.clock.Advance(1);
    CHECK(monitor.OwnNews() == Lines{CheckLine(90, 85, 0, 0, 5), AlertText(90, 85, 0, 5)});
    CHECK(monitor.End() == Lines{END_LINE});
}

TEST_CASE("cycles with alerts leave no handle and no thread behind")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 1000));
    monitor.StartWith(90);
    monitor.CycleWith(0);
    monitor.CycleWith(90);
    const std::size_t nHandles = CountHandles();
    const std::size_t nThreads = CountThreads();
    for (int i = 0; i < 15; ++i)
    {
        monitor.CycleWith(0);
        monitor.CycleWith(90);
    }
    CHECK(CountHandles() == nHandles);
    CHECK(CountThreads() == nThreads);
    CHECK(ReadAlertLines(monitor.tree).size() == 17);
    monitor.End();
}

} // namespace varnex::test
