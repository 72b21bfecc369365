#include "reporting/UtlNetworkThread.h"

#include "common/Com.h"
#include "common/LocalTime.h"
#include "entry/ModuleState.h"
#include "reporting/SamplerLoop.h"
#include "reporting/TraceFiles.h"
#include "reporting/UtilizationStores.h"

namespace varnex
{

namespace
{

void RefreshCards(const char* pszFailure)
{
    NetworkHistories& store = Stores().network;
    const StoreLockHold hold(store.lock); // taken again by a cycle that holds it
    if (!hold)
    {
        return;
    }
    store.collector.ClearCardList();
    const HRESULT nResult = store.collector.RefreshCardList();
    if (FAILED(nResult))
    {
        Log()->Level1A(pszFailure, nResult);
    }
}

// Adds a record of each card over a second; nothing when a collection failed.
void SampleCards(NetworkHistories& store) VARNEX_REQUIRES(store.lock)
{
    if (store.collector.CollectUtilization() != 0)
    {
        return;
    }
    Sleep(1000);
    if (store.collector.CollectUtilization() != 0)
    {
        return;
    }
    for (const NetworkCard& card : store.collector.CardList())
    {
        store.Append(card);
    }
}

// The lock is held for the whole of it, the second between the collections and the refresh included.
void RunCycle(CPKIUtlNetworkThread& worker)
{
    NetworkHistories& store = Stores().network;
    const StoreLockHold hold(store.lock);
    if (!hold)
    {
        return;
    }
    wchar_t wszTime[TIME_CHARS];
    FormatLocalTimeW(SecondsNow(), wszTime);
    SampleCards(store);
    OutputCurrentNetworkUtil(wszTime);
    worker.UpdateAlertPolicy();
}

} // namespace

CPKIUtlNetworkThread::CPKIUtlNetworkThread() noexcept
{
    Log()->Level4A("CPKIUtlNetworkThread construct -- without parameters.");
}

int CPKIUtlNetworkThread::UpdateAlertPolicy()
{
    RefreshCards("CPKIUtlNetworkThread -- Update Network Card Info failed(0x%08x).");
    return 1;
}

DWORD CPKIUtlNetworkThread::Run()
{
    Log()->Level3A("MonPKIUtlNetworkThread -- Network PKI Utilization thread begin...");
    const ThreadApartment apartment(RPC_E_CHANGED_MODE, COINIT_MULTITHREADED);
    if (!apartment.Usable())
    {
        Log()->Level1A("CPKIUtlNetworkThread -- initialize COM interface failed(0x%08x).", apartment.Result());
        return static_cast<DWORD>(-1);
    }
    StopExceptions("CPKIUtlNetworkThread", false,
                   []
                   {
                       RefreshCards("CPKIUtlNetworkThread -- MainThread -- Update Network Card Info failed(0x%08x).");
                       return true;
                   });
    RunSamplerCycles(*this, "CPKIUtlNetworkThread", [this] { RunCycle(*this); });
    DismantleWorker(this, g_pUtlNetworkThread);
    Log()->Level3A("MonPKIUtlNetworkThread -- Network PKI Utilization thread end...");
    ThreadApartment::Leave(); // also after a refusal that was tolerated, once too often: it has always been so
    return 1;
}

} // namespace varnex
