#include "alerting/MonCPUThread.h"

#include "alerting/AlertRecord.h"
#include "alerting/MonitorLoop.h"
#include "config/DailyCounters.h"
#include "config/XmlConfig.h"
#include "entry/ModuleState.h"
#include "sampling/CpuSampling.h"
#include "sampling/SampleHistory.h"

namespace varnex
{

namespace
{

constexpr AlertPolicy POLICY = {ALERT_TYPE_CPU, L"CMonCPUThread", 90, 85, 5, 5};

class CpuWatch : public MonitorWatch
{
public:
    explicit CpuWatch(const CMonCPUThread& monitor) noexcept : m_monitor(monitor) {}

    void Cycle()
    {
        SampleAndJudge(
            m_monitor, m_history, L"MonCPUThread -- Get CPU average utilization value fail, next loop.",
            [this](int nAmount) { return TakeSample(nAmount); },
            [this](int nAmount) { Judge(m_history.Average(nAmount)); });
    }

private:
    bool TakeSample(int nAmount)
    {
        const int nUtilization = GetCPUUtlAverage();
        if (static_cast<unsigned>(nUtilization) > 100)
        {
            Log()->Level1W(L"GetCPUUtlAverage -- get CPU utilization fail(%d)", nUtilization);
            return false;
        }
        m_history.Append(static_cast<std::uint32_t>(nUtilization));
        m_history.TrimTo(nAmount);
        return true;
    }

    void Judge(int nAverage)
    {
        const AlertMoment moment;
        ReadTodaysCount(m_state, moment, ALERT_COUNTER_CPU,
                        L"MonCPUThread -- Get alert number from CFG file failed, input date(%s), error code(0x%08x). ");
        Log()->Level4W(L"MonCPUThread -- Before Checking Alert Inf, nCPUUtlAverageValue(%d), Threshold(%d), "
                       L"bReachThreshold_LastTime(%d), nTodaySentAlertNum(%d), MaxAlertNum InADay(%d), current "
                       L"date(%s).",
                       nAverage, m_monitor.GetThreshold(), m_state.bReachThreshold_LastTime, m_state.nTodaySentAlertNum,
                       m_monitor.GetMaxAlertNum(), moment.wszDate);
        if (JudgeAverage(m_monitor, m_state, nAverage))
        {
            Log()->Level3W(L"MonCPUThread -- CPU average utilization(%d%%) reach threshold(%d%%), "
                           L"ALERT!!!bReachThreshold_LastTime(%d), nTodaySentAlertNum(%d), MaxAlertNum InADay(%d), "
                           L"current date(%s)",
                           nAverage, m_monitor.GetThreshold(), m_state.bReachThreshold_LastTime,
                           m_state.nTodaySentAlertNum, m_monitor.GetMaxAlertNum(), moment.wszDate);
            RaiseAlert(m_monitor, m_state, moment, ALERT_TYPE_CPU, ALERT_COUNTER_CPU, nAverage, "");
        }
    }

    const CMonCPUThread& m_monitor;
    SampleHistory m_history;
    AlertState m_state;
};

} // namespace

CMonCPUThread::CMonCPUThread() noexcept
{
    Log()->Level4A("CMonCPUThread construct -- without parameters.");
}

int CMonCPUThread::UpdateAlertPolicy()
{
    ReadAlertPolicy(*this, POLICY);
    RefreshLogLevel();
    return 0;
}

DWORD CMonCPUThread::Run()
{
    if (!EnterMonitorApartment(L"MonCPUThread -- initialize COM interface failed(0x%08x)."))
    {
        return 1; // the object keeps its slot, nothing more is said
    }
    BeginMonitor(*this, L"[ID:%d]Monitor CPU Usage thread begin: Interval(%d)S, Threshold(%d%%), SamplingAmount "
                        L"InADay(%d), MaxAlertNum(%d)");
    CpuWatch watch(*this);
    RunCycles(*this, watch, "CMonCPUThread");
    EndMonitor(this, g_pMonCPUThread, "Monitor CPU Utilization thread end...");
    return 1;
}

} // namespace varnex
