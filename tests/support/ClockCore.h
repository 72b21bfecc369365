#pragma once

#include "common/Handles.h"
#include "support/VirtualTime.h"

#include <windows.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace varnex::test
{

// The part of VirtualClock that outlives it while workers still return from their calls: virtual time, and the one turn
// that the workers pass among each other. Tests use VirtualClock.
//
// Exactly one worker has the turn, or none. Whoever gives it up hands it to the next: first to workers that are due,
// then once to each that waits (so that it looks whether it can have what it waits for), and when all sleep, time moves
// on to the next one due, up to the time that the test has allowed.
class ClockCore : public std::enable_shared_from_this<ClockCore>
{
public:
    static constexpr ULONGLONG ullNever = static_cast<ULONGLONG>(-1);

    ClockCore();
    ClockCore(const ClockCore&) = delete;
    ClockCore& operator=(const ClockCore&) = delete;
    // Releases everybody; from here on calls do the real thing.
    void Close();

    // --- for the scripts: called on the module's threads ---
    void Sleep(DWORD dwMilliseconds);
    DWORD WaitForObject(HANDLE hObject, DWORD dwMilliseconds);
    // Tries until it has it.
    void Acquire(const std::function<bool()>& tryTake);

    using Body = std::function<DWORD()>;
    using Starter = std::function<HANDLE(LPTHREAD_START_ROUTINE pfnBody, void* pParameter)>;
    // Has a thread created that runs the body as a worker. Null, with the last error of the starter, when it fails.
    HANDLE StartWorker(Body body, bool bSuspended, const Starter& starter);
    DWORD Resume(HANDLE hThread);
    BOOL Terminate(HANDLE hThread, DWORD dwExitCode);

    // --- for the test's own thread ---
    // Lets workers run, and time pass up to ullElapsedMs; returns when all sleep, wait or have ended.
    void DriveTo(ULONGLONG ullElapsedMs);
    void Drive()
    {
        DriveTo(ElapsedMs());
    }
    // When the next sleep or wait ends; ullNever when none does.
    ULONGLONG NextDueMs() const;
    std::size_t Workers() const;
    void SetGuard(DWORD dwRealMilliseconds);
    // Why the clock gave up; empty while it works. Tells it once.
    std::string TakeTrouble();

    // --- for both ---
    template <class Reader>
    auto Read(const Reader& reader) const
    {
        const Hold hold(*this);
        return reader(m_time);
    }
    template <class Writer>
    void Change(const Writer& writer)
    {
        const Hold hold(*this);
        writer(m_time);
    }
    ULONGLONG ElapsedMs() const;
    ULONGLONG SleepCount(DWORD dwMilliseconds) const;

private:
    enum class State
    {
        Suspended,
        Ready,    // may begin
        Running,  // has the turn
        Sleeping, // until its time
        Waiting,  // for something, and perhaps until its time
        Ended
    };
    struct Worker
    {
        CONDITION_VARIABLE wake = CONDITION_VARIABLE_INIT;
        State state = State::Ready;
        DWORD dwThreadId = 0;
        UniqueHandle thread;
        ULONGLONG ullDueMs = 0;
        ULONGLONG ullOrder = 0;
        ULONGLONG ullLookedAt = 0; // the activity at which it last looked for what it waits for
        bool bDoomed = false;
        DWORD dwExitCode = 0;
    };
    using WorkerPointer = std::shared_ptr<Worker>;
    struct Start;

    // The lock, which a const reader takes as well.
    class Hold
    {
    public:
        explicit Hold(const ClockCore& core) noexcept : m_core(core)
        {
            AcquireSRWLockExclusive(&m_core.m_lock);
        }
        ~Hold()
        {
            ReleaseSRWLockExclusive(&m_core.m_lock);
        }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        const ClockCore& m_core;
    };

    static DWORD WINAPI RunWorker(void* pStart);
    void Begin(const WorkerPointer& worker);
    void End(const WorkerPointer& worker);

    // All below are called with the lock held.
    WorkerPointer Find(DWORD dwThreadId) const;
    WorkerPointer FindOrAdopt();
    void Enqueue(Worker& worker, State state, ULONGLONG ullDueMs);
    bool IsDue(const Worker& worker) const;
    Worker* NextRunnable() const;
    Worker* NextLooker() const;
    ULONGLONG NextDue() const;
    void PassTurn();
    void ReleaseTurn(const Worker& worker);
    void AwaitTurn(Worker& worker);
    void AwaitTurnOrTick(Worker& worker);
    bool AwaitSomething(Worker& worker, const std::function<bool()>& tryTake, ULONGLONG ullDueMs);
    void LeaveIfDoomed(const Worker& worker);
    void MarkEnded(Worker& worker);
    void NoticeDeadThreads();
    void GiveUp();

    bool IsTestThread() const noexcept
    {
        return GetCurrentThreadId() == m_dwTestThreadId;
    }
    bool WaitOnTestThread(const std::function<bool()>& tryTake, DWORD dwMilliseconds);
    bool HasGivenUp(ULONGLONG ullIdleSince);
    void WaitUntilIdle();
    void AwaitExits();
    std::string Describe() const;

    const DWORD m_dwTestThreadId;
    mutable SRWLOCK m_lock = SRWLOCK_INIT;
    CONDITION_VARIABLE m_idle = CONDITION_VARIABLE_INIT;
    VirtualTime m_time;
    ULONGLONG m_ullAllowedMs = 0; // time may move up to here
    std::vector<WorkerPointer> m_workers;
    const Worker* m_pTurn = nullptr;
    ULONGLONG m_ullActivity = 1; // grows whenever something may have changed for those who wait
    ULONGLONG m_ullLastOrder = 0;
    std::map<DWORD, ULONGLONG> m_sleeps;
    DWORD m_dwGuardMs = 30000;
    bool m_bClosed = false;
    std::string m_trouble;
};

} // namespace varnex::test
