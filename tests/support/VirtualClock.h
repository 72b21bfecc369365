#pragma once

#include "support/ImportRedirector.h"

#include <windows.h>

#include <functional>
#include <memory>

namespace varnex::test
{

class ClockCore;

// A local date and time: LocalTime{2026, 1, 31, 23, 59, 59}.
struct LocalTime
{
    WORD wYear;
    WORD wMonth;
    WORD wDay;
    WORD wHour = 0;
    WORD wMinute = 0;
    WORD wSecond = 0;
};

// Time that passes only when the test says so, for a module whose imports are redirected. It answers for Sleep,
// SleepEx, the system's and the C library's clocks, GetTickCount and the waits with a time-out, and it knows the
// threads that the module starts.
//
//     ImportRedirector redirector;
//     VirtualClock clock(redirector);
//     clock.Set(LocalTime{2026, 1, 31, 23, 59, 30});
//     StartWorkingThread(VARNEX_ALERT_CPU);
//     clock.WaitUntilAllAsleep();      // the worker has done its first cycle
//     clock.Advance(60);               // a minute of its sleeps; on return it sleeps again
//     StopWorkingThread(VARNEX_ALERT_CPU);
//     clock.AdvanceUntilWorkersEnd(2); // it saw the stop within a second and is gone
//
// Workers are the threads that the module creates, from their creation to their end, those of RunOnOtherThread, and any
// other thread from its first Sleep on. They run one at a time, ordered by when they are due and then by when they went
// to sleep, so a test sees the same order in every run. A worker that waits (for an object, a critical section or a
// slim lock) counts as asleep until what it waits for can be had. A worker that waits for a critical section that is
// initialised again is never woken, as on a real system.
//
// On the test's own thread (the one that made the clock) a redirected Sleep advances the time by itself, and a wait
// advances it as far as needed: an export that sleeps is simply called.
//
// Nothing here can hang: when no worker gets on for 30 real seconds, the test fails with a list of who does what.
// Scripts that stay in a call "for ever" do so through Block, never through a real wait. All but Block, the readers of
// the time and SleepCount belong on the test's own thread.
class VirtualClock
{
public:
    explicit VirtualClock(ImportRedirector& redirector);
    // Releases every worker that still sleeps; tests let their workers end first.
    ~VirtualClock();
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    // --- what the module reads ---
    // Sets the wall clock, forwards or back; sleeps under way keep their length. It starts at 2026-01-31 12:00:00.
    void Set(const LocalTime& time);
    // Sets GetTickCount64 (GetTickCount shows its low 32 bits); starts at one day.
    void SetTickCount(ULONGLONG ullTick);
    LocalTime Now() const;
    long long UnixNow() const;
    ULONGLONG TickCount() const;
    // Milliseconds of virtual time since the clock was made.
    ULONGLONG ElapsedMs() const;

    // --- letting time pass ---
    // All return when every worker is asleep, waits or has ended.
    void Advance(unsigned nSeconds);
    void AdvanceMs(ULONGLONG ullMilliseconds);
    void WaitUntilAllAsleep();
    // Advances from sleep to sleep until the condition holds; false when it does not within nMaxSeconds.
    [[nodiscard]] bool AdvanceUntil(const std::function<bool()>& condition, unsigned nMaxSeconds);
    // Advances until no worker is left; fails the test when one is after nMaxSeconds. The threads are really gone then.
    void AdvanceUntilWorkersEnd(unsigned nMaxSeconds);

    // Runs fn as one more worker; its sleeps are driven by the calls above.
    void RunOnOtherThread(std::function<void()> fn);
    // Runs fn on another thread and lets time pass until it has ended (at most nMaxSeconds, or the test fails).
    void RunWhileAdvancing(std::function<void()> fn, unsigned nMaxSeconds = 24 * 60 * 60);

    // --- watching ---
    // Workers that live, whatever they do.
    std::size_t Workers() const;
    // Sleeps of exactly that length that were asked for so far, by any thread.
    ULONGLONG SleepCount(DWORD dwMilliseconds) const;
    // The time of the longest real pause without progress before the test fails; 30000 at first.
    void SetGuard(DWORD dwRealMilliseconds);

    // For scripts: the calling worker is stuck in its call until the event is set. Meanwhile it counts as asleep, and
    // a redirected TerminateThread can end it.
    void Block(HANDLE hEvent);
    // What a redirected TerminateThread does, for a test that has replaced it or acts from outside.
    BOOL Terminate(HANDLE hThread, DWORD dwExitCode);

private:
    void FailIfBroken();
    ULONGLONG NextDueMs() const;

    std::shared_ptr<ClockCore> m_core;
    RestoredImports m_imports;
};

} // namespace varnex::test
