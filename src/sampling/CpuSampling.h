#pragma once

#include "sampling/InstanceNames.h"

namespace varnex
{

// Processor load. Any thread.

// The whole machine's utilization since the previous reading, percent 0 to 100, from GetSystemTimes. The first reading
// after load gives the average since the system started; within 200 ms of a reading its result is given again. The
// previous reading is the process's, whichever thread took it: one thread at a time reads, and the others wait.
int GetCPUUtlAverage() noexcept;

// The processor instances of the performance counters, without the aggregate one. Empty on failure, which is logged.
// Throws std::bad_alloc.
InstanceNames<wchar_t> GetCPUNameListW();

// One processor's utilization, percent, truncated, from the performance counter of its time; keeps nothing between
// calls. Takes up to five seconds for an idle processor. Returns -1 for a null name, a missing counter name, repeated
// read failures and a reading that is no number or no 32-bit one; 0 when a later collection fails; else a failed
// collection's or query's status, which is negative.
int GetSpecialCPUUtilization(const wchar_t* pwszCPUName) noexcept;

} // namespace varnex
