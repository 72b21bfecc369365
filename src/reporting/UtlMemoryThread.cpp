#include "reporting/UtlMemoryThread.h"

#include "entry/ModuleState.h"
#include "reporting/SamplerLoop.h"
#include "reporting/TraceFiles.h"
#include "reporting/UtilizationStores.h"
#include "sampling/MemorySampling.h"

namespace varnex
{

namespace
{

void LogTotalSizes() noexcept
{
    unsigned nPhysicalMB = 0;
    unsigned nPagingFileMB = 0;
    if (GetTotalMemorySize(&nPhysicalMB, &nPagingFileMB) == 0)
    {
        Log()->Level3A("MonPKIUtlMemoryThread -- Total physical memory(%dMB), Total paging file(%dMB).", nPhysicalMB,
                       nPagingFileMB);
    }
    else
    {
        Log()->Level3A("MonPKIUtlMemoryThread -- Get total physical memory(%dMB) and paging file(%dMB) size fail.",
                       nPhysicalMB, nPagingFileMB);
    }
}

void RunCycle(CPKIUtlMemoryThread& worker)
{
    wchar_t wszTime[TIME_CHARS];
    OpenCycle(worker, wszTime);
    unsigned nPhysical = 0;
    unsigned nPagingFile = 0;
    const int nResult = GetAvaMemoryUtilization(&nPhysical, &nPagingFile);
    if (nResult != 0)
    {
        // Whatever the text says, this cycle goes on and stores the failure.
        Log()->Level1A("MonPKIUtlMemoryThread -- get memory utilization fail(%d), next loop", nResult);
        nPhysical = static_cast<unsigned>(FAILED_SAMPLE);
        nPagingFile = static_cast<unsigned>(FAILED_SAMPLE);
    }
    if (!Stores().memory.Append(static_cast<int>(nPhysical), static_cast<int>(nPagingFile)))
    {
        return;
    }
    OutputCurrentMemUtil(wszTime);
    Log()->Level4W(L"MonPKIUtlMemoryThread -- (%s)(physical memory usage:%d, paging file usage:%d).", wszTime,
                   nPhysical, nPagingFile);
}

} // namespace

CPKIUtlMemoryThread::CPKIUtlMemoryThread() noexcept
{
    Log()->Level4A("CPKIUtlMemoryThread construct -- without parameters.");
}

int CPKIUtlMemoryThread::UpdateAlertPolicy()
{
    return 1;
}

DWORD CPKIUtlMemoryThread::Run()
{
    Log()->Level3A("MonPKIUtlMemoryThread --  Memory PKI Utilization thread begin...");
    LogTotalSizes();
    RunSamplerCycles(*this, "MonPKIUtlMemoryThread", [this] { RunCycle(*this); });
    DismantleWorker(this, g_pUtlMemoryThread);
    Log()->Level3A("MonPKIUtlMemoryThread -- Memory PKI Utilization thread exit...");
    return 1;
}

} // namespace varnex
