#pragma once

#include "alerting/AlertPolicy.h"
#include "common/Com.h"
#include "common/LocalTime.h"
#include "diag/ExceptionBarrier.h"
#include "diag/SPLogger.h"
#include "entry/AlertReachPKIThread.h"
#include "sampling/SampleHistory.h"

#include <cstdint>

namespace varnex
{

// What the four alert monitors share: start, cycles with their waits, the day's count, the raising of an alert, end.
// A monitor's own part is a "watch", an object of one run that knows its source and its texts.

// The state of one kind of alert within one run.
struct AlertState
{
    int bReachThreshold_LastTime = 0; // 1 from an alert until an average falls below the threshold
    int nTodaySentAlertNum = 0;       // re-read before each judgement; keeps its last value in between
};

// The moment of a judgement.
struct AlertMoment
{
    AlertMoment() noexcept;

    std::int64_t nSeconds;       // since 1970-01-01 UTC
    wchar_t wszDate[DATE_CHARS]; // the key of the daily counts
};

// Reads today's count into the state. A count that cannot be read is logged at level 4, by a wide format that takes
// the date and the result, and taken as 0. The calling thread must have initialised COM. Throws std::bad_alloc.
void ReadTodaysCount(AlertState& state, const AlertMoment& moment, int nCounter, const wchar_t* pwszFailure);

// Judges an average by the monitor's policy and the state. On true the caller logs its alert line and raises the
// alert; otherwise the state is up to date already.
bool JudgeAverage(const CAlertReachPKIThread& monitor, AlertState& state, int nAverage) noexcept;

// Counts the alert, stores the count and dispatches the record, in this order: the count stays consumed, and the
// threshold counts as reported, even if the record is lost. The calling thread must have initialised COM.
void RaiseAlert(const CAlertReachPKIThread& monitor, AlertState& state, const AlertMoment& moment, int nAlertType,
                int nCounter, int nAverage, const char* pszResourceName) noexcept;

// Sleeps out the monitor's interval in steps of a second; each looks at the interval and at the keep-running flag.
void WaitInterval(const CAlertReachPKIThread& monitor) noexcept;

// Initialises COM for a monitor's thread. A failure is logged at level 1 by a wide format that takes the status. (The
// width of the formats that all monitors share is of no account: their lines are plain ASCII.)
bool EnterMonitorApartment(const wchar_t* pwszFailure) noexcept;

// Reads the policy and logs the begin line: a wide format that takes thread, interval, threshold, sampling amount and
// maximum.
void BeginMonitor(CAlertReachPKIThread& monitor, const wchar_t* pwszBegin) noexcept;

// One pass of a monitor that takes one sample a cycle: take(N) adds it to the history and keeps the newest N, or gives
// false; judge(N) follows once there are N. A pass without a judgement is logged at level 2, but not while the history
// is still filling; the sampling amount is read anew for that. Below 1 it lets no sample be taken.
template <class Take, class Judge>
void SampleAndJudge(const CAlertReachPKIThread& monitor, const SampleHistory& history, const wchar_t* pwszFailure,
                    Take&& take, Judge&& judge)
{
    const int nAmount = monitor.GetSamplingAmount();
    if (nAmount >= 1 && take(nAmount) && history.HoldsAtLeast(nAmount))
    {
        judge(nAmount);
    }
    else if (history.HoldsAtLeast(monitor.GetSamplingAmount()))
    {
        Log()->Level2W(pwszFailure);
    }
}

// What a watch does not say otherwise. A watch has besides: void Cycle(), one pass of sampling and judging.
class MonitorWatch
{
public:
    // After each wait; false ends the monitor.
    bool AfterWait() noexcept { return true; }
};

// Cycles until the monitor is asked to stop or its watch ends it. An exception is logged, and the monitor goes on.
template <class Watch>
void RunCycles(CAlertReachPKIThread& monitor, Watch& watch, const char* pszMonitor) noexcept
{
    while (monitor.IsRunning())
    {
        StopExceptions(pszMonitor, false,
                       [&monitor, &watch]
                       {
                           monitor.UpdateAlertPolicy();
                           watch.Cycle();
                           return true;
                       });
        WaitInterval(monitor);
        if (!StopExceptions(pszMonitor, true, [&watch] { return watch.AfterWait(); }))
        {
            return;
        }
    }
}

// The end of a monitor: released, said so, COM last. Also where CoInitialize was refused with the tolerated status, and
// COM is then uninitialised once too often: it has always been so.
template <class Monitor>
void EndMonitor(Monitor* pMonitor, WorkerSlot& slot, const char* pszEnd) noexcept
{
    DismantleWorker(pMonitor, slot);
    Log()->Level4A(pszEnd);
    ThreadApartment::Leave();
}

} // namespace varnex
