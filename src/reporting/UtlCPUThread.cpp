#include "reporting/UtlCPUThread.h"

#include "common/Com.h"
#include "common/LocalTime.h"
#include "config/XmlConfig.h"
#include "entry/ModuleState.h"
#include "reporting/SamplerLoop.h"
#include "reporting/TraceFiles.h"
#include "reporting/UtilizationStores.h"
#include "sampling/CpuSampling.h"

namespace varnex
{

namespace
{

using Names = NamedHistories<int>::Names;

// Null (logged) when there is nothing to sample.
std::shared_ptr<const Names> BeginHistories()
{
    try
    {
        Names names = GetCPUNameListW();
        const bool bEmpty = names.empty();
        auto published = Stores().cpu.Publish(std::move(names));
        if (!bEmpty)
        {
            return published;
        }
        Log()->Level1A("MonPKIUtlCPUThread --  Fail to get CPU name list, Exit!");
    }
    catch (const std::bad_alloc&)
    {
        Log()->Level1A("MonPKIUtlCPUThread -- fail to alloc CPU utilization list, exit!");
    }
    return nullptr;
}

int SampleProcessor(const wchar_t* pwszName)
{
    const int nUtilization = GetSpecialCPUUtilization(pwszName);
    if (nUtilization >= 0 && nUtilization <= 100)
    {
        return nUtilization;
    }
    Log()->Level1W(L"MonPKIUtlCPUThread -- fail to get CPU(%s) utilization, return value(%d).", pwszName, nUtilization);
    return FAILED_SAMPLE;
}

void RunCycle(CPKIUtlCPUThread& worker, const Names& names)
{
    worker.UpdateAlertPolicy();
    wchar_t wszTime[TIME_CHARS];
    FormatLocalTimeW(SecondsNow(), wszTime);
    for (std::size_t i = 0; i < names.size(); ++i)
    {
        if (!worker.IsRunning())
        {
            return; // many idle processors take longer than a stop waits
        }
        const int nSample = SampleProcessor(names[i].get());
        Stores().cpu.Append(i, nSample);
        Log()->Level4W(L"MonPKIUtlCPUThread -- (%s)(CPU:%s) usage value(%d)", wszTime, names[i].get(), nSample);
    }
    OutputCurrentCPUUtil(wszTime, names.size());
}

} // namespace

CPKIUtlCPUThread::CPKIUtlCPUThread() noexcept
{
    Log()->Level4A("CPKIUtlCPUThread construct -- without parameters.");
}

int CPKIUtlCPUThread::UpdateAlertPolicy()
{
    RefreshLogLevel();
    return 1;
}

DWORD CPKIUtlCPUThread::Run()
{
    Log()->Level3A("MonPKIUtlCPUThread --  CPU PKI Utilization thread begin...");
    const ThreadApartment apartment(RPC_E_CHANGED_MODE, COINIT_MULTITHREADED);
    if (!apartment.Usable())
    {
        Log()->Level1A("MonPKIUtlCPUThread -- initialize COM interface failed(0x%08x).", apartment.Result());
        return static_cast<DWORD>(-1);
    }
    const auto names = BeginHistories();
    if (names == nullptr)
    {
        return 1; // keeps its slot and leaves COM initialised
    }
    RunSamplerCycles(*this, "MonPKIUtlCPUThread", [&] { RunCycle(*this, *names); });
    DismantleWorker(this, g_pUtlCPUThread);
    Log()->Level3A("MonPKIUtlCPUThread --  CPU PKI Utilization thread exit...");
    ThreadApartment::Leave();
    return 1;
}

} // namespace varnex
