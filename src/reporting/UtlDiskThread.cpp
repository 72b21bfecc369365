#include "reporting/UtlDiskThread.h"

#include "common/AnsiText.h"
#include "entry/ModuleState.h"
#include "reporting/NamedSampler.h"
#include "reporting/SamplerLoop.h"
#include "reporting/TraceFiles.h"
#include "sampling/DiskSampling.h"

namespace varnex
{

namespace
{

constexpr std::size_t ANSI_NAME_CHARS = 128;

// The single measurement for a wide name. The check is for form's sake: the enumeration gives no null name. It is
// logged, not printed as the 8-bit measurement's own is, since a host's standard output goes nowhere; the text's line
// end leaves an empty line in the log.
int GetSingleDiskThroughputW(const wchar_t* pwszDiskName, std::int64_t* pnBytesPerSecond)
{
    if (pwszDiskName == nullptr)
    {
        Log()->Level1A("GetSingleDiskThroughputW -- checking parameters fail, pwszDiskName(%p), pnDiskThroughput(%p), "
                       "exit!\n",
                       pwszDiskName, pnBytesPerSecond);
        return -1;
    }
    char szDiskName[ANSI_NAME_CHARS];
    AnsiFromWide(szDiskName, sizeof szDiskName, pwszDiskName);
    return GetSingleDiskThroughput(szDiskName, pnBytesPerSecond);
}

std::int64_t SampleDisk(const wchar_t* pwszName)
{
    std::int64_t nBytesPerSecond = FAILED_SAMPLE; // stays so when a later collection fails
    const int nResult = GetSingleDiskThroughputW(pwszName, &nBytesPerSecond);
    if (nResult == 0)
    {
        return nBytesPerSecond;
    }
    // The name where the text takes a number: the text stays as it is, and shows the low bits of an address.
    Log()->Level1W(L"MonPKIUtlDiskThread -- fail to get disk(%d) throughput, return value(%d).", pwszName, nResult);
    return FAILED_SAMPLE;
}

void RunCycle(CPKIUtlDiskThread& worker, const SampledNames& names)
{
    wchar_t wszTime[TIME_CHARS];
    OpenCycle(worker, wszTime);
    if (SampleInstances(worker, Stores().disk, names, SampleDisk,
                        L"MonPKIUtlDiskThread -- (%s)(Disk:%s) throughput(%lld B/S)", wszTime))
    {
        OutputCurrentDiskUtil(wszTime);
    }
}

} // namespace

CPKIUtlDiskThread::CPKIUtlDiskThread() noexcept
{
    Log()->Level4A("CPKIUtlDiskThread construct -- without parameters.");
}

int CPKIUtlDiskThread::UpdateAlertPolicy()
{
    return 1;
}

DWORD CPKIUtlDiskThread::Run()
{
    Log()->Level3A("MonPKIUtlDiskThread --  Physical Disk PKI Utilization thread begin...");
    const auto names =
        BeginHistories(Stores().disk, GetDiskNameListW, "MonPKIUtlDiskThread --  Fail to get Disk name list, Exit!",
                       "MonPKIUtlDiskThread -- fail to alloc physical disk list, exit!");
    if (names == nullptr)
    {
        return 1; // keeps its slot
    }
    RunSamplerCycles(*this, "MonPKIUtlDiskThread", [&] { RunCycle(*this, *names); });
    DismantleWorker(this, g_pUtlDiskThread);
    Log()->Level3A("MonPKIUtlDiskThread --  Physical Disk PKI Utilization thread exit...");
    return 1;
}

} // namespace varnex
