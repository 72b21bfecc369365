#include "TestWorker.h"

#include "UnitLog.h"
#include "entry/ModuleState.h"
#include "support/ImportRedirector.h"
#include "support/ProcessMeter.h"

#include <catch2/catch.hpp>

#include <vector>

namespace varnex::test
{

namespace
{

constexpr DWORD WAIT_MS = 10'000;

// A thread of the test that asks a slot to stop its worker.
class StopRequester
{
public:
    explicit StopRequester(WorkerSlot& slot)
        : m_slot(slot), m_thread(CreateThread(nullptr, 0, &StopRequester::Run, this, 0, nullptr))
    {
    }
    ~StopRequester() { WaitForSingleObject(m_thread.Get(), WAIT_MS); }
    // Whether the request has come back within that time.
    bool IsDone(DWORD dwMilliseconds) const
    {
        return WaitForSingleObject(m_thread.Get(), dwMilliseconds) == WAIT_OBJECT_0;
    }

private:
    static DWORD WINAPI Run(void* pSelf)
    {
        static_cast<StopRequester*>(pSelf)->m_slot.RequestStop();
        return 0;
    }

    WorkerSlot& m_slot;
    UniqueHandle m_thread;
};

// A worker that runs until it is asked to stop, then leaves its slot and frees itself, as the monitors do.
TestWorker::Body RunUntilStopped(WorkerSlot& slot, std::atomic<int>& nEnded)
{
    return [&slot, &nEnded](TestWorker& worker) -> DWORD
    {
        while (worker.IsRunning())
        {
            SwitchToThread();
        }
        if (slot.Withdraw(&worker))
        {
            delete &worker;
        }
        ++nEnded;
        return 1;
    };
}

bool WaitForCount(const std::atomic<int>& nCount, int nWanted)
{
    for (DWORD dwWaited = 0; dwWaited < WAIT_MS && nCount < nWanted; ++dwWaited)
    {
        Sleep(1);
    }
    return nCount == nWanted;
}

} // namespace

TEST_CASE("the four monitors' slots lie side by side in the order of their alert types, empty at first")
{
    CHECK(&g_pMonCPUThread == g_aMonitorSlots + 0);
    CHECK(&g_pMonMemThread == g_aMonitorSlots + 1);
    CHECK(&g_pMonDiskThread == g_aMonitorSlots + 2);
    CHECK(&g_pMonNetworkThread == g_aMonitorSlots + 3);
    for (const WorkerSlot& slot : g_aMonitorSlots)
    {
        CHECK_FALSE(slot.IsSet());
    }
}

TEST_CASE("a slot takes one worker in and refuses a second one")
{
    TestWorker::Begin({});
    WorkerSlot slot;
    TestWorker first;
    TestWorker second;
    CHECK(slot.Publish(&first));
    CHECK(slot.IsSet());
    CHECK_FALSE(slot.Publish(&second));
    slot.RequestStop();
    CHECK_FALSE(first.IsRunning());
    CHECK(second.IsRunning());
}

TEST_CASE("a slot is emptied only by the worker that is in it, and only once")
{
    TestWorker::Begin({});
    WorkerSlot slot;
    TestWorker first;
    TestWorker second;
    CHECK_FALSE(slot.Withdraw(&first));
    REQUIRE(slot.Publish(&first));
    CHECK_FALSE(slot.Withdraw(&second));
    CHECK(slot.IsSet());
    CHECK(slot.Withdraw(&first));
    CHECK_FALSE(slot.IsSet());
    CHECK_FALSE(slot.Withdraw(&first));
    CHECK(slot.Publish(&second));
}

TEST_CASE("a claimed worker keeps its slot, cannot withdraw, and is claimed only once")
{
    TestWorker::Begin({});
    WorkerSlot slot;
    HANDLE hThread = nullptr;
    CHECK_FALSE(slot.Claim(slot.RequestStopAndWatch(), hThread));
    TestWorker worker;
    REQUIRE(slot.Publish(&worker));
    const WatchedWorker watched = slot.RequestStopAndWatch();
    CHECK(slot.Holds(watched));
    CHECK_FALSE(slot.IsClaimed(watched));
    CHECK(slot.Claim(watched, hThread));
    CHECK(slot.IsClaimed(watched));
    CHECK(slot.IsSet());
    CHECK(slot.Holds(watched));
    CHECK_FALSE(slot.Claim(watched, hThread));
    CHECK_FALSE(slot.Withdraw(&worker));
    TestWorker other;
    CHECK_FALSE(slot.Publish(&other));
    CHECK(slot.IsSet());
    CHECK(TestWorker::s_nFreed == 0);

    slot.DropClaim();
    CHECK_FALSE(slot.IsClaimed(watched));
    CHECK(slot.Holds(watched));
    CHECK(slot.Claim(watched, hThread));
    slot.EmptyClaimed();
    CHECK_FALSE(slot.IsSet());
    CHECK_FALSE(slot.Holds(watched));
    CHECK_FALSE(slot.Claim(watched, hThread));
    CHECK_FALSE(slot.Withdraw(&worker));
    CHECK(TestWorker::s_nFreed == 0);
    CHECK(slot.Publish(&other));
    CHECK(slot.Withdraw(&other));
}

TEST_CASE("a worker whose claim was dropped leaves its slot itself")
{
    TestWorker::Begin({});
    WorkerSlot slot;
    TestWorker worker;
    REQUIRE(slot.Publish(&worker));
    HANDLE hThread = nullptr;
    REQUIRE(slot.Claim(slot.RequestStopAndWatch(), hThread));
    slot.DropClaim();
    CHECK(slot.Withdraw(&worker));
    CHECK_FALSE(slot.IsSet());
}

TEST_CASE("a slot that is forgotten while its worker is claimed takes the next one without a claim")
{
    TestWorker::Begin({});
    WorkerSlot slot;
    TestWorker worker;
    REQUIRE(slot.Publish(&worker));
    HANDLE hThread = nullptr;
    REQUIRE(slot.Claim(slot.RequestStopAndWatch(), hThread));
    slot.Forget();
    REQUIRE(slot.Publish(&worker));
    CHECK(slot.Withdraw(&worker));
}

// A thread that was ended by force may have taken the object's critical section with it.
TEST_CASE("only the first stop request touches the worker")
{
    TestWorker::Begin({});
    WorkerSlot slot;
    TestWorker worker;
    REQUIRE(slot.Publish(&worker));
    CHECK_FALSE(slot.IsStopping());
    ImportRedirector redirector;
    redirector.CountCalls("EnterCriticalSection");
    const WatchedWorker first = slot.RequestStopAndWatch();
    CHECK(redirector.Calls("EnterCriticalSection") == 1);
    CHECK(slot.IsStopping());
    CHECK(slot.RequestStopAndWatch().nTicket == first.nTicket);
    slot.RequestStop();
    CHECK(redirector.Calls("EnterCriticalSection") == 1);
    CHECK_FALSE(worker.IsRunning());

    REQUIRE(slot.Withdraw(&worker));
    CHECK_FALSE(slot.IsStopping());
    TestWorker next;
    REQUIRE(slot.Publish(&next));
    CHECK_FALSE(slot.IsStopping());
    slot.RequestStop();
    CHECK_FALSE(next.IsRunning());
}

TEST_CASE("a slot tells whether a thread is its worker's and was asked to stop")
{
    WorkerSlot slot;
    std::atomic<int> nEnded{0};
    const UniqueHandle mayEnd(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const TestWorker::Body end = RunUntilStopped(slot, nEnded);
    TestWorker::Begin(
        [&](TestWorker& worker)
        {
            WaitForSingleObject(mayEnd.Get(), WAIT_MS);
            return end(worker);
        });
    const UnitLog log;
    REQUIRE(CreateRunningThread<TestWorker>(slot, "", "") == WORKER_CREATED);
    const DWORD dwThreadId = TestWorker::s_pNewest.load()->ThreadId();
    REQUIRE(dwThreadId != 0);
    CHECK_FALSE(slot.IsStopping(dwThreadId));
    slot.RequestStop();
    CHECK(slot.IsStopping(dwThreadId));
    CHECK_FALSE(slot.IsStopping(GetCurrentThreadId()));
    SetEvent(mayEnd.Get());
    REQUIRE(WaitForCount(nEnded, 1));
    CHECK_FALSE(slot.IsStopping(dwThreadId));
}

TEST_CASE("a worker that came into the slot later is not the one that was watched, also at the same address")
{
    TestWorker::Begin({});
    WorkerSlot slot;
    TestWorker worker;
    const WatchedWorker nobody = slot.RequestStopAndWatch();
    REQUIRE(slot.Publish(&worker));
    CHECK_FALSE(slot.Holds(nobody));
    CHECK(slot.HasNewerThan(nobody));
    const WatchedWorker watched = slot.RequestStopAndWatch();
    CHECK_FALSE(slot.HasNewerThan(watched));
    REQUIRE(slot.Withdraw(&worker));
    CHECK_FALSE(slot.HasNewerThan(watched));
    CHECK_FALSE(slot.HasNewerThan(nobody));
    REQUIRE(slot.Publish(&worker));
    CHECK_FALSE(slot.Holds(watched));
    CHECK(slot.HasNewerThan(watched));
    HANDLE hThread = nullptr;
    CHECK_FALSE(slot.Claim(watched, hThread));
    CHECK(slot.IsSet());
}

TEST_CASE("a stop request that is watched keeps the thread's handle and gives another one")
{
    WorkerSlot slot;
    CHECK_FALSE(slot.RequestStopAndWatch().thread);
    std::atomic<int> nEnded{0};
    const UniqueHandle mayEnd(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const TestWorker::Body end = RunUntilStopped(slot, nEnded);
    TestWorker::Begin(
        [&](TestWorker& worker)
        {
            WaitForSingleObject(mayEnd.Get(), WAIT_MS);
            return end(worker);
        });
    const UnitLog log;
    REQUIRE(CreateRunningThread<TestWorker>(slot, "", "") == WORKER_CREATED);
    const WatchedWorker watched = slot.RequestStopAndWatch();
    REQUIRE(watched.thread);
    CHECK_FALSE(TestWorker::s_pNewest.load()->IsRunning());
    CHECK(TestWorker::s_pNewest.load()->ThreadHandle() != nullptr);
    CHECK(slot.IsSet());
    SetEvent(mayEnd.Get());
    CHECK(WaitForSingleObject(watched.thread.Get(), WAIT_MS) == WAIT_OBJECT_0);
    CHECK(nEnded == 1);
}

TEST_CASE("a stop request on an empty slot does nothing")
{
    WorkerSlot slot;
    ImportRedirector redirector;
    redirector.CountCalls("CloseHandle");
    redirector.CountCalls("EnterCriticalSection");
    slot.RequestStop();
    CHECK_FALSE(slot.IsSet());
    CHECK(redirector.Calls("CloseHandle") == 0);
    CHECK(redirector.Calls("EnterCriticalSection") == 0);
}

TEST_CASE("a stop request closes the thread's handle at once, and the worker keeps its slot until it has ended")
{
    WorkerSlot slot;
    const UniqueHandle mayEnd(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::atomic<int> nEnded{0};
    const TestWorker::Body end = RunUntilStopped(slot, nEnded);
    TestWorker::Begin(
        [&](TestWorker& worker)
        {
            WaitForSingleObject(mayEnd.Get(), WAIT_MS);
            return end(worker);
        });
    const UnitLog log;
    REQUIRE(CreateRunningThread<TestWorker>(slot, "", "") == WORKER_CREATED);
    const TestWorker& worker = *TestWorker::s_pNewest.load();
    CHECK(worker.ThreadHandle() != nullptr);
    slot.RequestStop();
    CHECK_FALSE(worker.IsRunning());
    CHECK(worker.ThreadHandle() == nullptr);
    CHECK(slot.IsSet());
    CHECK(CreateRunningThread<TestWorker>(slot, "", "") == WORKER_EXISTS);
    SetEvent(mayEnd.Get());
    REQUIRE(WaitForCount(nEnded, 1));
    CHECK_FALSE(slot.IsSet());
    CHECK(CreateRunningThread<TestWorker>(slot, "", "") == WORKER_CREATED);
    slot.RequestStop();
    CHECK(WaitForCount(nEnded, 2));
}

TEST_CASE("a stop request before the thread has run lets the worker see it on its first look")
{
    WorkerSlot slot;
    std::atomic<int> nEnded{0};
    TestWorker::Begin(RunUntilStopped(slot, nEnded));
    ImportRedirector redirector;
    UniqueHandle suspended;
    redirector.Replace<decltype(::ResumeThread)>("ResumeThread",
                                                 [&](HANDLE hThread) -> DWORD
                                                 {
                                                     DuplicateHandle(GetCurrentProcess(), hThread, GetCurrentProcess(),
                                                                     suspended.Receive(), 0, FALSE,
                                                                     DUPLICATE_SAME_ACCESS);
                                                     return 1;
                                                 });
    REQUIRE(slot.PublishAndStart(new TestWorker) == WORKER_CREATED);
    redirector.Restore("ResumeThread");
    slot.RequestStop();
    ResumeThread(suspended.Get());
    CHECK(WaitForCount(nEnded, 1));
    CHECK_FALSE(slot.IsSet());
    CHECK(TestWorker::s_nFreed == 1);
}

// The stop would close the handle that the resume needs: the thread would stay suspended for ever.
TEST_CASE("a stop request between a thread's creation and its resume waits for the resume")
{
    WorkerSlot slot;
    std::atomic<int> nEnded{0};
    TestWorker::Begin(RunUntilStopped(slot, nEnded));
    ImportRedirector redirector;
    std::unique_ptr<StopRequester> requester;
    bool bCameBackEarly = false;
    std::atomic<bool> bResumed{false};
    std::atomic<int> nClosedBefore{0};
    redirector.Replace<decltype(::CloseHandle)>("CloseHandle",
                                                [&](HANDLE hObject)
                                                {
                                                    nClosedBefore += bResumed ? 0 : 1;
                                                    return CloseHandle(hObject);
                                                });
    redirector.Replace<decltype(::ResumeThread)>("ResumeThread",
                                                 [&](HANDLE hThread)
                                                 {
                                                     requester = std::make_unique<StopRequester>(slot);
                                                     bCameBackEarly = requester->IsDone(50);
                                                     const DWORD dwResult = ResumeThread(hThread);
                                                     bResumed = true;
                                                     return dwResult;
                                                 });
    REQUIRE(slot.PublishAndStart(new TestWorker) == WORKER_CREATED);
    CHECK_FALSE(bCameBackEarly);
    CHECK(nClosedBefore == 0);
    CHECK(requester->IsDone(WAIT_MS));
    CHECK(WaitForCount(nEnded, 1));
}

TEST_CASE("stop requests from several threads meet workers at every point of their lives, and nothing is left over")
{
    constexpr int ROUNDS = 300;
    WorkerSlot slot;
    std::atomic<int> nEnded{0};
    std::atomic<bool> bGoOn{true};
    TestWorker::Begin(RunUntilStopped(slot, nEnded));
    const UnitLog log;
    Log()->Level = 0;
    const std::size_t nHandles = CountHandles();
    {
        struct Requests
        {
            WorkerSlot& slot;
            std::atomic<bool>& bGoOn;
        } requests{slot, bGoOn};
        const LPTHREAD_START_ROUTINE pfnRequest = [](void* pRequests) -> DWORD
        {
            const auto& of = *static_cast<const Requests*>(pRequests);
            while (of.bGoOn)
            {
                of.slot.RequestStop();
                SwitchToThread();
            }
            return 0;
        };
        const UniqueHandle first(CreateThread(nullptr, 0, pfnRequest, &requests, 0, nullptr));
        const UniqueHandle second(CreateThread(nullptr, 0, pfnRequest, &requests, 0, nullptr));
        int nCreated = 0;
        for (int i = 0; i < ROUNDS; ++i)
        {
            nCreated += CreateRunningThread<TestWorker>(slot, "", "") == WORKER_CREATED ? 1 : 0;
        }
        CHECK(nCreated > 0);
        CHECK(WaitForCount(nEnded, nCreated));
        bGoOn = false;
        WaitForSingleObject(first.Get(), WAIT_MS);
        WaitForSingleObject(second.Get(), WAIT_MS);
    }
    CHECK_FALSE(slot.IsSet());
    CHECK(TestWorker::s_nMade == ROUNDS);
    CHECK(TestWorker::s_nFreed == ROUNDS);
    CHECK(CountHandles() == nHandles);
}

} // namespace varnex::test
