#pragma once

#include "sampling/InstanceNames.h"
#include "sampling/SampleHistory.h"

#include <cstdint>

namespace varnex
{

// Physical disk throughput, from the performance counters. Nothing is kept between calls; any thread.
//
// Some failures are printed to the process's standard output instead of being logged: the errors of the 8-bit
// enumeration, the argument check of the single measurement and a query that does not open.

// The disk instances ("0 C:"), without the aggregate one; empty on failure. Throw std::bad_alloc.
InstanceNames<char> GetDiskNameList();
InstanceNames<wchar_t> GetDiskNameListW();

// Measures one disk in bytes per second. Takes 100 ms, and up to six seconds more for a disk that reads 0: a reading
// of 0 counts as missing and is tried again.
// Returns 0 when it was measured, when it stayed missing (*pnBytesPerSecond is 0 then) and when a later collection
// failed (*pnBytesPerSecond is left alone); -1 for a null argument; else the status of a query that does not open.
int GetSingleDiskThroughput(const char* pszDiskName, std::int64_t* pnBytesPerSecond) noexcept;

// Measures one disk, adds the result to its history in whole MB/s and averages the newest nSamplingAmount values.
// Returns 0; -1 for a bad argument; -2 when the measurement failed; -3, with an average of 0, while the history is
// shorter than that. Throws std::bad_alloc, and then the history is as it was.
int GetDiskAverageThroughput(const char* pszDiskName, SampleHistory* pHistory, int nSamplingAmount,
                             std::uint32_t* pnAverage);

} // namespace varnex
