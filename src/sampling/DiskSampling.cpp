#include "sampling/DiskSampling.h"

#include "common/BoundedText.h"
#include "common/Pdh.h"
#include "diag/SPLogger.h"
#include "sampling/CounterNames.h"
#include "sampling/InstanceEnumeration.h"

#include <cmath>
#include <cstdio>
#include <utility>

namespace varnex
{

namespace
{

constexpr std::size_t COUNTER_PATH_CHARS = 512;
constexpr int MAX_RETRIES = 5;
constexpr std::int64_t BYTES_PER_MB = 1'048'576;

template <class... Arguments>
void PrintToStandardOutput(const char* pszFormat, Arguments... arguments) noexcept
{
    char szText[256];
    FormatTextA(szText, pszFormat, arguments...);
    std::fputs(szText, stdout);
    std::fflush(stdout);
}

// The value truncated towards zero; 0, which counts as missing, for one that is no number or has no place in 64 bits.
std::int64_t WholeBytes(double dValue) noexcept
{
    constexpr double LIMIT = 9223372036854775808.0; // 2 to the 63rd
    return std::isnan(dValue) || dValue < -LIMIT || dValue >= LIMIT ? 0 : static_cast<std::int64_t>(dValue);
}

// The counter's value as asked for once; false for a failed reading and for a missing value.
bool ReadBytesPerSecond(PDH_HCOUNTER hCounter, PDH_FMT_COUNTERVALUE& value, std::int64_t& nBytes) noexcept
{
    if (PdhGetFormattedCounterValue(hCounter, PDH_FMT_DOUBLE, nullptr, &value) != ERROR_SUCCESS)
    {
        return false;
    }
    nBytes = WholeBytes(value.doubleValue);
    return nBytes != 0;
}

// Reads until there is a value, the retries are used up or a collection fails.
void ReadWithRetries(PDH_HQUERY hQuery, PDH_HCOUNTER hCounter, const char* pszDiskName, PDH_FMT_COUNTERVALUE& value,
                     std::int64_t* pnBytesPerSecond) noexcept
{
    for (int nTries = 1;; ++nTries)
    {
        std::int64_t nBytes = 0;
        if (ReadBytesPerSecond(hCounter, value, nBytes))
        {
            *pnBytesPerSecond = nBytes;
            return;
        }
        Sleep(1000);
        const PDH_STATUS nStatus = PdhCollectQueryData(hQuery);
        if (nTries > MAX_RETRIES)
        {
            Log()->Level4A("GetSingleDiskThroughput -- PdhGetFormattedCounterValuefail too many times(%d), "
                           "diskName(%s), exit...",
                           MAX_RETRIES, pszDiskName);
            *pnBytesPerSecond = 0;
            return;
        }
        if (nStatus != ERROR_SUCCESS)
        {
            return;
        }
    }
}

int BuildCounterPath(const char* pszDiskName, char (&szPath)[COUNTER_PATH_CHARS]) noexcept
{
    char szObject[OBJECT_NAME_CHARS];
    int nStatus = ReadCounterName(IDS_PHYSICAL_DISK_OBJECT, szObject);
    if (nStatus != 0)
    {
        Log()->Level2A("GetSingleDiskThroughput -- fail to get physical disk interface name from resource[%d], "
                       "exit....",
                       nStatus);
        return nStatus;
    }
    char szCounter[SHORT_NAME_CHARS];
    nStatus = ReadCounterName(IDS_DISK_BYTES_PER_SEC, szCounter);
    if (nStatus != 0)
    {
        Log()->Level2A("GetSingleDiskThroughput -- fail to get physical disk Byte/Sec resource string[%d], exit....",
                       nStatus);
        return nStatus;
    }
    FormatTextA(szPath, "\\%s(%s)\\%s", szObject, pszDiskName, szCounter);
    return 0;
}

// The messages of both enumerations.
constexpr char NO_OBJECT_NAME[] =
    "GetDiskNameList -- fail to get physical disk interface name from resource[%d], exit....";
constexpr char NO_TOTAL_NAME[] = "GetDiskNameList -- fail to get physical disk total resource string[%d], exit....";

} // namespace

InstanceNames<char> GetDiskNameList()
{
    InstanceEnumeration<char> found = EnumerateInstances<char>(IDS_PHYSICAL_DISK_OBJECT);
    switch (found.end)
    {
    case EnumerationEnd::NoObjectName:
        Log()->Level2A(NO_OBJECT_NAME, found.nStatus);
        break;
    case EnumerationEnd::NoTotalName:
        Log()->Level2A(NO_TOTAL_NAME, found.nStatus);
        break;
    case EnumerationEnd::Failed:
        PrintToStandardOutput(
            "GetDiskNameList -- ERROR to get physical disk interface[1], PdhEnumObjectItemsHA(0x%08x).\n",
            found.nStatus);
        break;
    case EnumerationEnd::NoInstances:
        PrintToStandardOutput(
            "GetDiskNameList -- ERROR to get physical disk interface[2], PdhEnumObjectItemsHA(0x%08x).\n",
            found.nStatus);
        break;
    case EnumerationEnd::Listed:
        break;
    }
    return std::move(found.names);
}

InstanceNames<wchar_t> GetDiskNameListW()
{
    InstanceEnumeration<wchar_t> found = EnumerateInstances<wchar_t>(IDS_PHYSICAL_DISK_OBJECT);
    switch (found.end)
    {
    case EnumerationEnd::NoObjectName:
        Log()->Level2A(NO_OBJECT_NAME, found.nStatus);
        break;
    case EnumerationEnd::NoTotalName:
        Log()->Level2A(NO_TOTAL_NAME, found.nStatus);
        break;
    case EnumerationEnd::Failed:
        Log()->Level1A("GetDiskNameListW -- ERROR to get physical disk interface[1],PdhEnumObjectItemsHA(0x%08x).",
                       found.nStatus);
        break;
    case EnumerationEnd::NoInstances:
        Log()->Level1A("GetDiskNameListW -- ERROR to get physical disk interface[2],PdhEnumObjectItemsHA(0x%08x).",
                       found.nStatus);
        break;
    case EnumerationEnd::Listed:
        break;
    }
    return std::move(found.names);
}

int GetSingleDiskThroughput(const char* pszDiskName, std::int64_t* pnBytesPerSecond) noexcept
{
    if (pszDiskName == nullptr || pnBytesPerSecond == nullptr)
    {
        // Names the averaging operation, and readers of the output know it so.
        PrintToStandardOutput("GetDiskAverageThroughput -- checking parameters fail, pszDiskName(%p), "
                              "pnDiskThroughput(%p), exit!\n",
                              pszDiskName, pnBytesPerSecond);
        return -1;
    }
    char szPath[COUNTER_PATH_CHARS];
    const int nLookup = BuildCounterPath(pszDiskName, szPath);
    if (nLookup != 0)
    {
        return nLookup;
    }
    UniquePdhQuery query;
    const PDH_STATUS nOpened = PdhOpenQueryA(nullptr, 0, query.Receive());
    if (nOpened != ERROR_SUCCESS)
    {
        PrintToStandardOutput("GetSingleDiskThroughput -- Open PDH failed(0x%08x), exit!\n", GetLastError());
        return nOpened;
    }
    UniquePdhCounter counter; // after the query, so that it is removed before the query is closed
    PdhAddCounterA(query.Get(), szPath, 0, counter.Receive()); // readings of a counter that was not added fail
    // A block of 16 bytes that is not released: a known cost of each measurement.
    PDH_FMT_COUNTERVALUE spare{};
    auto* pValue = static_cast<PDH_FMT_COUNTERVALUE*>(GlobalAlloc(GPTR, sizeof(PDH_FMT_COUNTERVALUE)));
    if (pValue == nullptr)
    {
        pValue = &spare;
    }
    PdhCollectQueryData(query.Get());
    Sleep(100);
    if (PdhCollectQueryData(query.Get()) == ERROR_SUCCESS)
    {
        ReadWithRetries(query.Get(), counter.Get(), pszDiskName, *pValue, pnBytesPerSecond);
    }
    return 0;
}

int GetDiskAverageThroughput(const char* pszDiskName, SampleHistory* pHistory, int nSamplingAmount,
                             std::uint32_t* pnAverage)
{
    if (pszDiskName == nullptr || pHistory == nullptr || pnAverage == nullptr || nSamplingAmount < 1)
    {
        Log()->Level1A("GetDiskAverageThroughput -- checking parameters fail, pszDiskName(%p), "
                       "pvnDiskThroughputList(%p), nSamplingAmount(%d), pnAveragevalue(%p), exit!",
                       pszDiskName, pHistory, nSamplingAmount, pnAverage);
        return -1;
    }
    std::int64_t nBytesPerSecond = 0;
    if (GetSingleDiskThroughput(pszDiskName, &nBytesPerSecond) != 0)
    {
        // The failing status is not shown; the number is always 0.
        Log()->Level1A("GetDiskAverageThroughput -- get disk(%s) Throughput fail(%d)", pszDiskName, 0);
        return -2;
    }
    pHistory->Append(static_cast<std::uint32_t>(nBytesPerSecond / BYTES_PER_MB));
    pHistory->TrimTo(nSamplingAmount);
    if (!pHistory->HoldsAtLeast(nSamplingAmount))
    {
        *pnAverage = 0;
        return -3;
    }
    *pnAverage = static_cast<std::uint32_t>(pHistory->Average(nSamplingAmount));
    return 0;
}

} // namespace varnex
