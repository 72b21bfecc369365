#include "reporting/UtlCPUThread.h"

#include "common/Com.h"
#include "config/XmlConfig.h"
#include "entry/ModuleState.h"
#include "reporting/NamedSampler.h"
#include "reporting/SamplerLoop.h"
#include "reporting/TraceFiles.h"
#include "sampling/CpuSampling.h"

namespace varnex
{

namespace
{

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

void RunCycle(CPKIUtlCPUThread& worker, const SampledNames& names)
{
    wchar_t wszTime[TIME_CHARS];
    OpenCycle(worker, wszTime);
    if (SampleInstances(worker, Stores().cpu, names, SampleProcessor,
                        L"MonPKIUtlCPUThread -- (%s)(CPU:%s) usage value(%d)", wszTime))
    {
        OutputCurrentCPUUtil(wszTime, names.size());
    }
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
    const auto names =
        BeginHistories(Stores().cpu, GetCPUNameListW, "MonPKIUtlCPUThread --  Fail to get CPU name list, Exit!",
                       "MonPKIUtlCPUThread -- fail to alloc CPU utilization list, exit!");
    if (names == nullptr)
    {
        return 1; // keeps its slot and leaves COM initialised
    }
    RunSamplerCycles(*this, "MonPKIUtlCPUThread", [&] { RunCycle(*this, *names); });
    DismantleWorker(this, g_pUtlCPUThread);
    Log()->Level3A("MonPKIUtlCPUThread --  CPU PKI Utilization thread exit...");
    ThreadApartment::Leave(); // also after a refusal that was tolerated, once too often: it has always been so
    return 1;
}

} // namespace varnex
