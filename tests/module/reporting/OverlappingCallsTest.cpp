// Starts, stops and requests that meet while workers are stuck, with the system's own locks and threads. Of the system
// only these answer otherwise: sleeps and waits are shorter, COM makes objects that never come, and the end of a thread
// by force may have no effect. Each case runs in a process of its own, which is killed if it hangs.

#include "ReportDocument.h"
#include "ReportingModule.h"

#include "support/ChildProcess.h"
#include "support/HostAgent.h"
#include "support/LogMatchers.h"

#include <catch2/catch.hpp>

#include <wbemidl.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <optional>
#include <utility>

namespace varnex::test
{

namespace
{

constexpr DWORD FASTER = 20; // a second takes 50 ms
constexpr DWORD CHILD_MS = 60'000;
constexpr DWORD ANSWER_MS = 15'000;
constexpr ULONGLONG SECOND = 1000;
constexpr ULONGLONG STOP_MS = 15 * SECOND + 3 * SECOND; // the log's mutex, the threads' end and the stores: one each
constexpr ULONGLONG HEALTHY_MS = 10 * SECOND;           // mostly two, but the machine may have other things to do
constexpr ULONGLONG LINE_MS = 5 * SECOND;               // that a line waits for the log's mutex

DWORD Shorter(DWORD dwMilliseconds)
{
    return dwMilliseconds == INFINITE || dwMilliseconds == 0 ? dwMilliseconds
                                                             : std::max<DWORD>(dwMilliseconds / FASTER, 1);
}

void PassSeconds(DWORD dwSeconds)
{
    Sleep(Shorter(dwSeconds * 1000));
}

// What this thread has slept and waited in vain in the module, in milliseconds as the module counts them.
thread_local std::atomic<ULONGLONG>* t_pWaited = nullptr;

void CountWait(ULONGLONG ullMilliseconds)
{
    if (t_pWaited != nullptr)
    {
        *t_pWaited += ullMilliseconds;
    }
}

bool WaitUntil(const std::function<bool()>& condition, DWORD dwMilliseconds = ANSWER_MS)
{
    const ULONGLONG ullEnd = GetTickCount64() + dwMilliseconds;
    while (!condition() && GetTickCount64() < ullEnd)
    {
        Sleep(1);
    }
    return condition();
}

// The module on a machine whose WMI does not answer: the network sampler is stuck with its store's lock in hand.
class StuckModule : public ReportingModule
{
public:
    StuckModule()
    {
        imports.Replace<decltype(::Sleep)>("Sleep",
                                           [](DWORD dwMilliseconds)
                                           {
                                               CountWait(dwMilliseconds);
                                               Sleep(Shorter(dwMilliseconds));
                                           });
        imports.Replace<decltype(::WaitForSingleObject)>("WaitForSingleObject",
                                                         [this](HANDLE hObject, DWORD dwMilliseconds)
                                                         { return Wait(hObject, dwMilliseconds); });
        imports.Replace<decltype(::CoCreateInstance)>(
            "CoCreateInstance",
            [this](REFCLSID classId, LPUNKNOWN pOuter, DWORD dwContext, REFIID iid, LPVOID* ppObject)
            {
                if (bAllStuck || IsEqualCLSID(classId, CLSID_WbemLocator))
                {
                    ++nStuck;
                    WaitForSingleObject(GetCurrentThread(), INFINITE);
                }
                return CoCreateInstance(classId, pOuter, dwContext, iid, ppObject);
            });
        agent.emplace(names.Key());
    }

    // Threads that are ended by force live on, as in a call into the kernel that does not come back, until EndDoomed.
    void KeepThreadsAlive()
    {
        imports.Replace<decltype(::TerminateThread)>("TerminateThread",
                                                     [this](HANDLE hThread, DWORD) -> BOOL
                                                     {
                                                         doomed.Reset();
                                                         DuplicateHandle(GetCurrentProcess(), hThread,
                                                                         GetCurrentProcess(), doomed.Receive(), 0,
                                                                         FALSE, DUPLICATE_SAME_ACCESS);
                                                         ++nDoomed;
                                                         return TRUE;
                                                     });
    }
    // Runs action once on the stop's thread, when that begins to wait for the end of such a thread.
    void AtWaitForEnd(std::function<void()> action) { m_atWaitForEnd = std::move(action); }
    void EndDoomed()
    {
        imports.Replace<decltype(::TerminateThread)>("TerminateThread", [](HANDLE hThread, DWORD dwExitCode)
                                                     { return TerminateThread(hThread, dwExitCode); });
        REQUIRE(TerminateThread(doomed.Get(), 0));
        REQUIRE(WaitForSingleObject(doomed.Get(), ANSWER_MS) == WAIT_OBJECT_0);
    }
    // From here on COM answers, for who asks anew.
    void Mend()
    {
        bAllStuck = false;
        m_mended.emplace(imports);
        m_mended->SetObjects({WmiAdapter(L"Card", 2, WmiText(L"1000000000"))});
    }
    void AwaitStuck(int nWanted)
    {
        REQUIRE(WaitUntil([&] { return nStuck >= nWanted; }));
    }
    // Whether a report comes that tells the processor and the adapter, after a minute of samples.
    void CheckWholeReport()
    {
        PassSeconds(65);
        agent->Ask(60, 1);
        REQUIRE(agent->TakeFinish(ANSWER_MS));
        const XmlElement report = ReadReport(agent->Text());
        CHECK(report == ExpectedReport(report.children.at(0).text)
                            .Cpu("0", 42)
                            .Memory(50, 10000, 25, 10000)
                            .Disk("0", 1000)
                            .Network("00:15:5D:00:00:12", 1000, 10)
                            .Tree());
    }
    LogFile ReadLog() const { return LogFile(tree); }

    std::optional<HostAgent> agent;
    std::atomic<bool> bAllStuck{false};
    std::atomic<int> nStuck{0};
    std::atomic<int> nDoomed{0};
    UniqueHandle doomed;
    std::atomic<HANDLE> hLogMutex{nullptr}; // since the first line

private:
    DWORD Wait(HANDLE hObject, DWORD dwMilliseconds)
    {
        if (dwMilliseconds == LINE_MS)
        {
            hLogMutex = hObject;
        }
        if (nDoomed == 1 && t_pWaited != nullptr && dwMilliseconds != 0 && m_atWaitForEnd)
        {
            const ScriptedScope scripted;
            std::exchange(m_atWaitForEnd, nullptr)();
        }
        const DWORD dwResult = WaitForSingleObject(hObject, Shorter(dwMilliseconds));
        CountWait(dwResult == WAIT_TIMEOUT ? dwMilliseconds : 0);
        return dwResult;
    }

    std::function<void()> m_atWaitForEnd;
    std::optional<ScriptedWmi> m_mended;
};

// A stop from a thread of its own.
class StopCall
{
public:
    explicit StopCall(const StuckModule& module)
        : m_module(module), m_thread(CreateThread(nullptr, 0, &StopCall::Run, this, 0, nullptr))
    {
    }
    // Returns when the stop has waited so long, as the module counts it.
    void AwaitMs(ULONGLONG ullMilliseconds) const
    {
        REQUIRE(WaitUntil([&] { return m_ullWaited >= ullMilliseconds; }));
    }
    // Fails the test if the stop does not come back. How long it has waited, as the module counts it.
    ULONGLONG Result() const
    {
        INFO("a stop does not come back; it has waited for " << m_ullWaited << " ms");
        REQUIRE(WaitForSingleObject(m_thread.Get(), ANSWER_MS) == WAIT_OBJECT_0);
        return m_ullWaited;
    }

private:
    static DWORD WINAPI Run(LPVOID pSelf) noexcept
    {
        auto& self = *static_cast<StopCall*>(pSelf);
        t_pWaited = &self.m_ullWaited;
        self.m_module.Stop();
        return 0;
    }

    const StuckModule& m_module;
    std::atomic<ULONGLONG> m_ullWaited{0};
    UniqueHandle m_thread;
};

void CheckChild(const char* pszCase)
{
    const ChildProcess child = ChildProcess::OfTestCase(pszCase);
    const bool bEnded = child.WaitForEnd(CHILD_MS);
    INFO(child.Output());
    REQUIRE(bEnded);
    CHECK(child.ExitCode() == 0);
    CHECK_THAT(child.Output(), Catch::Contains("All tests passed"));
}

} // namespace

TEST_CASE("child: a start and a request during a stop", "[.]")
{
    StuckModule module;
    module.Start();
    module.AwaitStuck(1);
    {
        const StopCall stop(module);
        stop.AwaitMs(8 * SECOND);
        module.Start();
        module.agent->Ask(60, 1);
        CHECK(stop.Result() <= STOP_MS);
    }
    CHECK(module.imports.Calls("TerminateThread") == 1);
    CHECK(module.agent->TakeFinish(ANSWER_MS));
    CHECK_THAT(module.ReadLog(),
               HasLine(1, "StartPKIUtlThread -- not started, because the last one is still stopping: network.") &&
                   HasLine(1, "StopPKIUtlThread -- ended by force: network. Locks of the system may have gone with "
                              "it: restart the process soon."));
    module.Mend();
    module.Start();
    module.CheckWholeReport();
    CHECK(StopCall(module).Result() <= HEALTHY_MS);
    CHECK(module.imports.Calls("TerminateThread") == 1);
}

TEST_CASE("a start during a stop that ends a stuck sampler works, and gets its report with every sample")
{
    CheckChild("child: a start and a request during a stop");
}

TEST_CASE("child: two stops, and a thread that does not die", "[.]")
{
    StuckModule module;
    module.KeepThreadsAlive();
    module.Start();
    module.AwaitStuck(1);
    {
        std::optional<StopCall> second;
        module.AtWaitForEnd(
            [&]
            {
                second.emplace(module);
                Sleep(100); // it has seen what there is to stop
            });
        const StopCall first(module);
        CHECK(first.Result() <= STOP_MS);
        REQUIRE(second);
        CHECK(second->Result() <= STOP_MS);
    }
    CHECK(StopCall(module).Result() <= STOP_MS);
    CHECK_THAT(module.ReadLog(),
               HasLine(1, "StopPKIUtlThread -- a thread could not be ended: network. The module must stay loaded."));
    module.EndDoomed();
    CHECK(StopCall(module).Result() <= STOP_MS);
    module.Mend();
    module.Start();
    module.CheckWholeReport();
    CHECK(StopCall(module).Result() <= HEALTHY_MS);
}

TEST_CASE("two stops return while a stuck thread does not die, and the next one clears it away when it has")
{
    CheckChild("child: two stops, and a thread that does not die");
}

TEST_CASE("child: a start while a stop waits for a thread's end", "[.]")
{
    StuckModule module;
    module.KeepThreadsAlive();
    module.Start();
    module.AwaitStuck(1);
    {
        bool bStarted = false;
        module.AtWaitForEnd([&] { bStarted = module.Start() == VARNEX_OK; });
        CHECK(StopCall(module).Result() <= STOP_MS);
        REQUIRE(bStarted);
    }
    // The healthy workers of that start end by themselves, and the stuck thread is still known.
    CHECK(StopCall(module).Result() <= STOP_MS);
    CHECK(StopCall(module).Result() <= STOP_MS);
    CHECK(module.nDoomed == 3);
    module.EndDoomed();
    CHECK(StopCall(module).Result() <= STOP_MS);
    module.Mend();
    module.Start();
    module.CheckWholeReport();
    CHECK(StopCall(module).Result() <= HEALTHY_MS);
}

TEST_CASE("a start in the second in which a stop waits for a thread's end leaves later stops as they are")
{
    CheckChild("child: a start while a stop waits for a thread's end");
}

TEST_CASE("child: stuck threads and a held log", "[.]")
{
    StuckModule module;
    module.bAllStuck = true;
    module.Start();
    module.AwaitStuck(2); // the processor sampler as it reads the log level, and the network sampler
    WaitForSingleObject(module.hLogMutex, INFINITE);
    const ULONGLONG ullWaited = StopCall(module).Result();
    CHECK(ullWaited <= STOP_MS + SECOND + 2 * LINE_MS);
    CHECK(module.imports.Calls("TerminateThread") == 2);
    ReleaseMutex(module.hLogMutex);
    module.Mend();
    module.Start();
    CHECK_THAT(module.ReadLog(), HasLine(1, "StopPKIUtlThread -- ended by force: CPU, network. Locks of the "
                                            "system may have gone with it: restart the process soon."));
    module.CheckWholeReport();
    CHECK(StopCall(module).Result() <= HEALTHY_MS);
    CHECK(module.imports.Calls("TerminateThread") == 2);
}

TEST_CASE("stuck threads are ended within the promised time while somebody else holds the log")
{
    CheckChild("child: stuck threads and a held log");
}

TEST_CASE("child: a stop without a report worker", "[.]")
{
    StuckModule module;
    module.Mend();
    module.agent->Ask(60, 1);
    CHECK(StopCall(module).Result() == 0);
    CHECK(module.agent->IsBeginSet());
    module.Start();
    CHECK(module.agent->TakeFinish(ANSWER_MS));
    module.Stop();
    CHECK_FALSE(module.agent->IsBeginSet());
}

TEST_CASE("a stop that finds no report worker leaves a request as it is")
{
    CheckChild("child: a stop without a report worker");
}

} // namespace varnex::test
