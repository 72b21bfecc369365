#include "sampling/CpuSampling.h"

#include "common/BoundedText.h"
#include "common/Handles.h"
#include "common/Locks.h"
#include "common/Pdh.h"
#include "common/Procedure.h"
#include "diag/SPLogger.h"
#include "sampling/CounterNames.h"
#include "sampling/InstanceEnumeration.h"

#include <cmath>
#include <cstdint>
#include <utility>

namespace varnex
{

namespace
{

constexpr std::size_t COUNTER_PATH_CHARS = 1024;
constexpr int LAST_RETRY = 5; // at most six readings
constexpr DWORD REUSE_MS = 200;

using GetSystemTimesFunction = BOOL(WINAPI*)(LPFILETIME, LPFILETIME, LPFILETIME);

RecoverableLock g_cpuReadingLock;
HMODULE g_hKernel32 VARNEX_GUARDED_BY(g_cpuReadingLock) = nullptr;
GetSystemTimesFunction g_pfnGetSystemTimes VARNEX_GUARDED_BY(g_cpuReadingLock) = nullptr;
DWORD g_dwLastTick VARNEX_GUARDED_BY(g_cpuReadingLock) = 0;
int g_nLastCPUUtl VARNEX_GUARDED_BY(g_cpuReadingLock) = 0;
std::int64_t g_llLastUser VARNEX_GUARDED_BY(g_cpuReadingLock) = 0;
std::int64_t g_llLastKernel VARNEX_GUARDED_BY(g_cpuReadingLock) = 0;
std::int64_t g_llLastIdle VARNEX_GUARDED_BY(g_cpuReadingLock) = 0;

std::int64_t Ticks(const FILETIME& time) noexcept
{
    ULARGE_INTEGER nTicks;
    nTicks.LowPart = time.dwLowDateTime;
    nTicks.HighPart = time.dwHighDateTime;
    return static_cast<std::int64_t>(nTicks.QuadPart);
}

// Looked up afresh at each reading. The library stays loaded once more each time: a known growth of its count.
void FindGetSystemTimes() noexcept VARNEX_REQUIRES(g_cpuReadingLock)
{
    UniqueModule kernel32(LoadLibraryA("Kernel32.dll"));
    g_pfnGetSystemTimes = kernel32 ? ProcedureOf<GetSystemTimesFunction>(kernel32.Get(), "GetSystemTimes") : nullptr;
    g_hKernel32 = g_pfnGetSystemTimes != nullptr ? kernel32.Release() : nullptr;
}

int PercentOf(std::int64_t nPart, std::int64_t nWhole) noexcept
{
    constexpr std::int64_t LIMIT = INT64_MAX / 100;
    if (nPart > LIMIT || nPart < -LIMIT) // five busy years of 64 processors, and the first reading is of them all
    {
        nPart /= 128;
        nWhole /= 128;
    }
    return nWhole == 0 ? 0 : static_cast<int>(nPart * 100 / nWhole);
}

void TakeReading() noexcept VARNEX_REQUIRES(g_cpuReadingLock)
{
    FILETIME idle{};
    FILETIME kernel{};
    FILETIME user{};
    if (g_pfnGetSystemTimes != nullptr)
    {
        g_pfnGetSystemTimes(&idle, &kernel, &user);
    }
    g_dwLastTick = GetTickCount();

    const std::int64_t nUser = Ticks(user) - g_llLastUser;
    const std::int64_t nKernel = Ticks(kernel) - g_llLastKernel;
    const std::int64_t nIdle = Ticks(idle) - g_llLastIdle;
    const std::int64_t nTotal = nKernel + nUser; // the kernel's time includes the idle time
    g_nLastCPUUtl = PercentOf(nTotal - nIdle, nTotal);
    g_llLastUser = Ticks(user);
    g_llLastKernel = Ticks(kernel);
    g_llLastIdle = Ticks(idle);
}

// The value truncated towards zero, or -1 for one that no 32-bit percentage can hold.
int WholePercent(double dValue) noexcept
{
    constexpr double LIMIT = 2147483648.0; // 2 to the 31st
    if (std::isnan(dValue) || dValue <= -LIMIT - 1 || dValue >= LIMIT)
    {
        return -1;
    }
    return static_cast<int>(dValue);
}

bool BuildCounterPath(const wchar_t* pwszCPUName, wchar_t (&wszPath)[COUNTER_PATH_CHARS]) noexcept
{
    wchar_t wszObject[OBJECT_NAME_CHARS];
    if (!VNXGetStringW(IDS_PROCESSOR_OBJECT, wszObject, OBJECT_NAME_CHARS))
    {
        Log()->Level2A("GetSpecialCPUUtilization -- fail to get processor interface name from resource[%d], exit....",
                       -1);
        return false;
    }
    wchar_t wszCounter[SHORT_NAME_CHARS];
    if (!VNXGetStringW(IDS_PROCESSOR_TIME, wszCounter, SHORT_NAME_CHARS))
    {
        Log()->Level2A("GetSpecialCPUUtilization -- fail to get processor time resource string[%d], exit....", -1);
        return false;
    }
    FormatTextW(wszPath, L"\\%s(%s)\\%s", wszObject, pwszCPUName, wszCounter);
    return true;
}

// Reads until the counter gives something else than zero, or the retries are used up. Two collections without a pause
// make the first reading zero more often than not; the second between the readings gives the rate its interval.
int ReadBusyPercent(UniquePdhQuery& query, UniquePdhCounter& counter, const wchar_t* pwszCPUName) noexcept
{
    for (int nRetry = 0;; ++nRetry)
    {
        PDH_FMT_COUNTERVALUE value{};
        PdhGetFormattedCounterValue(counter.Get(), PDH_FMT_DOUBLE, nullptr, &value); // only the second reading counts
        const PDH_STATUS nStatus = PdhGetFormattedCounterValue(counter.Get(), PDH_FMT_DOUBLE, nullptr, &value);
        if (nStatus == ERROR_SUCCESS)
        {
            if (value.doubleValue != 0.0 || nRetry >= LAST_RETRY)
            {
                return WholePercent(value.doubleValue);
            }
            Sleep(1000);
        }
        else
        {
            Log()->Level4W(L"GetCPUUtilization -- PdhGetFormattedCounterValue failed, CPU counter name(%s), error "
                           L"code(0x%08x)",
                           pwszCPUName, nStatus);
            if (nRetry >= LAST_RETRY)
            {
                Log()->Level4A("GetCPUUtilization -- PdhGetFormattedCounterValue fail too many times(0x%08x), "
                               "exit...\n",
                               nStatus);
                // The query stays open here: a known cost of this failure.
                (void)counter.Release();
                (void)query.Release();
                return -1;
            }
        }
        if (PdhCollectQueryData(query.Get()) != ERROR_SUCCESS)
        {
            return 0;
        }
    }
}

} // namespace

int GetCPUUtlAverage() noexcept
{
    const RecoverableLockHold hold(g_cpuReadingLock);
    FindGetSystemTimes();
    if (GetTickCount() - g_dwLastTick > REUSE_MS)
    {
        TakeReading();
    }
    return g_nLastCPUUtl;
}

InstanceNames<wchar_t> GetCPUNameListW()
{
    InstanceEnumeration<wchar_t> found = EnumerateInstances<wchar_t>(IDS_PROCESSOR_OBJECT);
    switch (found.end)
    {
    case EnumerationEnd::NoObjectName:
        Log()->Level2A("GetCPUNameListW -- fail to get processor interface name from resource[%d], exit....",
                       found.nStatus);
        break;
    case EnumerationEnd::NoTotalName:
        Log()->Level2A("GetCPUNameListW -- fail to get processor total resource string[%d], exit....", found.nStatus);
        break;
    case EnumerationEnd::Failed:
        Log()->Level2A("GetCPUNameListW -- ERROR to get processor interface instance[1],PdhEnumObjectItemsHA(0x%08x).",
                       found.nStatus);
        break;
    case EnumerationEnd::NoInstances:
        Log()->Level2A("GetCPUNameListW -- ERROR to get processor interface instance[2], PdhEnumObjectItemsHA(0x%08x).",
                       found.nStatus);
        break;
    case EnumerationEnd::Listed: // also when only the aggregate instance was there
        Log()->Level3A("GetCPUNameListW -- get processor name instance finish.");
        break;
    }
    return std::move(found.names);
}

int GetSpecialCPUUtilization(const wchar_t* pwszCPUName) noexcept
{
    if (pwszCPUName == nullptr)
    {
        Log()->Level2A("GetCPUUtilization -- checking parameters fail, pwszCPUName(%p), exit...\n", nullptr);
        return -1;
    }
    wchar_t wszPath[COUNTER_PATH_CHARS];
    if (!BuildCounterPath(pwszCPUName, wszPath))
    {
        return -1;
    }
    UniquePdhQuery query;
    PDH_STATUS nStatus = PdhOpenQueryW(nullptr, 0, query.Receive());
    if (nStatus != ERROR_SUCCESS)
    {
        const DWORD dwError = GetLastError(); // shown in place of the status, which is returned
        Log()->Level2A("GetCPUUtilization -- Open PDH failed(0x%08x), exit...\n", dwError);
        return nStatus;
    }
    UniquePdhCounter counter; // after the query, so that it is removed before the query is closed
    nStatus = PdhAddCounterW(query.Get(), wszPath, 0, counter.Receive());
    if (nStatus != ERROR_SUCCESS)
    {
        Log()->Level2W(L"GetSpecialCPUUtilization -- PdhAddCounterW(%s) failed[0x%08x], exit....", wszPath, nStatus);
        return nStatus;
    }
    PdhCollectQueryData(query.Get()); // its result does not count
    nStatus = PdhCollectQueryData(query.Get());
    if (nStatus != ERROR_SUCCESS)
    {
        Log()->Level2A("GetSpecialCPUUtilization -- PdhCollectQueryData failed[0x%08x], exit....", nStatus);
        return nStatus;
    }
    return ReadBusyPercent(query, counter, pwszCPUName);
}

} // namespace varnex
