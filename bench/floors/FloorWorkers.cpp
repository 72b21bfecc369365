#include "FloorWorkers.h"

#include "FloorAlerts.h"
#include "FloorSampling.h"

namespace varnex::bench
{

namespace
{

void ReadPolicy(const FloorConfig& config) noexcept
{
    for (int i = 0; i < 4; ++i)
    {
        config.ReadPolicyValue();
    }
}

// The moment and the day's count.
void Judge(const FloorConfig& config) noexcept
{
    ConvertToLocalTime();
    config.ReadCount();
}

} // namespace

void RunCpuMonitorFloor(const FloorConfig& config, const Machine&) noexcept
{
    ReadPolicy(config);
    config.ReadLogLevel();
    SampleCpuTimes();
    Judge(config);
}

void RunMemoryMonitorFloor(const FloorConfig& config, const Machine&) noexcept
{
    ReadPolicy(config);
    SampleMemory();
    Judge(config);
    config.ReadCount();
}

void RunDiskMonitorFloor(const FloorConfig& config, const Machine& machine) noexcept
{
    ReadPolicy(config);
    for (unsigned i = 0; i < machine.nDisks; ++i)
    {
        SampleDisk();
        Judge(config);
    }
}

void RunNetworkMonitorFloor(const FloorConfig& config, const Machine& machine) noexcept
{
    ListAdapters();
    ReadPolicy(config);
    SampleTraffic();
    for (unsigned i = 0; i < machine.nCards; ++i)
    {
        Judge(config);
    }
}

void RunCpuSamplerFloor(const FloorConfig& config, const Machine& machine) noexcept
{
    config.ReadLogLevel();
    ConvertToLocalTime();
    for (unsigned i = 0; i < machine.nProcessors; ++i)
    {
        SampleProcessor();
    }
    LookAtTraceSwitch();
}

void RunMemorySamplerFloor(const FloorConfig&, const Machine&) noexcept
{
    ConvertToLocalTime();
    SampleMemory();
    LookAtTraceSwitch();
}

void RunDiskSamplerFloor(const FloorConfig&, const Machine& machine) noexcept
{
    ConvertToLocalTime();
    for (unsigned i = 0; i < machine.nDisks; ++i)
    {
        SampleDisk();
    }
    LookAtTraceSwitch();
}

void RunNetworkSamplerFloor(const FloorConfig&, const Machine&) noexcept
{
    ConvertToLocalTime();
    SampleTraffic();
    LookAtTraceSwitch();
    ListAdapters();
}

} // namespace varnex::bench
