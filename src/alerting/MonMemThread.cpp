#include "alerting/MonMemThread.h"

#include "alerting/AlertRecord.h"
#include "alerting/MonitorLoop.h"
#include "config/DailyCounters.h"
#include "entry/ModuleState.h"
#include "sampling/MemorySampling.h"
#include "sampling/SampleHistory.h"

namespace varnex
{

namespace
{

// The log names this class in its own way, here and nowhere else.
constexpr AlertPolicy POLICY = {ALERT_TYPE_MEMORY, L"CMonMemoryThread", 90, 85, 5, 5};

// One of the two kinds of memory: its samples, its flag and count, its texts.
struct MemoryKind
{
    const int nCounter;
    const char* const pszResourceName;
    const wchar_t* const pwszCountFailure;
    const wchar_t* const pwszAlert;
    SampleHistory history = {};
    AlertState state = {};
};

class MemoryWatch : public MonitorWatch
{
public:
    explicit MemoryWatch(const CMonMemThread& monitor) noexcept : m_monitor(monitor) {}

    void Cycle()
    {
        SampleAndJudge(
            m_monitor, m_physical.history, L"MonMemThread -- Get Memory average utilization value fail, next loop.",
            [this](int nAmount) { return TakeSample(nAmount); },
            [this](int nAmount) { Judge(m_physical.history.Average(nAmount), m_pagingFile.history.Average(nAmount)); });
    }

private:
    // The percentages are taken without a check of their range.
    bool TakeSample(int nAmount)
    {
        unsigned nPhysical = 0;
        unsigned nPagingFile = 0;
        const int nResult = GetAvaMemoryUtilization(&nPhysical, &nPagingFile);
        if (nResult != 0)
        {
            Log()->Level1W(L"GetMemoryUtilizationAverage -- get memory utilization (%d)", nResult);
            return false;
        }
        // Room in both first: without memory for one neither grows, and they stay equally long.
        m_physical.history.MakeRoom();
        m_pagingFile.history.MakeRoom();
        m_physical.history.Append(nPhysical);
        m_pagingFile.history.Append(nPagingFile);
        m_physical.history.TrimTo(nAmount);
        m_pagingFile.history.TrimTo(nAmount);
        return true;
    }

    void Judge(int nPhysicalAverage, int nPagingFileAverage)
    {
        const AlertMoment moment;
        ReadTodaysCount(m_physical.state, moment, m_physical.nCounter, m_physical.pwszCountFailure);
        ReadTodaysCount(m_pagingFile.state, moment, m_pagingFile.nCounter, m_pagingFile.pwszCountFailure);
        // A narrow line that is given the wide date: it shows the date's first character, and readers know it so.
        Log()->Level4A("MonMemThread -- Before Checking Alert Inf, nPhysicalAverageValue(%d), "
                       "nPagingFileAverageValue(%d),  Threshold(%d), bPhysical_ReachThreshold_LastTime(%d), "
                       "bPagingFile_ReachThreshold_LastTime(%d), nTodaySentAlertNum_PhysicalMemory(%d), "
                       "nTodaySentAlertNum_Pagingfile(%d), MaxAlertNum InADay(%d), current date(%s).",
                       nPhysicalAverage, nPagingFileAverage, m_monitor.GetThreshold(),
                       m_physical.state.bReachThreshold_LastTime, m_pagingFile.state.bReachThreshold_LastTime,
                       m_physical.state.nTodaySentAlertNum, m_pagingFile.state.nTodaySentAlertNum,
                       m_monitor.GetMaxAlertNum(), moment.wszDate);
        JudgeKind(m_physical, moment, nPhysicalAverage);
        JudgeKind(m_pagingFile, moment, nPagingFileAverage);
    }

    void JudgeKind(MemoryKind& kind, const AlertMoment& moment, int nAverage)
    {
        if (JudgeAverage(m_monitor, kind.state, nAverage))
        {
            Log()->Level3W(kind.pwszAlert, nAverage, m_monitor.GetThreshold(), kind.state.bReachThreshold_LastTime,
                           kind.state.nTodaySentAlertNum, m_monitor.GetMaxAlertNum(), moment.wszDate);
            RaiseAlert(m_monitor, kind.state, moment, ALERT_TYPE_MEMORY, kind.nCounter, nAverage, kind.pszResourceName);
        }
    }

    const CMonMemThread& m_monitor;
    MemoryKind m_physical = {
        ALERT_COUNTER_PHYSICAL_MEMORY, PHYSICAL_MEMORY_NAME,
        L"MonMemThread -- Get physical memory alert number from CFG file failed, input date(%s), error code(0x%08x). ",
        L"MonMemThread -- Physical Memory utilization(%d%%) reach threshold(%d%%), "
        L"ALERT!!!bReachThreshold_LastTime(%d), nTodaySentAlertNum(%d), MaxAlertNum InADay(%d), current date(%s)"};
    MemoryKind m_pagingFile = {
        ALERT_COUNTER_PAGING_FILE, PAGING_FILE_NAME,
        L"MonMemThread -- Get paging file alert number from CFG file failed, input date(%s), error code(0x%08x). ",
        L"MonMemThread -- Paging file Memory utilization(%d%%) reach threshold(%d%%), "
        L"ALERT!!!bReachThreshold_LastTime(%d), nTodaySentAlertNum(%d), MaxAlertNum InADay(%d), current date(%s)"};
};

} // namespace

CMonMemThread::CMonMemThread() noexcept
{
    Log()->Level4A("CMonMemThread construct -- without parameters.");
}

int CMonMemThread::UpdateAlertPolicy()
{
    ReadAlertPolicy(*this, POLICY);
    return 0;
}

DWORD CMonMemThread::Run()
{
    if (!EnterMonitorApartment(L"MonMemThread -- initialize COM interface failed(0x%08x)."))
    {
        return 1; // the object keeps its slot, nothing more is said
    }
    BeginMonitor(*this, L"[ID:%d]Monitor Memory Usage thread begin: Interval(%d)S, Threshold(%d%%), SamplingAmount "
                        L"InADay(%d), MaxAlertNum(%d)");
    MemoryWatch watch(*this);
    RunCycles(*this, watch, "CMonMemThread");
    EndMonitor(this, g_pMonMemThread, "Monitor Memory Utilization thread end working...");
    return 1;
}

} // namespace varnex
