#include "alerting/MonitorLoop.h"

#include "alerting/AlertDecision.h"
#include "alerting/AlertDispatch.h"
#include "config/DailyCounters.h"

namespace varnex
{

AlertMoment::AlertMoment() noexcept : nSeconds(SecondsNow())
{
    FormatLocalDateW(nSeconds, wszDate);
}

void ReadTodaysCount(AlertState& state, const AlertMoment& moment, int nCounter, const wchar_t* pwszFailure)
{
    const int nResult = GetAlertNumFromLocal(moment.wszDate, nCounter, &state.nTodaySentAlertNum);
    if (nResult != 0)
    {
        Log()->Level4W(pwszFailure, moment.wszDate, nResult);
        state.nTodaySentAlertNum = 0;
    }
}

bool JudgeAverage(const CAlertReachPKIThread& monitor, AlertState& state, int nAverage) noexcept
{
    const AlertDecision decision = Decide(nAverage, monitor.GetThreshold(), state.bReachThreshold_LastTime != 0,
                                          state.nTodaySentAlertNum, monitor.GetMaxAlertNum());
    if (decision == AlertDecision::Rearm)
    {
        state.bReachThreshold_LastTime = 0;
    }
    return decision == AlertDecision::Fire;
}

void RaiseAlert(const CAlertReachPKIThread& monitor, AlertState& state, const AlertMoment& moment, int nAlertType,
                int nCounter, int nAverage, const char* pszResourceName) noexcept
{
    ++state.nTodaySentAlertNum;
    state.bReachThreshold_LastTime = 1;
    // Whatever becomes of the count, the alert goes out.
    StopExceptions(
        "SaveAlertNumIntoLocal", COUNTERS_FAILED,
        [&]
        { return SaveAlertNumIntoLocal(moment.wszDate, nCounter, static_cast<unsigned>(state.nTodaySentAlertNum)); });
    SendAlertToAllServer(nAlertType, monitor.GetThreshold(), nAverage, pszResourceName, AsHappenTime(moment.nSeconds));
}

void WaitInterval(const CAlertReachPKIThread& monitor) noexcept
{
    for (int nSecond = 0; nSecond < monitor.GetInterval() && monitor.IsRunning(); ++nSecond)
    {
        Sleep(1000);
    }
}

bool EnterMonitorApartment(const wchar_t* pwszFailure) noexcept
{
    const ThreadApartment apartment(RPC_E_CHANGED_MODE);
    if (!apartment.Usable())
    {
        Log()->Level1W(pwszFailure, apartment.Result());
    }
    return apartment.Usable();
}

void BeginMonitor(CAlertReachPKIThread& monitor, const wchar_t* pwszBegin) noexcept
{
    StopExceptions("UpdateAlertPolicy", -1, [&monitor] { return monitor.UpdateAlertPolicy(); });
    Log()->Level3W(pwszBegin, GetCurrentThreadId(), monitor.GetInterval(), monitor.GetThreshold(),
                   monitor.GetSamplingAmount(), monitor.GetMaxAlertNum());
}

} // namespace varnex
