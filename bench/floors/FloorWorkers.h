#pragma once

#include "FloorConfig.h"

#include "StandIns.h"

namespace varnex::bench
{

// One cycle of each worker as bare calls, in a steady state: every history is long enough, no threshold is reached,
// nothing is logged or traced. The samplers put each sample into its place under a lock. For one thread at a time.

void RunCpuMonitorFloor(const FloorConfig& config, const Machine& machine) noexcept;
void RunMemoryMonitorFloor(const FloorConfig& config, const Machine& machine) noexcept;
void RunDiskMonitorFloor(const FloorConfig& config, const Machine& machine) noexcept;
void RunNetworkMonitorFloor(const FloorConfig& config, const Machine& machine) noexcept;

void RunCpuSamplerFloor(const FloorConfig& config, const Machine& machine) noexcept;
void RunMemorySamplerFloor(const FloorConfig& config, const Machine& machine) noexcept;
void RunDiskSamplerFloor(const FloorConfig& config, const Machine& machine) noexcept;
void RunNetworkSamplerFloor(const FloorConfig& config, const Machine& machine) noexcept;

} // namespace varnex::bench
