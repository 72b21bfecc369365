// The start and stop exports for all four monitors. In most tests no monitor really runs: the threads are stand-ins, so
// that the log holds the exports' own lines only.

#include "ModuleAtWork.h"

#include "alerting/MonCPUThread.h"
#include "alerting/MonDiskThread.h"
#include "alerting/MonMemThread.h"
#include "alerting/MonNetworkThread.h"
#include "common/Handles.h"
#include "support/LogMatchers.h"
#include "support/ProcessMeter.h"
#include "support/ScriptedMemoryStatus.h"
#include "support/ScriptedPdh.h"
#include "support/ScriptedWmi.h"

#include <catch2/catch.hpp>

#include <algorithm>

namespace varnex::test
{

namespace
{

using Lines = std::vector<std::string>;

struct MonitorTexts
{
    unsigned nType;
    const char* pszStart;
    const char* pszConstruct;
    const char* pszSuccess;
    const char* pszFailure;
    const char* pszExists;
    const char* pszStop;
};

const std::vector<MonitorTexts> MONITORS = {
    {VARNEX_ALERT_CPU, "2 StartWorkingThread -- Start CPU Monitor thread...",
     "4 CMonCPUThread construct -- without parameters.", "4 Create Monitor CPU Thread Successfully!",
     "1 StartWorkingThread -- MonCPUThread CreateRunningThread Error!",
     "1 StartWorkingThread -- CPU Monitor thread has exist. exist...",
     "2 StopWorkingThread -- should stop monitor CPU thread..."},
    {VARNEX_ALERT_MEMORY, "2 StartWorkingThread -- Start Available Memory Monitor thread...",
     "4 CMonMemThread construct -- without parameters.", "4 Create Monitor Memory Thread Successfully!",
     "1 StartWorkingThread -- CMonMemThread CreateRunningThread Error!",
     "1 StartWorkingThread -- Available Memory Monitor thread has exist. exist...",
     "2 StopWorkingThread -- should stop monitor available memory thread..."},
    {VARNEX_ALERT_DISK, "2 StartWorkingThread -- Start Physical disk throughput Monitor thread...",
     "4 CMonDiskThread construct -- without parameters.",
     "4 Create Monitor physical disk throughput Thread Successfully!",
     "1 StartWorkingThread -- CMonDiskThread CreateRunningThread Error!",
     "1 StartWorkingThread -- Physical disk throughput Monitor thread has exist. exist...",
     "2 StopWorkingThread -- should stop monitor physical disk throughput thread..."},
    {VARNEX_ALERT_NETWORK, "2 StartWorkingThread -- Start Network utilization Monitor thread...",
     "4 CMonNetworkThread construct -- without parameters.",
     "4 Create Monitor network utilization Thread Successfully!",
     "1 StartWorkingThread -- CMonNetworkThread CreateRunningThread Error!",
     "1 StartWorkingThread -- Network utilization Monitor thread has exist. exist...",
     "2 StopWorkingThread -- should stop monitor network utilization thread..."},
};

constexpr char START_ALL[] = "2 StartWorkingThread -- Start All alert Monitor thread...";
constexpr char STOP_BEGIN[] = "2 StopWorkingThread -- Stop working alert thread...";
constexpr char STOP_ALL[] = "2 StopWorkingThread -- should stop all of monitor thread...";
constexpr char STOP_END[] = "2 StopWorkingThread -- Stop working alert thread finish...";

// Instead of threads the module gets events, which it closes, and never runs a monitor's body.
class HeldThreads
{
public:
    explicit HeldThreads(ModuleAtWork& work) : m_work(work)
    {
        work.redirector.Replace<decltype(::CreateThread)>(
            "CreateThread",
            [this](LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID, DWORD, LPDWORD)
            {
                m_handles.push_back(CreateEventW(nullptr, TRUE, FALSE, nullptr));
                return m_handles.back();
            });
        work.redirector.Replace<decltype(::ResumeThread)>("ResumeThread", [](HANDLE) { return DWORD{1}; });
        work.redirector.Replace<decltype(::CloseHandle)>(
            "CloseHandle",
            [this](HANDLE hObject)
            {
                const auto found = std::find(m_handles.begin(), m_handles.end(), hObject);
                if (found != m_handles.end())
                {
                    m_closed.push_back(static_cast<unsigned>(found - m_handles.begin()));
                    *found = nullptr;
                }
                return CloseHandle(hObject);
            });
    }
    ~HeldThreads()
    {
        m_work.redirector.Restore("CreateThread");
        m_work.redirector.Restore("ResumeThread");
        m_work.redirector.Restore("CloseHandle");
    }
    std::size_t Made() const { return m_handles.size(); }
    // The numbers of the threads, from 0, in the order in which their handles were closed.
    const std::vector<unsigned>& Closed() const { return m_closed; }

private:
    ModuleAtWork& m_work;
    std::vector<HANDLE> m_handles;
    std::vector<unsigned> m_closed;
};

class WorkAtLevel4 : public ModuleAtWork
{
public:
    WorkAtLevel4() { TakeOverLogLevel4(); }
};

// The module at log level 4 with stand-ins for threads.
struct Control
{
    // The result and the lines of one call.
    int Start(unsigned nType)
    {
        const int nResult = work.Start(nType);
        lines = work.News();
        return nResult;
    }
    int Stop(unsigned nType)
    {
        const int nResult = work.Stop(nType);
        lines = work.News();
        return nResult;
    }

    WorkAtLevel4 work;
    HeldThreads threads{work};
    Lines lines;
};

void Append(Lines& lines, const Lines& more)
{
    lines.insert(lines.end(), more.begin(), more.end());
}

} // namespace

TEST_CASE("the start of one monitor logs its start, its construction and its success")
{
    const MonitorTexts texts = GENERATE(from_range(MONITORS));
    Control control;
    CHECK(control.Start(texts.nType) == VARNEX_OK);
    CHECK(control.lines == Lines{texts.pszStart, texts.pszConstruct, texts.pszSuccess});
    CHECK(control.threads.Made() == 1);
}

TEST_CASE("a second start of a monitor says that it exists and makes nothing")
{
    const MonitorTexts texts = GENERATE(from_range(MONITORS));
    Control control;
    control.Start(texts.nType);
    CHECK(control.Start(texts.nType) == VARNEX_OK);
    CHECK(control.lines == Lines{texts.pszStart, texts.pszExists});
    CHECK(control.threads.Made() == 1);
}

TEST_CASE("a stop closes the thread's handle, and a start right after it says that the monitor exists")
{
    const MonitorTexts texts = GENERATE(from_range(MONITORS));
    Control control;
    control.Start(texts.nType);
    CHECK(control.Stop(texts.nType) == VARNEX_OK);
    CHECK(control.lines == Lines{STOP_BEGIN, texts.pszStop, STOP_END});
    CHECK(control.threads.Closed() == std::vector<unsigned>{0});

    CHECK(control.Start(texts.nType) == VARNEX_OK);
    CHECK(control.lines == Lines{texts.pszStart, texts.pszExists});
    CHECK(control.threads.Made() == 1);

    CHECK(control.Stop(texts.nType) == VARNEX_OK);
    CHECK(control.lines == Lines{STOP_BEGIN, texts.pszStop, STOP_END});
    CHECK(control.threads.Closed() == std::vector<unsigned>{0});
}

TEST_CASE("a stop of a monitor that does not run logs its three lines and leaves the others alone")
{
    const MonitorTexts texts = GENERATE(from_range(MONITORS));
    Control control;
    for (const MonitorTexts& other : MONITORS)
    {
        if (other.nType != texts.nType)
        {
            control.Start(other.nType);
        }
    }
    CHECK(control.Stop(texts.nType) == VARNEX_OK);
    CHECK(control.lines == Lines{STOP_BEGIN, texts.pszStop, STOP_END});
    CHECK(control.threads.Closed().empty());
}

TEST_CASE("a monitor whose thread cannot be made is accepted, logged and from then on said to exist")
{
    const MonitorTexts texts = GENERATE(from_range(MONITORS));
    Control control;
    control.work.redirector.FailCall("CreateThread", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    CHECK(control.Start(texts.nType) == VARNEX_OK);
    CHECK(control.work.redirector.Failures("CreateThread") == 1);
    CHECK(control.lines == Lines{texts.pszStart, texts.pszConstruct, texts.pszFailure});

    CHECK(control.Start(texts.nType) == VARNEX_OK);
    CHECK(control.lines == Lines{texts.pszStart, texts.pszExists});
    CHECK(control.Stop(texts.nType) == VARNEX_OK);
    CHECK(control.lines == Lines{STOP_BEGIN, texts.pszStop, STOP_END});
    CHECK(control.Start(texts.nType) == VARNEX_OK);
    CHECK(control.lines == Lines{texts.pszStart, texts.pszExists});
    CHECK(control.threads.Made() == 0);
}

TEST_CASE("the start of all makes the four monitors in order, without their start lines")
{
    Control control;
    CHECK(control.Start(VARNEX_ALERT_ALL) == VARNEX_OK);
    Lines expected = {START_ALL};
    Lines expectedAgain = {START_ALL};
    for (const MonitorTexts& texts : MONITORS)
    {
        Append(expected, {texts.pszConstruct, texts.pszSuccess});
        Append(expectedAgain, {texts.pszExists});
    }
    CHECK(control.lines == expected);
    CHECK(control.threads.Made() == 4);

    CHECK(control.Start(VARNEX_ALERT_ALL) == VARNEX_OK);
    CHECK(control.lines == expectedAgain);
    CHECK(control.threads.Made() == 4);
}

TEST_CASE("the start of all makes those that are missing")
{
    const MonitorTexts running = GENERATE(from_range(MONITORS));
    Control control;
    control.Start(running.nType);
    CHECK(control.Start(VARNEX_ALERT_ALL) == VARNEX_OK);
    Lines expected = {START_ALL};
    for (const MonitorTexts& texts : MONITORS)
    {
        Append(expected,
               texts.nType == running.nType ? Lines{texts.pszExists} : Lines{texts.pszConstruct, texts.pszSuccess});
    }
    CHECK(control.lines == expected);
    CHECK(control.threads.Made() == 4);
}

TEST_CASE("a thread that cannot be made does not keep the start of all from going on")
{
    const MonitorTexts failing = GENERATE(from_range(MONITORS));
    Control control;
    control.work.redirector.FailCall("CreateThread", failing.nType, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    CHECK(control.Start(VARNEX_ALERT_ALL) == VARNEX_OK);
    Lines expected = {START_ALL};
    for (const MonitorTexts& texts : MONITORS)
    {
        const bool bFails = texts.nType == failing.nType;
        Append(expected, {texts.pszConstruct, bFails ? texts.pszFailure : texts.pszSuccess});
    }
    CHECK(control.lines == expected);
    CHECK(control.threads.Made() == 3);
}

TEST_CASE("a monitor without memory for it is logged, keeps no slot and does not keep the start of all from going on")
{
    constexpr std::size_t cbMonitor = sizeof(CMonCPUThread);
    static_assert(sizeof(CMonMemThread) == cbMonitor && sizeof(CMonDiskThread) == cbMonitor &&
                  sizeof(CMonNetworkThread) == cbMonitor);
    const MonitorTexts failing = GENERATE(from_range(MONITORS));
    Control control;
    unsigned nMonitors = 0;
    control.work.redirector.Replace<void*(std::size_t)>("malloc",
                                                        [&](std::size_t cbBlock) -> void*
                                                        {
                                                            nMonitors += cbBlock == cbMonitor ? 1 : 0;
                                                            return cbBlock == cbMonitor && nMonitors == failing.nType
                                                                       ? nullptr
                                                                       : std::malloc(cbBlock);
                                                        });
    CHECK(control.Start(VARNEX_ALERT_ALL) == VARNEX_OK);
    control.work.redirector.Restore("malloc");
    CHECK(nMonitors == 4); // no other block of that size was asked for
    Lines expected = {START_ALL};
    for (const MonitorTexts& texts : MONITORS)
    {
        Append(expected, texts.nType == failing.nType
                             ? Lines{"1 StartWorkingThread -- exception stopped(std::bad_alloc)."}
                             : Lines{texts.pszConstruct, texts.pszSuccess});
    }
    CHECK(control.lines == expected);
    CHECK(control.Start(failing.nType) == VARNEX_OK);
    CHECK(control.lines == Lines{failing.pszStart, failing.pszConstruct, failing.pszSuccess});
}

TEST_CASE("the stop of all logs its three lines, with or without monitors, and closes the handles in order")
{
    Control control;
    CHECK(control.Stop(VARNEX_ALERT_ALL) == VARNEX_OK);
    CHECK(control.lines == Lines{STOP_BEGIN, STOP_ALL, STOP_END});
    CHECK(control.threads.Closed().empty());

    control.Start(VARNEX_ALERT_ALL);
    CHECK(control.Stop(VARNEX_ALERT_ALL) == VARNEX_OK);
    CHECK(control.lines == Lines{STOP_BEGIN, STOP_ALL, STOP_END});
    CHECK(control.threads.Closed() == std::vector<unsigned>{0, 1, 2, 3});
}

TEST_CASE("any alert type above 4 is refused with a line, and nothing else happens")
{
    struct Refused
    {
        unsigned nType;
        const char* pszShown;
    };
    const auto refused = GENERATE(values<Refused>(
        {{5, "5"}, {6, "6"}, {0x7FFFFFFF, "2147483647"}, {0x80000000, "-2147483648"}, {0xFFFFFFFF, "-1"}}));
    Control control;
    control.Start(VARNEX_ALERT_CPU);
    CHECK(control.Start(refused.nType) == VARNEX_BAD_ALERT_TYPE);
    CHECK(control.lines ==
          Lines{std::string("1 StartWorkingThread -- bad input alert type(") + refused.pszShown + ")"});
    CHECK(control.Stop(refused.nType) == VARNEX_BAD_ALERT_TYPE);
    CHECK(control.lines == Lines{std::string("1 StopWorkingThread -- bad input alert type(") + refused.pszShown + ")"});
    CHECK(control.threads.Made() == 1);
    CHECK(control.threads.Closed().empty());
}

TEST_CASE("a freshly loaded module logs up to level 3")
{
    ModuleAtWork work;
    HeldThreads threads(work);
    CHECK(work.Start(VARNEX_ALERT_CPU) == VARNEX_OK);
    CHECK(work.Start(5) == VARNEX_BAD_ALERT_TYPE);
    CHECK(work.News() == Lines{MONITORS[0].pszStart, "1 StartWorkingThread -- bad input alert type(5)"});
}

TEST_CASE("all four monitors run side by side, end on the stop of all, and start again")
{
    ModuleAtWork work(ConfigBuilder().SetLogLevel(4));
    ScriptedMemoryStatus memory(work.exports);
    memory.SetUtilization(50, 40);
    ScriptedPdh pdh(work.redirector);
    pdh.SetInstances(L"PhysicalDisk", {L"0 C:", L"_Total"});
    pdh.SetValue(L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec", 1000.0);
    const ScriptedWmi wmi(work.redirector);
    work.TakeOverLogLevel4();
    for (int i = 0; i < 2; ++i)
    {
        work.Start(VARNEX_ALERT_ALL);
        work.clock.WaitUntilAllAsleep();
        CHECK(work.clock.Workers() == 4);
        work.StopAndEnd(VARNEX_ALERT_ALL);
        const Lines news = work.News();
        for (const char* pszEnd :
             {"4 Monitor CPU Utilization thread end...", "4 Monitor Memory Utilization thread end working...",
              "4 Monitor Disk throughput thread end working...", "4 Monitor Network throughput thread end working..."})
        {
            CHECK(std::count(news.begin(), news.end(), pszEnd) == 1);
        }
        for (const MonitorTexts& texts : MONITORS)
        {
            CHECK(std::count(news.begin(), news.end(), texts.pszSuccess) == 1);
            CHECK(std::count(news.begin(), news.end(), texts.pszExists) == 0);
        }
    }
}

TEST_CASE("two hundred starts and stops in a row leave no handle and no thread behind")
{
    ModuleAtWork work(ConfigBuilder().SetLogLevel(0));
    const auto startAndStop = [&work]
    {
        work.Start(VARNEX_ALERT_CPU);
        work.StopAndEnd(VARNEX_ALERT_CPU);
    };
    startAndStop();           // what the first run loads stays loaded
    work.tree.RemoveConfig(); // from here on nothing is read or logged: only threads come and go
    const ULONGLONG ullCreated = work.redirector.Calls("CreateThread");
    const std::size_t nThreads = CountThreads();
    const std::size_t nHandles = CountHandles();
    for (int i = 0; i < 200; ++i)
    {
        startAndStop();
    }
    CHECK(work.redirector.Calls("CreateThread") == ullCreated + 200);
    CHECK(CountThreads() == nThreads);
    CHECK(CountHandles() == nHandles);
}

TEST_CASE("starts and stops hammered in real time from two threads end every monitor that they made")
{
    constexpr ULONGLONG WANTED = 200;
    ShippedTree tree(ConfigBuilder().SetLogLevel(0));
    const LoadedModule module(tree);
    ImportRedirector redirector(module.Handle());
    redirector.Replace<decltype(::Sleep)>("Sleep", [](DWORD) { SwitchToThread(); });
    redirector.CountCalls("CreateThread");
    struct Host
    {
        decltype(::StartWorkingThread)* pfnStart;
        decltype(::StopWorkingThread)* pfnStop;
        ImportRedirector& redirector;
    } host{module.Export<decltype(::StartWorkingThread)>("StartWorkingThread"),
           module.Export<decltype(::StopWorkingThread)>("StopWorkingThread"), redirector};
    const auto waitForThreads = [](std::size_t nWanted)
    {
        for (int i = 0; i < 1000 && CountThreads() > nWanted; ++i)
        {
            Sleep(10);
        }
        return CountThreads();
    };
    const std::size_t nThreadsAtFirst = CountThreads();
    host.pfnStart(VARNEX_ALERT_CPU);
    host.pfnStop(VARNEX_ALERT_CPU);
    const std::size_t nThreads = waitForThreads(nThreadsAtFirst);
    tree.RemoveConfig();
    const std::size_t nHandles = CountHandles();
    const LPTHREAD_START_ROUTINE pfnHammer = [](void* pHost) -> DWORD
    {
        const auto& of = *static_cast<const Host*>(pHost);
        while (of.redirector.Calls("CreateThread") < WANTED)
        {
            of.pfnStart(VARNEX_ALERT_CPU);
            of.pfnStop(VARNEX_ALERT_CPU);
        }
        return 0;
    };
    {
        const UniqueHandle first(CreateThread(nullptr, 0, pfnHammer, &host, 0, nullptr));
        const UniqueHandle second(CreateThread(nullptr, 0, pfnHammer, &host, 0, nullptr));
        CHECK(WaitForSingleObject(first.Get(), 60'000) == WAIT_OBJECT_0);
        CHECK(WaitForSingleObject(second.Get(), 60'000) == WAIT_OBJECT_0);
    }
    CHECK(waitForThreads(nThreads) == nThreads);
    CHECK(CountHandles() == nHandles);
}

} // namespace varnex::test
