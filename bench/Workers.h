#pragma once

#include "Comparison.h"
#include "StandIns.h"
#include "floors/FloorConfig.h"

#include <functional>
#include <vector>

namespace varnex::bench
{

constexpr std::size_t WARM_UP_CYCLES = 6; // one more than the sampling amount

// One kind of worker and its floor.
struct WorkerKind
{
    const char* pszName;
    // Makes the worker, runs it on this thread until it is asked to stop, and frees it.
    void (*pfnRun)();
    void (*pfnRequestStop)();
    void (*pfnFloorCycle)(const FloorConfig& config, const Machine& machine) noexcept;
    unsigned nInnerSeconds;   // sleeps of a second within a cycle's own work
    unsigned nWaitSeconds;    // sleeps of a second between two cycles, with the configuration of Setting::WriteConfig
    unsigned nDefaultSeconds; // the same at default policies
};

// The four monitors, then the four samplers.
const std::vector<WorkerKind>& WorkerKinds();

// Runs a worker on a thread of its own, without letting time pass: each cycle is timed from the end of one wait to the
// begin of the next, and so is a floor's cycle on the same thread, before or after it in turn. The first cycles, which
// fill the worker's history, do not count. Goes on by the effort.
std::vector<Pair> MeasureCycles(const WorkerKind& kind, const FloorConfig& config, const Effort& effort);

// The processor time, in seconds, that this process took for so many cycles of the worker behind nWarmUp others, or of
// its floor. With fewer of those than WARM_UP_CYCLES the worker does not judge in all that count.
double CpuSecondsOfCycles(const WorkerKind& kind, std::size_t nCycles, std::size_t nWarmUp);
double CpuSecondsOfFloorCycles(const WorkerKind& kind, const FloorConfig& config, std::size_t nCycles);

} // namespace varnex::bench
