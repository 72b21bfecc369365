#include "reporting/UtlDiskThread.h"

#include "common/AnsiText.h"
#include "common/LocalTime.h"
#include "entry/ModuleState.h"
#include "reporting/SamplerLoop.h"
#include "reporting/TraceFiles.h"
#include "reporting/UtilizationStores.h"
#include "sampling/DiskSampling.h"

namespace varnex
{

namespace
{

using Names = NamedHistories<std::int64_t>::Names;

constexpr std::size_t ANSI_NAME_CHARS = 128;

// Null (logged) when there is nothing to sample.
std::shared_ptr<const Names> BeginHistories()
{
    try
    {
        Names names = GetDiskNameListW();
        const bool bEmpty = names.empty();
        auto published = Stores().disk.Publish(std::move(names));
        if (!bEmpty)
        {
            return published;
        }
        Log()->Level1A("MonPKIUtlDiskThread --  Fail to get Disk name list, Exit!");
    }
    catch (const std::bad_alloc&)
    {
        Log()->Level1A("MonPKIUtlDiskThread -- fail to alloc physical disk list, exit!");
    }
    return nullptr;
}

// The single measurement for a wide name.
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

void RunCycle(CPKIUtlDiskThread& worker, const Names& names)
{
    worker.UpdateAlertPolicy();
    wchar_t wszTime[TIME_CHARS];
    FormatLocalTimeW(SecondsNow(), wszTime);
    for (std::size_t i = 0; i < names.size(); ++i)
    {
        if (!worker.IsRunning())
        {
            return; // many idle disks take longer than a stop waits
        }
        const std::int64_t nSample = SampleDisk(names[i].get());
        Stores().disk.Append(i, nSample);
        Log()->Level4W(L"MonPKIUtlDiskThread -- (%s)(Disk:%s) throughput(%lld B/S)", wszTime, names[i].get(), nSample);
    }
    OutputCurrentDiskUtil(wszTime);
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
    const auto names = BeginHistories();
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
