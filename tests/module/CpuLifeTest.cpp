// How the CPU monitor starts, waits, stops and makes room for the next one.

#include "CpuMonitor.h"

#include "common/Handles.h"

#include <catch2/catch.hpp>

#include <objbase.h>

#include <algorithm>
#include <atomic>

namespace varnex::test
{

namespace
{

constexpr int INTERVAL = static_cast<int>(CpuMonitor::SECONDS);
constexpr char EXISTS[] = "1 StartWorkingThread -- CPU Monitor thread has exist. exist...";

} // namespace

TEST_CASE("the begin line names the monitor's thread, which runs above normal priority")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 5, 5));
    DWORD dwThreadId = 0;
    int nPriority = 0;
    monitor.redirector.Replace<decltype(::SetThreadPriority)>("SetThreadPriority",
                                                              [&](HANDLE hThread, int nLevel)
                                                              {
                                                                  dwThreadId = GetThreadId(hThread);
                                                                  nPriority = nLevel;
                                                                  return SetThreadPriority(hThread, nLevel);
                                                              });
    const Lines lines = monitor.StartWith(50);
    CHECK(lines == Lines{"3 [ID:" + std::to_string(dwThreadId) +
                         "]Monitor CPU Usage thread begin: Interval(60)S, Threshold(85%), SamplingAmount InADay(5), "
                         "MaxAlertNum(5)"});
    CHECK(nPriority == THREAD_PRIORITY_ABOVE_NORMAL);
    monitor.End();
}

TEST_CASE("the start logs the request, the construction and the success in this order, and the thread its begin")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 5, 5));
    monitor.TakeOverLogLevel4();
    monitor.Start(VARNEX_ALERT_CPU);
    monitor.clock.WaitUntilAllAsleep();
    Lines lines = monitor.News();
    // The thread's own line may stand before or after the success.
    const auto begin = std::find_if(lines.begin(), lines.end(),
                                    [](const std::string& line)
                                    { return line.find("]Monitor CPU Usage thread begin: ") != std::string::npos; });
    REQUIRE(begin != lines.end());
    CHECK(begin - lines.begin() >= 2);
    lines.erase(begin);
    CHECK(lines == Lines{"2 StartWorkingThread -- Start CPU Monitor thread...",
                         "4 CMonCPUThread construct -- without parameters.",
                         "4 Create Monitor CPU Thread Successfully!"});
    monitor.End();
}

TEST_CASE("a waiting monitor notices a stop within one second, says that it ends and makes room")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 5, 5));
    monitor.StartWith(50);
    monitor.clock.Advance(10);
    monitor.Stop(VARNEX_ALERT_CPU);
    monitor.clock.AdvanceMs(999);
    CHECK(monitor.clock.Workers() == 1);
    CHECK(monitor.OwnNews().empty());
    monitor.Start(VARNEX_ALERT_CPU);
    CHECK(Last(monitor.News()) == Lines{EXISTS});
    monitor.clock.AdvanceMs(1);
    CHECK(monitor.clock.Workers() == 0);
    CHECK(monitor.OwnNews() == Lines{END_LINE});

    CHECK(monitor.StartWith(50).size() == 1);
    CHECK(monitor.clock.Workers() == 1);
    CHECK(monitor.End() == Lines{END_LINE});
}

TEST_CASE("a monitor that is stopped before its thread looks for the first time takes no sample")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 5, 5));
    monitor.redirector.Replace<decltype(::CoInitialize)>("CoInitialize",
                                                         [&monitor](LPVOID pReserved)
                                                         {
                                                             monitor.Stop(VARNEX_ALERT_CPU);
                                                             return CoInitialize(pReserved);
                                                         });
    monitor.Start(VARNEX_ALERT_CPU);
    monitor.clock.AdvanceUntilWorkersEnd(0);
    const Lines lines = monitor.OwnNews();
    REQUIRE(lines.size() == 2); // it begins all the same
    CHECK(lines[0].rfind("3 [ID:", 0) == 0);
    CHECK(lines[1] == END_LINE);
    CHECK(monitor.cpu.Reads() == 0);
    CHECK(monitor.clock.SleepCount(1000) == 0);
}

TEST_CASE("a monitor that is stopped in a cycle finishes the cycle and does not wait")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    monitor.StartWith(10);
    const ULONGLONG ullSleeps = monitor.clock.SleepCount(1000);
    const UniqueHandle mayGoOn(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::atomic<bool> bHeld{false};
    // Between the sample and the judgement: the file is looked for before the counts are read.
    monitor.redirector.Replace<decltype(::GetFileAttributesW)>("GetFileAttributesW",
                                                               [&](LPCWSTR pwszName)
                                                               {
                                                                   if (monitor.cpu.Reads() == 2 &&
                                                                       !bHeld.exchange(true))
                                                                   {
                                                                       monitor.clock.Block(mayGoOn.Get());
                                                                   }
                                                                   return GetFileAttributesW(pwszName);
                                                               });
    CHECK(monitor.CycleWith(90).empty());
    REQUIRE(bHeld);
    monitor.Stop(VARNEX_ALERT_CPU);
    monitor.News();
    SetEvent(mayGoOn.Get());
    monitor.clock.AdvanceUntilWorkersEnd(0);
    CHECK(monitor.OwnNews() == Lines{CheckLine(90, 85, 0, 0, 5), AlertText(90, 85, 0, 5), END_LINE});
    CHECK(monitor.clock.SleepCount(1000) == ullSleeps + CpuMonitor::SECONDS - 1);
}

TEST_CASE("a monitor that is stopped in an alert waits 90 seconds for the counts, and its writer 60 for the alert file")
{
    const HeldMutex counts(L"Global\\{49BCAD94-02E7-4d1d-9CDA-5A7246CDD559}");
    const HeldMutex alertFile(L"Global\\{A2C32408-95FF-4183-8208-1C370A075B80}");
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 1, 5));
    monitor.StartWith(90);
    monitor.Stop(VARNEX_ALERT_CPU);
    monitor.News();
    monitor.clock.AdvanceMs(89'999);
    CHECK(monitor.clock.Workers() == 1);
    CHECK(monitor.News().empty());
    monitor.clock.AdvanceMs(1);
    CHECK(Last(monitor.OwnNews()) == Lines{END_LINE});
    CHECK(monitor.clock.Workers() == 1); // the writer
    monitor.clock.AdvanceMs(59'999);
    CHECK(monitor.clock.Workers() == 1);
    CHECK(monitor.tree.Alerts().empty());
    monitor.clock.AdvanceUntilWorkersEnd(1);
    CHECK_FALSE(monitor.tree.Alerts().empty());
}

TEST_CASE("the monitor's thread initialises COM and leaves it as its last step")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, 5, 5));
    monitor.redirector.CountCalls("CoInitialize");
    std::string logAtLeave;
    monitor.redirector.Replace<decltype(::CoUninitialize)>("CoUninitialize",
                                                           [&]
                                                           {
                                                               logAtLeave = monitor.tree.Log();
                                                               CoUninitialize();
                                                           });
    monitor.StartWith(50);
    CHECK(monitor.redirector.Calls("CoInitialize") == 1);
    CHECK(monitor.redirector.Calls("CoUninitialize") == 0);
    monitor.End();
    CHECK(monitor.redirector.Calls("CoUninitialize") == 1);
    CHECK(logAtLeave.find(" [4] - Monitor CPU Utilization thread end...\r\n") != std::string::npos);
    CHECK(monitor.tree.Log().find("thread end...") == logAtLeave.find("thread end..."));
}

} // namespace varnex::test
