#include "support/ClockCore.h"

#include "support/CallGate.h"
#include "support/ScriptScope.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace varnex::test
{

namespace
{

constexpr DWORD g_dwLookAgainMs = 2; // real time between two looks of a worker that waits while nobody runs
constexpr DWORD g_dwWatchMs = 50;    // real time between two looks at whether the workers get on

ULONGLONG DueFrom(ULONGLONG ullNowMs, DWORD dwMilliseconds)
{
    return dwMilliseconds == INFINITE ? ClockCore::ullNever : ullNowMs + dwMilliseconds;
}

const char* StateText(int nState)
{
    static const char* const texts[] = {"suspended", "ready", "running", "sleeping", "waiting", "ended"};
    return texts[nState];
}

} // namespace

// What a new worker's thread starts with.
struct ClockCore::Start
{
    std::shared_ptr<ClockCore> core;
    WorkerPointer worker;
    Body body;
};

ClockCore::ClockCore() : m_dwTestThreadId(GetCurrentThreadId())
{
}

void ClockCore::Close()
{
    const Hold hold(*this);
    m_bClosed = true;
    for (const WorkerPointer& worker : m_workers)
    {
        WakeAllConditionVariable(&worker->wake);
    }
}

// --- the workers' calls ---------------------------------------------------------------------------------------------

void ClockCore::Sleep(DWORD dwMilliseconds)
{
    if (IsTestThread())
    {
        {
            const Hold hold(*this);
            ++m_sleeps[dwMilliseconds];
        }
        DriveTo(DueFrom(ElapsedMs(), dwMilliseconds));
        return;
    }
    {
        const Hold hold(*this);
        ++m_sleeps[dwMilliseconds];
        if (!m_bClosed)
        {
            const WorkerPointer worker = FindOrAdopt();
            Enqueue(*worker, State::Sleeping, DueFrom(m_time.ElapsedMs(), dwMilliseconds));
            AwaitTurn(*worker);
            return;
        }
    }
    ::Sleep(std::min(dwMilliseconds, g_dwWatchMs)); // a clock that gave up: on to the end of the test, without haste
}

DWORD ClockCore::WaitForObject(HANDLE hObject, DWORD dwMilliseconds)
{
    DWORD dwResult = WaitForSingleObject(hObject, 0);
    if (dwResult != WAIT_TIMEOUT || dwMilliseconds == 0)
    {
        return dwResult;
    }
    const auto tryTake = [&] {
        dwResult = WaitForSingleObject(hObject, 0);
        return dwResult != WAIT_TIMEOUT;
    };
    if (IsTestThread())
    {
        WaitOnTestThread(tryTake, dwMilliseconds);
        return dwResult;
    }
    {
        const Hold hold(*this);
        const WorkerPointer worker = Find(GetCurrentThreadId());
        if (worker != nullptr && !m_bClosed)
        {
            AwaitSomething(*worker, tryTake, DueFrom(m_time.ElapsedMs(), dwMilliseconds));
            return dwResult;
        }
    }
    return WaitForSingleObject(hObject, dwMilliseconds);
}

void ClockCore::Acquire(const std::function<bool()>& tryTake)
{
    while (!tryTake())
    {
        if (IsTestThread())
        {
            if (WaitOnTestThread(tryTake, INFINITE))
            {
                return;
            }
        }
        else
        {
            const Hold hold(*this);
            const WorkerPointer worker = Find(GetCurrentThreadId());
            if (worker != nullptr && !m_bClosed && AwaitSomething(*worker, tryTake, ullNever))
            {
                return;
            }
        }
        ::Sleep(1); // a thread that is no worker, or a clock that was closed: the lock is waited for in real time
    }
}

HANDLE ClockCore::StartWorker(Body body, bool bSuspended, const Starter& starter)
{
    const auto worker = std::make_shared<Worker>();
    worker->state = bSuspended ? State::Suspended : State::Ready;
    auto start = std::make_unique<Start>(Start{shared_from_this(), worker, std::move(body)});
    {
        const Hold hold(*this);
        worker->ullOrder = ++m_ullLastOrder;
        worker->ullDueMs = m_time.ElapsedMs();
        m_workers.push_back(worker);
    }
    const HANDLE hThread = starter(&ClockCore::RunWorker, start.get());
    const LastErrorKeeper keeper;
    if (hThread == nullptr)
    {
        End(worker);
        return nullptr;
    }
    static_cast<void>(start.release()); // the thread's own now
    const Hold hold(*this);
    worker->dwThreadId = GetThreadId(hThread);
    DuplicateHandle(GetCurrentProcess(), hThread, GetCurrentProcess(), worker->thread.Receive(), 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    if (m_pTurn == nullptr)
    {
        PassTurn();
    }
    return hThread;
}

DWORD WINAPI ClockCore::RunWorker(void* pStart)
{
    const std::unique_ptr<Start> start(static_cast<Start*>(pStart));
    {
        const UnscriptedScope unscripted;
        start->core->Begin(start->worker);
    }
    const DWORD dwResult = start->body();
    const UnscriptedScope unscripted;
    start->core->End(start->worker);
    return dwResult;
}

void ClockCore::Begin(const WorkerPointer& worker)
{
    const Hold hold(*this);
    worker->dwThreadId = GetCurrentThreadId();
    if (worker->state == State::Suspended) // resumed by a call that is not redirected
    {
        worker->state = State::Ready;
    }
    if (m_pTurn == nullptr)
    {
        PassTurn();
    }
    AwaitTurn(*worker);
}

void ClockCore::End(const WorkerPointer& worker)
{
    const Hold hold(*this);
    MarkEnded(*worker);
}

DWORD ClockCore::Resume(HANDLE hThread)
{
    {
        const Hold hold(*this);
        const WorkerPointer worker = Find(GetThreadId(hThread));
        if (worker != nullptr && worker->state == State::Suspended)
        {
            worker->state = State::Ready;
            worker->ullOrder = ++m_ullLastOrder;
            if (m_pTurn == nullptr)
            {
                PassTurn();
            }
        }
    }
    return ResumeThread(hThread);
}

BOOL ClockCore::Terminate(HANDLE hThread, DWORD dwExitCode)
{
    {
        const Hold hold(*this);
        const WorkerPointer worker = Find(GetThreadId(hThread));
        if (worker != nullptr && worker->state != State::Running && worker->state != State::Suspended)
        {
            // It sits in one of our own waits and can end itself: ended from outside it would leave its place in the
            // wait behind, and the next wake-up would touch freed memory.
            worker->bDoomed = true;
            worker->dwExitCode = dwExitCode;
            WakeAllConditionVariable(&worker->wake);
        }
        else
        {
            if (worker != nullptr)
            {
                MarkEnded(*worker);
            }
            return TerminateThread(hThread, dwExitCode);
        }
    }
    WaitForSingleObject(hThread, m_dwGuardMs);
    return TRUE;
}

// --- the turn -------------------------------------------------------------------------------------------------------

ClockCore::WorkerPointer ClockCore::Find(DWORD dwThreadId) const
{
    const auto found = std::find_if(m_workers.begin(), m_workers.end(), [&](const WorkerPointer& worker) {
        return worker->dwThreadId == dwThreadId && worker->state != State::Ended;
    });
    return found == m_workers.end() ? nullptr : *found;
}

ClockCore::WorkerPointer ClockCore::FindOrAdopt()
{
    WorkerPointer worker = Find(GetCurrentThreadId());
    if (worker == nullptr)
    {
        worker = std::make_shared<Worker>();
        worker->dwThreadId = GetCurrentThreadId();
        worker->thread = UniqueHandle(OpenThread(SYNCHRONIZE, FALSE, worker->dwThreadId));
        m_workers.push_back(worker);
    }
    return worker;
}

// The worker stands in the queue; it lets the turn go when it had it.
void ClockCore::Enqueue(Worker& worker, State state, ULONGLONG ullDueMs)
{
    worker.state = state;
    worker.ullDueMs = ullDueMs;
    worker.ullOrder = ++m_ullLastOrder;
    ++m_ullActivity;
    if (m_pTurn == &worker)
    {
        m_pTurn = nullptr;
    }
    if (m_pTurn == nullptr)
    {
        PassTurn();
    }
}

bool ClockCore::IsDue(const Worker& worker) const
{
    return worker.state == State::Ready ||
           (worker.state == State::Sleeping && worker.ullDueMs <= m_time.ElapsedMs());
}

ClockCore::Worker* ClockCore::NextRunnable() const
{
    Worker* pNext = nullptr;
    for (const WorkerPointer& worker : m_workers)
    {
        if (IsDue(*worker) && (pNext == nullptr || worker->ullDueMs < pNext->ullDueMs ||
                               (worker->ullDueMs == pNext->ullDueMs && worker->ullOrder < pNext->ullOrder)))
        {
            pNext = worker.get();
        }
    }
    return pNext;
}

// One that waits and has not looked since the last time that something may have changed.
ClockCore::Worker* ClockCore::NextLooker() const
{
    Worker* pNext = nullptr;
    for (const WorkerPointer& worker : m_workers)
    {
        if (worker->state == State::Waiting && worker->ullLookedAt != m_ullActivity &&
            (pNext == nullptr || worker->ullOrder < pNext->ullOrder))
        {
            pNext = worker.get();
        }
    }
    return pNext;
}

ULONGLONG ClockCore::NextDue() const
{
    ULONGLONG ullDueMs = ullNever;
    for (const WorkerPointer& worker : m_workers)
    {
        if (worker->state == State::Sleeping || worker->state == State::Waiting)
        {
            ullDueMs = std::min(ullDueMs, worker->ullDueMs);
        }
    }
    return ullDueMs;
}

// Nobody has the turn: the next worker gets it, or all are asleep up to the time allowed and the test goes on.
void ClockCore::PassTurn()
{
    for (;;)
    {
        Worker* pNext = NextRunnable();
        if (pNext == nullptr)
        {
            pNext = NextLooker();
        }
        if (pNext != nullptr)
        {
            m_pTurn = pNext;
            WakeAllConditionVariable(&pNext->wake);
            return;
        }
        const ULONGLONG ullNextMs = std::min(NextDue(), m_ullAllowedMs);
        if (ullNextMs <= m_time.ElapsedMs() || ullNextMs == ullNever)
        {
            WakeAllConditionVariable(&m_idle);
            return;
        }
        m_time.MoveTo(ullNextMs);
        ++m_ullActivity;
    }
}

void ClockCore::ReleaseTurn(const Worker& worker)
{
    if (m_pTurn == &worker)
    {
        m_pTurn = nullptr;
        PassTurn();
    }
}

void ClockCore::AwaitTurn(Worker& worker)
{
    while (m_pTurn != &worker && !m_bClosed && !worker.bDoomed)
    {
        SleepConditionVariableSRW(&worker.wake, &m_lock, INFINITE, 0);
    }
    LeaveIfDoomed(worker);
    worker.state = State::Running;
}

// For one that waits: what it waits for may come from outside, so now and then it takes a turn that nobody has.
void ClockCore::AwaitTurnOrTick(Worker& worker)
{
    while (m_pTurn != &worker && !m_bClosed && !worker.bDoomed)
    {
        if (SleepConditionVariableSRW(&worker.wake, &m_lock, g_dwLookAgainMs, 0) == FALSE && m_pTurn == nullptr)
        {
            m_pTurn = &worker;
        }
    }
    LeaveIfDoomed(worker);
}

bool ClockCore::AwaitSomething(Worker& worker, const std::function<bool()>& tryTake, ULONGLONG ullDueMs)
{
    Enqueue(worker, State::Waiting, ullDueMs);
    for (;;)
    {
        AwaitTurnOrTick(worker);
        const bool bTaken = tryTake();
        if (bTaken || m_time.ElapsedMs() >= ullDueMs || m_bClosed)
        {
            worker.state = State::Running;
            return bTaken;
        }
        worker.ullLookedAt = m_ullActivity;
        ReleaseTurn(worker);
    }
}

void ClockCore::LeaveIfDoomed(const Worker& worker)
{
    if (!worker.bDoomed)
    {
        return;
    }
    const DWORD dwExitCode = worker.dwExitCode;
    MarkEnded(const_cast<Worker&>(worker));
    ReleaseSRWLockExclusive(&m_lock);
    ExitThread(dwExitCode);
}

void ClockCore::MarkEnded(Worker& worker)
{
    worker.state = State::Ended;
    ++m_ullActivity;
    ReleaseTurn(worker);
}

// --- the test's thread ----------------------------------------------------------------------------------------------

void ClockCore::DriveTo(ULONGLONG ullElapsedMs)
{
    {
        const Hold hold(*this);
        NoticeDeadThreads();
        m_ullAllowedMs = std::max(ullElapsedMs, m_time.ElapsedMs());
        ++m_ullActivity;
        if (m_pTurn == nullptr)
        {
            PassTurn();
        }
        WaitUntilIdle();
        m_ullAllowedMs = m_time.ElapsedMs();
    }
    AwaitExits();
}

void ClockCore::WaitUntilIdle()
{
    ULONGLONG ullSeen = m_ullActivity;
    ULONGLONG ullSince = GetTickCount64();
    while (m_pTurn != nullptr && !m_bClosed)
    {
        if (SleepConditionVariableSRW(&m_idle, &m_lock, g_dwWatchMs, 0) != FALSE)
        {
            continue;
        }
        NoticeDeadThreads();
        if (m_ullActivity != ullSeen)
        {
            ullSeen = m_ullActivity;
            ullSince = GetTickCount64();
        }
        else if (GetTickCount64() - ullSince > m_dwGuardMs)
        {
            GiveUp();
        }
    }
}

// A thread may end without passing through End: by ExitThread, or ended from outside.
void ClockCore::NoticeDeadThreads()
{
    for (const WorkerPointer& worker : m_workers)
    {
        if (worker->state != State::Ended && worker->thread &&
            WaitForSingleObject(worker->thread.Get(), 0) == WAIT_OBJECT_0)
        {
            MarkEnded(*worker);
        }
    }
}

// Those that have ended are really gone when the test goes on: it may count threads, or unload their code.
void ClockCore::AwaitExits()
{
    std::vector<WorkerPointer> ended;
    {
        const Hold hold(*this);
        const auto firstEnded = std::stable_partition(m_workers.begin(), m_workers.end(), [](const WorkerPointer& worker) {
            return worker->state != State::Ended;
        });
        ended.assign(firstEnded, m_workers.end());
        m_workers.erase(firstEnded, m_workers.end());
    }
    for (const WorkerPointer& worker : ended)
    {
        if (worker->thread)
        {
            WaitForSingleObject(worker->thread.Get(), m_dwGuardMs);
        }
    }
}

bool ClockCore::WaitOnTestThread(const std::function<bool()>& tryTake, DWORD dwMilliseconds)
{
    const ULONGLONG ullEndMs = DueFrom(ElapsedMs(), dwMilliseconds);
    ULONGLONG ullIdleSince = GetTickCount64();
    for (;;)
    {
        Drive();
        if (tryTake())
        {
            return true;
        }
        if (ElapsedMs() >= ullEndMs || HasGivenUp(ullIdleSince))
        {
            return false;
        }
        const ULONGLONG ullNextMs = std::min(NextDueMs(), ullEndMs);
        if (ullNextMs == ullNever)
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
    char szHead[160];
    std::snprintf(szHead, sizeof(szHead), "The virtual clock gave up: nobody got on for %lu real ms.\n", m_dwGuardMs);
    m_trouble = szHead + Describe();
    m_bClosed = true;
    for (const WorkerPointer& worker : m_workers)
    {
        WakeAllConditionVariable(&worker->wake);
    }
}

std::string ClockCore::Describe() const
{
    std::string text;
    for (const WorkerPointer& worker : m_workers)
    {
        char szLine[160];
        std::snprintf(szLine, sizeof(szLine), "  thread %lu is %s%s, due at %lld ms of %llu ms\n", worker->dwThreadId,
                      StateText(static_cast<int>(worker->state)), m_pTurn == worker.get() ? " and has the turn" : "",
                      static_cast<long long>(worker->ullDueMs), m_time.ElapsedMs());
        text += szLine;
    }
    return text;
}

ULONGLONG ClockCore::NextDueMs() const
{
    const Hold hold(*this);
    return NextDue();
}

ULONGLONG ClockCore::ElapsedMs() const
{
    const Hold hold(*this);
    return m_time.ElapsedMs();
}

std::size_t ClockCore::Workers() const
{
    const Hold hold(*this);
    return static_cast<std::size_t>(std::count_if(m_workers.begin(), m_workers.end(), [](const WorkerPointer& worker) {
        return worker->state != State::Ended;
    }));
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
