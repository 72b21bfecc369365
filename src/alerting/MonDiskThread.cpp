#include "alerting/MonDiskThread.h"

#include "alerting/AlertRecord.h"
#include "alerting/MonitorLoop.h"
#include "config/DailyCounters.h"
#include "entry/ModuleState.h"
#include "sampling/DiskSampling.h"

#include <memory>
#include <new>
#include <vector>

namespace varnex
{

namespace
{

constexpr AlertPolicy POLICY = {ALERT_TYPE_DISK, L"CMonDiskThread", 60, 50, 5, 5};

class DiskWatch : public MonitorWatch
{
public:
    // Throws std::bad_alloc.
    DiskWatch(const CMonDiskThread& monitor, const InstanceNames<char>& names)
        : m_monitor(monitor), m_names(names), m_histories(names.size())
    {
    }

    // A stop request waits for all disks of the pass.
    void Cycle()
    {
        for (std::size_t i = 0; i < m_names.size(); ++i)
        {
            const char* const pszName = m_names[i].get();
            if (GetDiskAverageThroughput(pszName, &m_histories[i], m_monitor.GetSamplingAmount(), &m_nAverage) == 0)
            {
                Judge(pszName, static_cast<int>(m_nAverage));
            }
            else if (m_histories[i].HoldsAtLeast(m_monitor.GetSamplingAmount()))
            {
                Log()->Level1A("MonDiskThread -- fail to get disk(%s) average throughput(%d)", pszName, m_nAverage);
            }
        }
    }

private:
    void Judge(const char* pszName, int nAverage)
    {
        const AlertMoment moment;
        char szHappenTime[TIME_CHARS];
        FormatLocalTimeA(moment.nSeconds, szHappenTime);
        ReadTodaysCount(
            m_state, moment, ALERT_COUNTER_DISK,
            L"MonDiskThread -- Get alert number from CFG file failed, input date(%s), error code(0x%08x). ");
        Log()->Level4A("MonDiskThread -- Before Checking Alert Inf, DiskName(%s), nAverageValue(%d), Threshold(%d), "
                       "bReachThreshold_LastTime(%d), nTodaySentAlertNum(%d), MaxAlertNum InADay(%d), happenTime(%s).",
                       pszName, nAverage, m_monitor.GetThreshold(), m_state.bReachThreshold_LastTime,
                       m_state.nTodaySentAlertNum, m_monitor.GetMaxAlertNum(), szHappenTime);
        if (JudgeAverage(m_monitor, m_state, nAverage))
        {
            Log()->Level3A("MonDiskThread -- Disk(%s) throughput(%dMB/S) reach threshold(%dMB/S), "
                           "ALERT!!!bReachThreshold_LastTime(%d), nTodaySentAlertNum(%d), MaxAlertNum InADay(%d) and "
                           "happenTime(%s)",
                           pszName, nAverage, m_monitor.GetThreshold(), m_state.bReachThreshold_LastTime,
                           m_state.nTodaySentAlertNum, m_monitor.GetMaxAlertNum(), szHappenTime);
            RaiseAlert(m_monitor, m_state, moment, ALERT_TYPE_DISK, ALERT_COUNTER_DISK, nAverage, pszName);
        }
    }

    const CMonDiskThread& m_monitor;
    const InstanceNames<char>& m_names;
    std::vector<SampleHistory> m_histories; // one for each name, in the same order
    std::uint32_t m_nAverage = 0;           // the latest one of any disk: a failure line shows it as it stands
    AlertState m_state;                     // one for all disks: a disk below the threshold re-arms it for the next
};

} // namespace

CMonDiskThread::CMonDiskThread() noexcept
{
    Log()->Level4A("CMonDiskThread construct -- without parameters.");
}

int CMonDiskThread::UpdateAlertPolicy()
{
    ReadAlertPolicy(*this, POLICY);
    return 0;
}

DWORD CMonDiskThread::Run()
{
    if (!EnterMonitorApartment(L"CMonDiskThread -- initialize COM interface failed(0x%08x)."))
    {
        return 1; // the object keeps its slot, nothing more is said
    }
    BeginMonitor(*this, L"[ID:%d]Monitor Disk Usage thread begin: Interval(%d)S, Threshold(%dMB/Sec), SamplingAmount "
                        L"InADay(%d), MaxAlertNum(%d)");
    // The two early ends below keep the slot and leave COM initialised.
    const InstanceNames<char> names = GetDiskNameList();
    if (names.empty())
    {
        Log()->Level1A("MonDiskThread --  Fail to get physical disk name list, exit!");
        return 1;
    }
    std::unique_ptr<DiskWatch> watch;
    try
    {
        watch = std::make_unique<DiskWatch>(*this, names);
    }
    catch (const std::bad_alloc&)
    {
        Log()->Level1A("MonDiskThread -- fail to alloc new buffer to all disk throughput, exit!");
        return 1;
    }
    RunCycles(*this, *watch, "CMonDiskThread");
    EndMonitor(this, g_pMonDiskThread, "Monitor Disk throughput thread end working...");
    return 1;
}

} // namespace varnex
