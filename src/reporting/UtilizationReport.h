#pragma once

#include "common/Com.h"

#include <cstdint>
#include <vector>

namespace varnex
{

// What a report tells, before it is written as XML.

struct CpuEntry
{
    wchar_t wszIndex[16];      // only the first character of the instance's name
    std::int32_t nUtilization; // percent
};

struct MemoryEntry
{
    std::int32_t nPhysicalUtilization; // percent
    std::uint32_t nPhysicalMB;
    std::int32_t nPagingFileUtilization; // percent
    std::uint32_t nPagingFileMB;
};

struct DiskEntry
{
    wchar_t wszIndex[128];    // only the first character of the instance's name
    std::int64_t nThroughput; // bytes per second
};

struct NetworkEntry
{
    wchar_t wszMACAddress[32];
    std::int32_t nLinkSpeed;   // units of 1,000,000 bits per second
    std::int32_t nUtilization; // percent
};

constexpr std::size_t REPORT_TIME_CHARS = 20;

struct UtilizationReport
{
    wchar_t wszTime[REPORT_TIME_CHARS] = {}; // local time, set by the caller
    std::vector<CpuEntry> cpus;
    MemoryEntry memory = {};
    std::vector<DiskEntry> disks;
    std::vector<NetworkEntry> cards;
};

// Averages the histories over the newest nTotalSampleNum samples (1 or more), of which at least nMinSampleNum must be
// valid, into the report, and writes it as XML. Also cuts the adapters' histories to that many records. Takes each
// store's lock for itself; the calling thread has initialised COM. A part whose lock is not to be had is left out, memory
// told as 0, and logged (see StoreLockHold).
// Returns the text, or null for a null report and a document that could not be built (logged). Throws std::bad_alloc.
UniqueBstr CreatePKIXMLToMMF(std::uint32_t nTotalSampleNum, std::uint32_t nMinSampleNum, UtilizationReport* pReport);

} // namespace varnex
