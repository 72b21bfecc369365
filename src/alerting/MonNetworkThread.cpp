#include "alerting/MonNetworkThread.h"

#include "alerting/AlertRecord.h"
#include "alerting/MonitorLoop.h"
#include "common/AnsiText.h"
#include "config/DailyCounters.h"
#include "entry/ModuleState.h"
#include "sampling/NetworkUtilizationCollector.h"
#include "sampling/SampleHistory.h"

#include <map>
#include <vector>

namespace varnex
{

namespace
{

constexpr AlertPolicy POLICY = {ALERT_TYPE_NETWORK, L"CMonNetworkThread", 90, 60, 5, 5};
constexpr std::size_t ANSI_NAME_CHARS = 256;

static_assert(NetworkCard::UTILIZATION_MISSING == SampleHistory::MISSING);

class NetworkWatch : public MonitorWatch
{
public:
    explicit NetworkWatch(const CMonNetworkThread& monitor) noexcept : m_monitor(monitor) {}

    // The first card list of the run.
    bool Begin()
    {
        return Refresh(L"MonNetworkThread -- initialize NetworkUtilizationCollector class failed(0x%08x).");
    }

    void Cycle()
    {
        m_nAmount = m_monitor.GetSamplingAmount();
        if (m_nAmount < 1)
        {
            return;
        }
        for (const NetworkCard& card : Measure())
        {
            SampleHistory& history = m_histories[card.InterfaceIndex];
            history.Append(card.Utilization);
            if (history.HoldsAtLeast(m_nAmount))
            {
                history.TrimTo(m_nAmount);
                Judge(card, history.AverageOfPresent(m_nAmount));
            }
        }
    }

    // After the wait, also when a stop was requested meanwhile. A list that cannot be refreshed ends the monitor.
    bool AfterWait()
    {
        for (auto& [dwInterfaceIndex, history] : m_histories) // adapters that have vanished keep theirs
        {
            if (history.HoldsAtLeast(m_nAmount))
            {
                history.DropOldest(); // the next pass's value restores the amount
            }
        }
        m_collector.ClearCardList();
        return Refresh(L"MonNetworkThread -- Refresh the network card list failed(0x%08x).");
    }

private:
    bool Refresh(const wchar_t* pwszFailure)
    {
        const HRESULT nResult = m_collector.RefreshCardList();
        if (FAILED(nResult))
        {
            Log()->Level1W(pwszFailure, nResult);
        }
        return SUCCEEDED(nResult);
    }

    // The cards with their utilization over a second; none when a collection failed.
    const std::vector<NetworkCard>& Measure() noexcept
    {
        unsigned nResult = m_collector.CollectUtilization();
        if (nResult == 0)
        {
            Sleep(1000);
            nResult = m_collector.CollectUtilization();
        }
        return nResult == 0 ? m_collector.CardList() : m_collector.EmptyCardList();
    }

    void Judge(const NetworkCard& card, int nAverage)
    {
        const AlertMoment moment;
        wchar_t wszHappenTime[TIME_CHARS];
        FormatLocalTimeW(moment.nSeconds, wszHappenTime);
        ReadTodaysCount(
            m_state, moment, ALERT_COUNTER_NETWORK,
            L"MonNetworkThread -- Get alert number from CFG file failed, input date(%s), error code(0x%08x). ");
        Log()->Level4W(L"MonNetworkThread -- Before Checking Alert Inf, NICName(%s), nAverageValue(%d%%), "
                       L"Threshold(%d%%), bReachThreshold_LastTime(%d), nTodaySentAlertNum(%d), MaxAlertNum "
                       L"InADay(%d), happenTime(%s).",
                       card.Name, nAverage, m_monitor.GetThreshold(), m_state.bReachThreshold_LastTime,
                       m_state.nTodaySentAlertNum, m_monitor.GetMaxAlertNum(), wszHappenTime);
        if (JudgeAverage(m_monitor, m_state, nAverage))
        {
            Log()->Level3W(L"MonNetworkThread -- NIC(%s) throughput(%d%%) reach threshold(%d%%), "
                           L"ALERT!!!bReachThreshold_LastTime(%d), nTodaySentAlertNum(%d), MaxAlertNum InADay(%d) and "
                           L"happenTime(%s)",
                           card.Name, nAverage, m_monitor.GetThreshold(), m_state.bReachThreshold_LastTime,
                           m_state.nTodaySentAlertNum, m_monitor.GetMaxAlertNum(), wszHappenTime);
            char szName[ANSI_NAME_CHARS];
            AnsiFromWide(szName, sizeof szName, card.Name);
            RaiseAlert(m_monitor, m_state, moment, ALERT_TYPE_NETWORK, ALERT_COUNTER_NETWORK, nAverage, szName);
        }
    }

    const CMonNetworkThread& m_monitor;
    NetworkUtilizationCollector m_collector;
    std::map<DWORD, SampleHistory> m_histories; // by interface index; adapters without one share key 0
    int m_nAmount = 0;                          // as read at the pass's begin
    AlertState m_state; // one for all adapters: an adapter below the threshold re-arms it for the next
};

} // namespace

CMonNetworkThread::CMonNetworkThread() noexcept
{
    Log()->Level4A("CMonNetworkThread construct -- without parameters.");
}

int CMonNetworkThread::UpdateAlertPolicy()
{
    ReadAlertPolicy(*this, POLICY);
    return 0;
}

DWORD CMonNetworkThread::Run()
{
    // Unlike the other monitors this one goes through its full end after any failure, and says so before it is freed.
    StopExceptions("CMonNetworkThread", false,
                   [this]
                   {
                       NetworkWatch watch(*this);
                       if (!EnterMonitorApartment(L"MonNetworkThread -- initialize COM interface failed(0x%08x).") ||
                           !watch.Begin())
                       {
                           return false;
                       }
                       BeginMonitor(*this,
                                    L"[ID:%d]Monitor Network utilization thread begin: Interval(%d)S, Threshold(%d%%), "
                                    L"SamplingAmount InADay(%d), MaxAlertNum(%d)");
                       RunCycles(*this, watch, "CMonNetworkThread");
                       return true;
                   });
    Log()->Level4A("Monitor Network throughput thread end working...");
    ThreadApartment::Leave(); // also after a CoInitialize that failed: it has always been so
    DismantleWorker(this, g_pMonNetworkThread);
    return 1;
}

} // namespace varnex
