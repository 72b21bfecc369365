#include "TestWorker.h"

#include "UnitLog.h"
#include "support/ImportRedirector.h"
#include "support/LogMatchers.h"

#include <catch2/catch.hpp>

#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>

namespace varnex::test
{

namespace
{

static_assert(std::is_abstract_v<CAlertReachPKIThread>);
static_assert(!std::has_virtual_destructor_v<CAlertReachPKIThread>);
static_assert(!std::is_copy_constructible_v<TestWorker> && !std::is_copy_assignable_v<TestWorker>);

constexpr DWORD WAIT_MS = 10'000;

// What the starting of a thread asked of the system, in order.
struct ThreadCalls
{
    explicit ThreadCalls(ImportRedirector& redirector)
    {
        redirector.Replace<decltype(::CreateThread)>(
            "CreateThread",
            [this](LPSECURITY_ATTRIBUTES pSecurity, SIZE_T cbStack, LPTHREAD_START_ROUTINE pfnBody, LPVOID pParameter,
                   DWORD dwFlags, LPDWORD pdwThreadId)
            {
                names += "create ";
                bPlain = pSecurity == nullptr && cbStack == 0 && pdwThreadId != nullptr;
                pfnProcedure = pfnBody;
                pObject = pParameter;
                dwCreation = dwFlags;
                hThread = CreateThread(pSecurity, cbStack, pfnBody, pParameter, dwFlags, pdwThreadId);
                return hThread;
            });
        redirector.Replace<decltype(::SetThreadPriority)>("SetThreadPriority",
                                                          [this](HANDLE hOf, int nLevel)
                                                          {
                                                              names += hOf == hThread ? "priority " : "other-priority ";
                                                              nPriority = nLevel;
                                                              return SetThreadPriority(hOf, nLevel);
                                                          });
        redirector.Replace<decltype(::ResumeThread)>("ResumeThread",
                                                     [this](HANDLE hOf)
                                                     {
                                                         names += hOf == hThread ? "resume" : "other-resume";
                                                         return ResumeThread(hOf);
                                                     });
    }

    std::string names;
    bool bPlain = false;
    LPTHREAD_START_ROUTINE pfnProcedure = nullptr;
    void* pObject = nullptr;
    DWORD dwCreation = 0;
    int nPriority = 0;
    HANDLE hThread = nullptr;
};

// Counts the closings of one handle.
class CloseCount
{
public:
    explicit CloseCount(ImportRedirector& redirector)
    {
        redirector.Replace<decltype(::CloseHandle)>("CloseHandle",
                                                    [this](HANDLE hObject)
                                                    {
                                                        m_nCount += hObject == m_hWatched.load() ? 1 : 0;
                                                        return CloseHandle(hObject);
                                                    });
    }
    void Watch(HANDLE hObject) { m_hWatched = hObject; }
    int Count() const { return m_nCount; }

private:
    std::atomic<HANDLE> m_hWatched{nullptr};
    std::atomic<int> m_nCount{0};
};

DWORD ExitCodeAfterEnd(HANDLE hThread)
{
    DWORD dwExitCode = STILL_ACTIVE;
    REQUIRE(WaitForSingleObject(hThread, WAIT_MS) == WAIT_OBJECT_0);
    REQUIRE(GetExitCodeThread(hThread, &dwExitCode));
    return dwExitCode;
}

UniqueHandle Duplicate(HANDLE hObject)
{
    UniqueHandle duplicate;
    DuplicateHandle(GetCurrentProcess(), hObject, GetCurrentProcess(), duplicate.Receive(), 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    return duplicate;
}

} // namespace

TEST_CASE("a new worker is to run and has no policy yet")
{
    TestWorker::Begin({});
    const TestWorker worker;
    CHECK(worker.IsRunning());
    CHECK(worker.GetInterval() == 0);
    CHECK(worker.GetThreshold() == 0);
    CHECK(worker.GetSamplingAmount() == 0);
    CHECK(worker.GetMaxAlertNum() == 0);
}

TEST_CASE("each policy value is kept for itself, whatever its sign")
{
    TestWorker::Begin({});
    TestWorker worker;
    worker.SetInterval(-5);
    worker.SetThreshold(101);
    worker.SetSamplingAmount(-2);
    worker.SetMaxAlertNum(2147483647);
    CHECK(worker.GetInterval() == -5);
    CHECK(worker.GetThreshold() == 101);
    CHECK(worker.GetSamplingAmount() == -2);
    CHECK(worker.GetMaxAlertNum() == 2147483647);
    CHECK(worker.IsRunning());
}

TEST_CASE("every access to the flag or a policy value takes and releases the worker's lock by itself")
{
    TestWorker::Begin({});
    ImportRedirector redirector;
    redirector.CountCalls("EnterCriticalSection");
    redirector.CountCalls("LeaveCriticalSection");
    TestWorker worker;
    const auto countLocks = [&redirector](const std::function<void()>& access)
    {
        const ULONGLONG ullEntered = redirector.Calls("EnterCriticalSection");
        const ULONGLONG ullLeft = redirector.Calls("LeaveCriticalSection");
        access();
        CHECK(redirector.Calls("LeaveCriticalSection") - ullLeft == 1);
        return redirector.Calls("EnterCriticalSection") - ullEntered;
    };
    CHECK(countLocks([&] { (void)worker.IsRunning(); }) == 1);
    CHECK(countLocks([&] { (void)worker.GetInterval(); }) == 1);
    CHECK(countLocks([&] { (void)worker.GetThreshold(); }) == 1);
    CHECK(countLocks([&] { (void)worker.GetSamplingAmount(); }) == 1);
    CHECK(countLocks([&] { (void)worker.GetMaxAlertNum(); }) == 1);
    CHECK(countLocks([&] { worker.SetInterval(1); }) == 1);
    CHECK(countLocks([&] { worker.SetThreshold(1); }) == 1);
    CHECK(countLocks([&] { worker.SetSamplingAmount(1); }) == 1);
    CHECK(countLocks([&] { worker.SetMaxAlertNum(1); }) == 1);
    CHECK(countLocks([&] { worker.ClearRunning(); }) == 1);
}

TEST_CASE("a worker is made under one hold of its lock, and its critical section stays behind")
{
    TestWorker::Begin({});
    ImportRedirector redirector;
    for (const char* pszImport : {"InitializeCriticalSection", "EnterCriticalSection", "LeaveCriticalSection"})
    {
        redirector.CountCalls(pszImport);
    }
    const bool bCanDelete = redirector.Has("DeleteCriticalSection");
    if (bCanDelete)
    {
        redirector.CountCalls("DeleteCriticalSection");
    }
    {
        const TestWorker worker;
        CHECK(redirector.Calls("InitializeCriticalSection") == 1);
        CHECK(redirector.Calls("EnterCriticalSection") == 1);
        CHECK(redirector.Calls("LeaveCriticalSection") == 1);
    }
    CHECK((!bCanDelete || redirector.Calls("DeleteCriticalSection") == 0));
}

TEST_CASE("a worker's thread is created suspended, raised above normal and then resumed")
{
    TestWorker::Begin([](TestWorker&) -> DWORD { return 7; });
    ImportRedirector redirector;
    ThreadCalls calls(redirector);
    TestWorker worker;
    REQUIRE(worker.StartThread());
    CHECK(calls.names == "create priority resume");
    CHECK(calls.bPlain);
    CHECK(calls.pfnProcedure == AlertReachThreadProc);
    CHECK(calls.pObject == static_cast<CAlertReachPKIThread*>(&worker));
    CHECK(calls.dwCreation == CREATE_SUSPENDED);
    CHECK(calls.nPriority == THREAD_PRIORITY_ABOVE_NORMAL);
    CHECK(ExitCodeAfterEnd(calls.hThread) == 7);
}

TEST_CASE("without a thread nothing is raised or resumed, and the worker stays as it is")
{
    TestWorker::Begin({});
    ImportRedirector redirector;
    ThreadCalls calls(redirector);
    redirector.FailCall("CreateThread", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    redirector.CountCalls("CloseHandle");
    TestWorker worker;
    CHECK_FALSE(worker.StartThread());
    CHECK(redirector.Failures("CreateThread") == 1);
    CHECK(calls.names.empty());
    CHECK(worker.IsRunning());
    CHECK(worker.ThreadHandle() == nullptr);
    worker.CloseThreadHandle();
    CHECK(redirector.Calls("CloseHandle") == 0);
}

TEST_CASE("the thread ends with what the body returns")
{
    TestWorker::Begin([](TestWorker&) -> DWORD { return 0xC0DE; });
    TestWorker worker;
    CHECK(AlertReachThreadProc(&worker) == 0xC0DE);
}

TEST_CASE("an exception out of a worker's body ends its thread with 1 and a line")
{
    const UnitLog log;
    TestWorker worker;
    SECTION("a standard one is named")
    {
        TestWorker::Begin([](TestWorker&) -> DWORD { throw std::runtime_error("out of luck"); });
        CHECK(AlertReachThreadProc(&worker) == 1);
        CHECK_THAT(log.Read(), HasLine(1, "AlertReachThreadProc -- exception stopped(out of luck)."));
    }
    SECTION("any other is not")
    {
        TestWorker::Begin([](TestWorker&) -> DWORD { throw 42; });
        CHECK(AlertReachThreadProc(&worker) == 1);
        CHECK_THAT(log.Read(), HasLine(1, "AlertReachThreadProc -- unknown exception stopped."));
    }
    CHECK(log.Read().Lines().size() == 1);
}

TEST_CASE("a cleared flag leaves the running thread and its handle alone, for the body to notice")
{
    const UniqueHandle mayEnd(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    TestWorker::Begin(
        [&mayEnd](TestWorker& worker) -> DWORD
        {
            WaitForSingleObject(mayEnd.Get(), WAIT_MS);
            return worker.IsRunning() ? 1 : 2;
        });
    ImportRedirector redirector;
    ThreadCalls calls(redirector);
    CloseCount closings(redirector);
    TestWorker worker;
    REQUIRE(worker.StartThread());
    closings.Watch(calls.hThread);

    worker.ClearRunning();
    CHECK_FALSE(worker.IsRunning());
    CHECK(closings.Count() == 0);
    CHECK(WaitForSingleObject(calls.hThread, 0) == WAIT_TIMEOUT);
    SetEvent(mayEnd.Get());
    CHECK(ExitCodeAfterEnd(calls.hThread) == 2);
}

TEST_CASE("the thread's handle is closed once, and its duplicates live on")
{
    TestWorker::Begin([](TestWorker&) -> DWORD { return 3; });
    ImportRedirector redirector;
    ThreadCalls calls(redirector);
    CloseCount closings(redirector);
    TestWorker worker;
    REQUIRE(worker.StartThread());
    closings.Watch(calls.hThread);
    const UniqueHandle thread = Duplicate(worker.ThreadHandle());
    REQUIRE(thread);
    CHECK(thread.Get() != calls.hThread);

    worker.CloseThreadHandle();
    CHECK(closings.Count() == 1);
    worker.CloseThreadHandle();
    CHECK(closings.Count() == 1);
    CHECK(worker.ThreadHandle() == nullptr);
    CHECK(ExitCodeAfterEnd(thread.Get()) == 3);
}

TEST_CASE("a worker that nobody asked to stop closes its thread's handle when it is freed")
{
    TestWorker::Begin([](TestWorker&) -> DWORD { return 1; });
    ImportRedirector redirector;
    ThreadCalls calls(redirector);
    CloseCount closings(redirector);
    auto worker = std::make_unique<TestWorker>();
    REQUIRE(worker->StartThread());
    const UniqueHandle thread = Duplicate(worker->ThreadHandle());
    closings.Watch(calls.hThread);
    CHECK(ExitCodeAfterEnd(thread.Get()) == 1);
    CHECK(closings.Count() == 0);
    worker.reset();
    CHECK(closings.Count() == 1);
}

TEST_CASE("a creation puts the worker into its slot, runs it and says so")
{
    const UnitLog log;
    WorkerSlot slot;
    const UniqueHandle ended(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    TestWorker::Begin(
        [&](TestWorker& worker) -> DWORD
        {
            slot.Withdraw(&worker);
            delete &worker;
            SetEvent(ended.Get());
            return 1;
        });
    CHECK(CreateRunningThread<TestWorker>(slot, "no thread", "a thread") == WORKER_CREATED);
    REQUIRE(WaitForSingleObject(ended.Get(), WAIT_MS) == WAIT_OBJECT_0);
    CHECK_FALSE(slot.IsSet());
    CHECK(TestWorker::s_nMade == 1);
    CHECK(TestWorker::s_nFreed == 1);
    const LogFile lines = log.Read();
    CHECK_THAT(lines, HasLine(4, "a thread"));
    CHECK(lines.Lines().size() == 1);
}

TEST_CASE("a creation whose thread cannot be made has published the worker already, keeps it and logs the failure")
{
    const UnitLog log;
    WorkerSlot slot;
    TestWorker::Begin({});
    ImportRedirector redirector;
    redirector.FailCall("CreateThread", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    redirector.CountCalls("ResumeThread");
    CHECK(CreateRunningThread<TestWorker>(slot, "no thread", "a thread") == WORKER_NOT_STARTED);
    const std::unique_ptr<TestWorker> worker(TestWorker::s_pNewest.load());
    CHECK(slot.IsSet());
    CHECK(TestWorker::s_nFreed == 0);
    CHECK(redirector.Calls("ResumeThread") == 0);

    SECTION("later creations find that one exists")
    {
        CHECK(CreateRunningThread<TestWorker>(slot, "no thread", "a thread") == WORKER_EXISTS);
        CHECK(redirector.Calls("CreateThread") == 1);
        CHECK(TestWorker::s_nMade == 2);
        CHECK(TestWorker::s_nFreed == 1);
    }
    SECTION("a stop request only clears its flag")
    {
        redirector.CountCalls("CloseHandle");
        slot.RequestStop();
        CHECK_FALSE(worker->IsRunning());
        CHECK(slot.IsSet());
        CHECK(redirector.Calls("CloseHandle") == 0);
    }
    const LogFile lines = log.Read();
    CHECK_THAT(lines, HasLine(1, "no thread"));
    CHECK(lines.Lines().size() == 1);
}

TEST_CASE("a thread that cannot be resumed is ended, and its worker keeps the slot like one without a thread")
{
    const UnitLog log;
    WorkerSlot slot;
    TestWorker::Begin({});
    UniqueHandle thread;
    ImportRedirector redirector;
    redirector.Replace<decltype(::ResumeThread)>("ResumeThread",
                                                 [&thread](HANDLE hThread) -> DWORD
                                                 {
                                                     DuplicateHandle(GetCurrentProcess(), hThread, GetCurrentProcess(),
                                                                     thread.Receive(), 0, FALSE, DUPLICATE_SAME_ACCESS);
                                                     return static_cast<DWORD>(-1);
                                                 });
    CHECK(CreateRunningThread<TestWorker>(slot, "no thread", "a thread") == WORKER_NOT_STARTED);
    const std::unique_ptr<TestWorker> worker(TestWorker::s_pNewest.load());
    REQUIRE(thread);
    CHECK(ExitCodeAfterEnd(thread.Get()) == 0);
    CHECK(worker->ThreadHandle() == nullptr);
    CHECK(slot.IsSet());
    const LogFile lines = log.Read();
    CHECK_THAT(lines, HasLine(1, "no thread"));
    CHECK(lines.Lines().size() == 1);
}

TEST_CASE("a creation without memory for the worker throws and leaves the slot empty")
{
    WorkerSlot slot;
    TestWorker::Begin({});
    ImportRedirector redirector;
    redirector.CountCalls("CreateThread");
    redirector.Replace<void*(std::size_t)>("malloc", [](std::size_t cbBlock)
                                           { return cbBlock == sizeof(TestWorker) ? nullptr : std::malloc(cbBlock); });
    CHECK_THROWS_AS(CreateRunningThread<TestWorker>(slot, "no thread", "a thread"), std::bad_alloc);
    redirector.Restore("malloc");
    CHECK_FALSE(slot.IsSet());
    CHECK(TestWorker::s_nMade == 0);
    CHECK(redirector.Calls("CreateThread") == 0);
}

} // namespace varnex::test
