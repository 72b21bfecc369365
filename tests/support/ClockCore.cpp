#include "support/ClockCore.h"

#include "support/ScriptScope.h"

#include <algorithm>
#include <utility>

namespace varnex::test
{

namespace
{

constexpr DWORD LOOK_AGAIN_MS = 2; // real time between two looks of a worker that waits while nobody runs
constexpr DWORD WATCH_MS = 50;     // real time between two looks at whether the workers get on

ULONGLONG DueFrom(ULONGLONG ullNowMs, DWORD dwMilliseconds)
{
    return dwMilliseconds == INFINITE ? ClockCore::NEVER : ullNowMs + dwMilliseconds;
}

} // namespace

// What a new worker's thread starts with.
struct ClockCore::Start
{
    std::shared_ptr<ClockCore> core;
    WorkerPointer worker;
    Body body;
};

ClockCore::ClockCore() : m_dwTestThreadId(GetCurrentThreadId()) {}

void ClockCore::Close()
{
    const Hold hold(*this);
    m_bClosed = true;
    m_queue.WakeAll();
}

// --- sleeping and waiting -------------------------------------------------------------------------------------------

void ClockCore::Sleep(DWORD dwMilliseconds)
{
    {
        const Hold hold(*this);
        ++m_sleeps[dwMilliseconds];
    }
    if (IsTestThread())
    {
        DriveTo(DueFrom(ElapsedMs(), dwMilliseconds));
    }
    else if (!SleepAsWorker(dwMilliseconds))
    {
        ::Sleep(std::min(dwMilliseconds, WATCH_MS)); // the clock gave up: on to the end of the test, without haste
    }
}

bool ClockCore::SleepAsWorker(DWORD dwMilliseconds)
{
    const Hold hold(*this);
    if (m_bClosed)
    {
        return false;
    }
    const WorkerPointer worker = FindOrAdopt();
    m_queue.Enqueue(*worker, Worker::State::Sleeping, DueFrom(m_queue.NowMs(), dwMilliseconds));
    AwaitTurn(*worker);
    return true;
}

DWORD ClockCore::WaitForObject(HANDLE hObject, DWORD dwMilliseconds)
{
    DWORD dwResult = WaitForSingleObject(hObject, 0);
    if (dwResult != WAIT_TIMEOUT || dwMilliseconds == 0)
    {
        return dwResult;
    }
    const auto tryTake = [&]
    {
        dwResult = WaitForSingleObject(hObject, 0);
        return dwResult != WAIT_TIMEOUT;
    };
    if (IsTestThread())
    {
        WaitOnTestThread(tryTake, dwMilliseconds);
        return dwResult;
    }
    bool bTaken = false;
    return WaitAsWorker(tryTake, dwMilliseconds, bTaken) ? dwResult : WaitForSingleObject(hObject, dwMilliseconds);
}

void ClockCore::Acquire(const std::function<bool()>& tryTake)
{
    while (!tryTake())
    {
        bool bTaken = false;
        if (IsTestThread())
        {
            bTaken = WaitOnTestThread(tryTake, INFINITE);
        }
        else
        {
            WaitAsWorker(tryTake, INFINITE, bTaken);
        }
        if (bTaken)
        {
            return;
        }
        ::Sleep(1); // a thread that is no worker, or a clock that was closed: in real time then
    }
}

// False when the calling thread is no worker, or the clock is closed.
bool ClockCore::WaitAsWorker(const std::function<bool()>& tryTake, DWORD dwMilliseconds, bool& bTaken)
{
    const Hold hold(*this);
    const WorkerPointer worker = m_queue.Find(GetCurrentThreadId());
    if (worker == nullptr || m_bClosed)
    {
        return false;
    }
    bTaken = AwaitSomething(*worker, tryTake, DueFrom(m_queue.NowMs(), dwMilliseconds));
    return true;
}

WorkerPointer ClockCore::FindOrAdopt()
{
    WorkerPointer worker = m_queue.Find(GetCurrentThreadId());
    if (worker == nullptr)
    {
        worker = std::make_shared<Worker>();
        worker->dwThreadId = GetCurrentThreadId();
        worker->thread.Reset(OpenThread(SYNCHRONIZE, FALSE, worker->dwThreadId));
        m_queue.Add(worker);
    }
    return worker;
}

void ClockCore::AwaitTurn(Worker& worker)
{
    while (!m_queue.HasTurn(worker) && !m_bClosed && !worker.bDoomed)
    {
        SleepConditionVariableSRW(&worker.wake, &m_lock, INFINITE, 0);
    }
    LeaveIfDoomed(worker);
    worker.state = Worker::State::Running;
}

// For one that waits: what it waits for may come from outside, so now and then it takes a turn that nobody has.
void ClockCore::AwaitTurnOrTick(Worker& worker)
{
    while (!m_queue.HasTurn(worker) && !m_bClosed && !worker.bDoomed)
    {
        const BOOL bWoken = SleepConditionVariableSRW(&worker.wake, &m_lock, LOOK_AGAIN_MS, 0);
        if (bWoken == FALSE && m_queue.IsTurnFree())
        {
            m_queue.TakeFreeTurn(worker);
        }
    }
    LeaveIfDoomed(worker);
}

bool ClockCore::AwaitSomething(Worker& worker, const std::function<bool()>& tryTake, ULONGLONG ullDueMs)
{
    m_queue.Enqueue(worker, Worker::State::Waiting, ullDueMs);
    for (;;)
    {
        AwaitTurnOrTick(worker);
        const bool bTaken = tryTake();
        if (bTaken || m_queue.NowMs() >= ullDueMs || m_bClosed)
        {
            worker.state = Worker::State::Running;
            return bTaken;
        }
        m_queue.LookedInVain(worker);
    }
}

// --- threads --------------------------------------------------------------------------------------------------------

HANDLE ClockCore::StartWorker(Body body, bool bSuspended, const Starter& starter)
{
    const auto worker = std::make_shared<Worker>();
    worker->state = bSuspended ? Worker::State::Suspended : Worker::State::Ready;
    auto start = std::make_unique<Start>(Start{shared_from_this(), worker, std::move(body)});
    {
        const Hold hold(*this);
        m_queue.Add(worker);
    }
    const HANDLE hThread = starter(&ClockCore::RunWorker, start.get());
    const LastErrorKeeper keeper;
    if (hThread == nullptr)
    {
        End(*worker);
        return nullptr;
    }
    static_cast<void>(start.release()); // the thread's own now
    const Hold hold(*this);
    worker->dwThreadId = GetThreadId(hThread);
    DuplicateHandle(GetCurrentProcess(), hThread, GetCurrentProcess(), worker->thread.Receive(), 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    m_queue.OfferTurn();
    return hThread;
}

DWORD WINAPI ClockCore::RunWorker(void* pStart)
{
    const std::unique_ptr<Start> start(static_cast<Start*>(pStart));
    {
        const UnscriptedScope unscripted;
        start->core->Begin(*start->worker);
    }
    const DWORD dwResult = start->body();
    const UnscriptedScope unscripted;
    start->core->End(*start->worker);
    return dwResult;
}

void ClockCore::Begin(Worker& worker)
{
    const Hold hold(*this);
    worker.dwThreadId = GetCurrentThreadId();
    if (worker.state == Worker::State::Suspended) // resumed by a call that is not redirected
    {
        m_queue.MakeReady(worker);
    }
    AwaitTurn(worker);
}

void ClockCore::End(Worker& worker)
{
    const Hold hold(*this);
    m_queue.End(worker);
}

// Workers run one at a time, so another worker stands still in any case; suspended in truth it might have our lock.
DWORD ClockCore::Suspend(HANDLE hThread)
{
    {
        const Hold hold(*this);
        if (m_queue.Find(GetThreadId(hThread)) != nullptr)
        {
            return 0;
        }
    }
    return SuspendThread(hThread);
}

DWORD ClockCore::Resume(HANDLE hThread)
{
    {
        const Hold hold(*this);
        const WorkerPointer worker = m_queue.Find(GetThreadId(hThread));
        if (worker != nullptr && worker->state == Worker::State::Suspended)
        {
            m_queue.MakeReady(*worker);
        }
    }
    return ResumeThread(hThread);
}

// A worker that sits in one of our own waits is told to end itself: ended from outside it would leave its place in the
// wait behind, and the next wake-up would touch freed memory.
BOOL ClockCore::Terminate(HANDLE hThread, DWORD dwExitCode)
{
    bool bEndsItself = false;
    {
        const Hold hold(*this);
        const WorkerPointer worker = m_queue.Find(GetThreadId(hThread));
        if (worker != nullptr)
        {
            bEndsItself = worker->state != Worker::State::Running && worker->state != Worker::State::Suspended;
            worker->bDoomed = bEndsItself;
            worker->dwExitCode = dwExitCode;
            WakeAllConditionVariable(&worker->wake);
        }
        if (worker != nullptr && !bEndsItself)
        {
            m_queue.End(*worker);
        }
    }
    if (!bEndsItself)
    {
        return TerminateThread(hThread, dwExitCode);
    }
    WaitForSingleObject(hThread, m_dwGuardMs);
    return TRUE;
}

void ClockCore::LeaveIfDoomed(Worker& worker)
{
    if (worker.bDoomed)
    {
        const DWORD dwExitCode = worker.dwExitCode;
        m_queue.End(worker);
        ReleaseSRWLockExclusive(&m_lock); // no scope on this stack is left any more
        ExitThread(dwExitCode);
    }
}

// --- the test's thread ----------------------------------------------------------------------------------------------

void ClockCore::DriveTo(ULONGLONG ullElapsedMs)
{
    {
        const Hold hold(*this);
        m_queue.NoticeDeadThreads();
        m_queue.Allow(std::max(ullElapsedMs, m_queue.NowMs()));
        m_queue.Stir();
        WaitUntilIdle();
        m_queue.Allow(m_queue.NowMs());
    }
    AwaitExits();
}

void ClockCore::WaitUntilIdle()
{
    ULONGLONG ullSeen = m_queue.Activity();
    ULONGLONG ullSince = GetTickCount64();
    while (!m_queue.IsTurnFree() && !m_bClosed)
    {
        if (SleepConditionVariableSRW(&m_queue.Idle(), &m_lock, WATCH_MS, 0) != FALSE)
        {
            continue;
        }
        m_queue.NoticeDeadThreads();
        if (m_queue.Activity() != ullSeen)
        {
            ullSeen = m_queue.Activity();
            ullSince = GetTickCount64();
        }
        else if (GetTickCount64() - ullSince > m_dwGuardMs)
        {
            GiveUp();
        }
    }
}

// Those that have ended are really gone when the test goes on: it may count threads, or unload their code.
void ClockCore::AwaitExits()
{
    std::vector<WorkerPointer> ended;
    {
        const Hold hold(*this);
        ended = m_queue.TakeEnded();
    }
    for (const WorkerPointer& worker : ended)
    {
        if (worker->thread)
        {
            WaitForSingleObject(worker->thread.Get(), m_dwGuardMs);
            worker->thread.Reset(); // a thread that was ended by force leaves the worker itself behind
        }
    }
}

bool ClockCore::WaitOnTestThread(const std::function<bool()>& tryTake, DWORD dwMilliseconds)
{
    const ULONGLONG ullEndMs = DueFrom(ElapsedMs(), dwMilliseconds);
    ULONGLONG ullIdleSince = GetTickCount64();
    for (;;)
    {
        DriveTo(ElapsedMs());
        if (tryTake())
        {
            return true;
        }
        if (ElapsedMs() >= ullEndMs || HasGivenUp(ullIdleSince))
        {
            return false;
        }
        const ULONGLONG ullNextMs = std::min(NextDueMs(), ullEndMs);
        if (ullNextMs == NEVER)
        {
            ::Sleep(1); // nobody's sleep can bring it: it comes from outside, if at all
            continue;
        }
        DriveTo(ullNextMs);
        ullIdleSince = GetTickCount64();
    }
}

bool ClockCore::HasGivenUp(ULONGLONG ullIdleSince)
{
    const Hold hold(*this);
    if (!m_bClosed && GetTickCount64() - ullIdleSince > m_dwGuardMs)
    {
        GiveUp();
    }
    return m_bClosed;
}

void ClockCore::GiveUp()
{
    m_trouble = "The virtual clock gave up: nobody got on for " + std::to_string(m_dwGuardMs) + " real ms.\n" +
                m_queue.Describe();
    m_bClosed = true;
    m_queue.WakeAll();
}

// --- reading --------------------------------------------------------------------------------------------------------

ULONGLONG ClockCore::NextDueMs() const
{
    const Hold hold(*this);
    return m_queue.NextDue();
}

ULONGLONG ClockCore::ElapsedMs() const
{
    const Hold hold(*this);
    return m_queue.NowMs();
}

std::size_t ClockCore::Workers() const
{
    const Hold hold(*this);
    return m_queue.Count();
}

ULONGLONG ClockCore::SleepCount(DWORD dwMilliseconds) const
{
    const Hold hold(*this);
    const auto found = m_sleeps.find(dwMilliseconds);
    return found == m_sleeps.end() ? 0 : found->second;
}

void ClockCore::SetGuard(DWORD dwRealMilliseconds)
{
    const Hold hold(*this);
    m_dwGuardMs = dwRealMilliseconds;
}

std::string ClockCore::TakeTrouble()
{
    const Hold hold(*this);
    return std::exchange(m_trouble, {});
}

} // namespace varnex::test
