#include "SampleCounters.h"

#include "common/Pdh.h"
#include "sampling/CpuSampling.h"
#include "sampling/DiskSampling.h"

namespace varnex::host
{

namespace
{

constexpr DWORD PROBE_PAUSE_MS = 100;

PDH_STATUS ProbeQuery() noexcept
{
    UniquePdhQuery query;
    return PdhOpenQueryW(nullptr, 0, query.Receive());
}

// Reads a counter once for the status of the first step that fails: the module's operations turn some failures into a
// number.
PDH_STATUS ProbeCounter(const std::wstring& path) noexcept
{
    UniquePdhQuery query;
    UniquePdhCounter counter;
    PDH_STATUS nStatus = PdhOpenQueryW(nullptr, 0, query.Receive());
    if (nStatus != ERROR_SUCCESS)
    {
        return nStatus;
    }
    nStatus = PdhAddCounterW(query.Get(), path.c_str(), 0, counter.Receive());
    if (nStatus == ERROR_SUCCESS)
    {
        PdhCollectQueryData(query.Get()); // a rate needs two
        Sleep(PROBE_PAUSE_MS);
        nStatus = PdhCollectQueryData(query.Get());
    }
    if (nStatus == ERROR_SUCCESS)
    {
        PDH_FMT_COUNTERVALUE value{};
        nStatus = PdhGetFormattedCounterValue(counter.Get(), PDH_FMT_DOUBLE, nullptr, &value);
    }
    return nStatus;
}

} // namespace

std::wstring CounterPath(CounterRole object, const std::wstring& instance, CounterRole counter)
{
    wchar_t wszObject[OBJECT_NAME_CHARS] = L"";
    wchar_t wszCounter[SHORT_NAME_CHARS] = L"";
    ReadCounterName(object, wszObject);
    ReadCounterName(counter, wszCounter);
    return L"\\" + std::wstring(wszObject) + L"(" + instance + L")\\" + wszCounter;
}

void ProcessorReading::Take() noexcept
{
    nPercent = GetSpecialCPUUtilization(instance.c_str());
    if (nPercent <= 0) // idle, or failed
    {
        dwStatus = static_cast<DWORD>(nPercent < -1 ? nPercent : ProbeCounter(path));
    }
}

void DiskReading::Take() noexcept
{
    // Asked for before: where a query does not open, the measurement writes to the standard output.
    dwStatus = static_cast<DWORD>(ProbeQuery());
    if (dwStatus != ERROR_SUCCESS)
    {
        return;
    }
    dwStatus = static_cast<DWORD>(GetSingleDiskThroughput(instance.c_str(), &nBytesPerSecond));
    if (dwStatus == ERROR_SUCCESS && nBytesPerSecond <= 0)
    {
        dwStatus = static_cast<DWORD>(ProbeCounter(path));
    }
}

} // namespace varnex::host
