#pragma once

#include "support/TurnQueue.h"

#include <windows.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace varnex::test
{

// The part of VirtualClock that outlives it while workers still return from their calls: what the scripts do on the
// module's threads, and how the test's thread drives them. Tests use VirtualClock.
class ClockCore : public std::enable_shared_from_this<ClockCore>
{
public:
    static constexpr ULONGLONG NEVER = TurnQueue::NEVER;

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
    DWORD Suspend(HANDLE hThread);
    DWORD Resume(HANDLE hThread);
    BOOL Terminate(HANDLE hThread, DWORD dwExitCode);

    // --- for the test's own thread ---
    // Lets workers run, and time pass up to ullElapsedMs; returns when all sleep, wait or have ended.
    void DriveTo(ULONGLONG ullElapsedMs);
    // When the next sleep or wait ends; NEVER when none does.
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
        return reader(m_queue.Time());
    }
    template <class Writer>
    void Change(const Writer& writer)
    {
        const Hold hold(*this);
        writer(m_queue.Time());
    }
    ULONGLONG ElapsedMs() const;
    ULONGLONG SleepCount(DWORD dwMilliseconds) const;

private:
    // The lock, which a reader of a const core takes as well.
    class Hold
    {
    public:
        explicit Hold(const ClockCore& core) noexcept : m_core(core) { AcquireSRWLockExclusive(&m_core.m_lock); }
        ~Hold() { ReleaseSRWLockExclusive(&m_core.m_lock); }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        const ClockCore& m_core;
    };
    struct Start;

    static DWORD WINAPI RunWorker(void* pStart);
    void Begin(Worker& worker);
    void End(Worker& worker);

    // Called with the lock held.
    WorkerPointer FindOrAdopt();
    void AwaitTurn(Worker& worker);
    void AwaitTurnOrTick(Worker& worker);
    bool AwaitSomething(Worker& worker, const std::function<bool()>& tryTake, ULONGLONG ullDueMs);
    void LeaveIfDoomed(Worker& worker);
    void WaitUntilIdle();
    void GiveUp();

    bool IsTestThread() const noexcept { return GetCurrentThreadId() == m_dwTestThreadId; }
    bool SleepAsWorker(DWORD dwMilliseconds);
    bool WaitAsWorker(const std::function<bool()>& tryTake, DWORD dwMilliseconds, bool& bTaken);
    bool WaitOnTestThread(const std::function<bool()>& tryTake, DWORD dwMilliseconds);
    bool HasGivenUp(ULONGLONG ullIdleSince);
    void AwaitExits();

    const DWORD m_dwTestThreadId;
    mutable SRWLOCK m_lock = SRWLOCK_INIT;
    TurnQueue m_queue;
    std::map<DWORD, ULONGLONG> m_sleeps;
    DWORD m_dwGuardMs = 30000;
    bool m_bClosed = false;
    std::string m_trouble;
};

} // namespace varnex::test
