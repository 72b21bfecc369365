#pragma once

#include "common/Handles.h"
#include "support/VirtualTime.h"

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

namespace varnex::test
{

// A thread that takes part in virtual time.
struct Worker
{
    enum class State
    {
        Suspended,
        Ready,    // may begin
        Running,  // has the turn
        Sleeping, // until its time
        Waiting,  // for something, and perhaps until its time
        Ended
    };

    CONDITION_VARIABLE wake = CONDITION_VARIABLE_INIT; // it has the turn, or is to leave
    State state = State::Ready;
    DWORD dwThreadId = 0;
    UniqueHandle thread;
    ULONGLONG ullDueMs = 0;
    ULONGLONG ullOrder = 0;
    ULONGLONG ullLookedAt = 0; // the activity at which it last looked for what it waits for
    bool bDoomed = false;      // to end itself with dwExitCode
    DWORD dwExitCode = 0;
};
using WorkerPointer = std::shared_ptr<Worker>;

// Who runs next, and when. Exactly one worker has the turn, or none. Whoever gives it up hands it to the next: first to
// workers that are due, then once to each that waits (so that it looks whether it can have what it waits for), and when
// all sleep, time moves on to the next one due, up to the time that is allowed.
//
// Everything here runs under the lock of its owner, ClockCore.
class TurnQueue
{
public:
    static constexpr ULONGLONG NEVER = static_cast<ULONGLONG>(-1);

    VirtualTime& Time() noexcept { return m_time; }
    const VirtualTime& Time() const noexcept { return m_time; }
    ULONGLONG NowMs() const noexcept { return m_time.ElapsedMs(); }

    // --- the workers ---
    void Add(const WorkerPointer& worker);
    // One that has not ended; null when the thread is none of ours.
    WorkerPointer Find(DWORD dwThreadId) const;
    std::size_t Count() const;
    std::vector<WorkerPointer> TakeEnded();
    // Ends those whose threads have ended by themselves, by ExitThread or by force.
    void NoticeDeadThreads();
    void WakeAll();
    std::string Describe() const;

    // --- the turn ---
    bool HasTurn(const Worker& worker) const noexcept { return m_pTurn == &worker; }
    bool IsTurnFree() const noexcept { return m_pTurn == nullptr; }
    // For one that waits: looks while nobody else runs.
    void TakeFreeTurn(const Worker& worker) noexcept { m_pTurn = &worker; }
    // Offers a free turn to the next worker.
    void OfferTurn();
    void GiveTurnUp(const Worker& worker);
    // The worker goes to sleep, or waits, and lets the turn go if it has it.
    void Enqueue(Worker& worker, Worker::State state, ULONGLONG ullDueMs);
    void MakeReady(Worker& worker);
    void LookedInVain(Worker& worker);
    void End(Worker& worker);

    // --- the time ---
    // Time may move up to there.
    void Allow(ULONGLONG ullElapsedMs);
    // Something may have changed outside: everybody looks again.
    void Stir();
    // When the next sleep or wait ends; NEVER when none does.
    ULONGLONG NextDue() const;
    // Grows whenever something may have changed for those who wait.
    ULONGLONG Activity() const noexcept { return m_ullActivity; }
    // Woken when nobody can run up to the time allowed.
    CONDITION_VARIABLE& Idle() noexcept { return m_idle; }

private:
    bool IsDue(const Worker& worker) const;
    Worker* NextRunnable() const;
    Worker* NextLooker() const;
    bool MoveTime();

    VirtualTime m_time;
    ULONGLONG m_ullAllowedMs = 0;
    std::vector<WorkerPointer> m_workers;
    const Worker* m_pTurn = nullptr;
    ULONGLONG m_ullActivity = 1;
    ULONGLONG m_ullLastOrder = 0;
    CONDITION_VARIABLE m_idle = CONDITION_VARIABLE_INIT;
};

} // namespace varnex::test
