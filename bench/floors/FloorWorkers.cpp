#include "FloorWorkers.h"

#include "FloorAlerts.h"
#include "FloorSampling.h"

#include "sampling/NetworkUtilizationCollector.h"

#include <array>

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
    TellLocalTime();
    config.ReadCount();
}

// A day of samples, for their places only: each is stored under a lock.
template <class Sample, unsigned INSTANCES>
class FloorStore
{
public:
    FloorStore() noexcept { InitializeCriticalSection(&m_lock); }

    void Put(unsigned nInstance, const Sample& sample) noexcept
    {
        EnterCriticalSection(&m_lock);
        m_samples[nInstance][m_nAt] = sample;
        LeaveCriticalSection(&m_lock);
    }
    void EndCycle() noexcept { m_nAt = (m_nAt + 1) % PLACES; }

private:
    static constexpr unsigned PLACES = 1440;

    CRITICAL_SECTION m_lock;
    unsigned m_nAt = 0;
    std::array<std::array<Sample, PLACES>, INSTANCES> m_samples{};
};

FloorStore<int, 64> g_processors;
FloorStore<int, 2> g_memory;
FloorStore<long long, 24> g_disks;
struct CardBytes
{
    unsigned char abRecord[sizeof(NetworkCard)];
};
FloorStore<CardBytes, 16> g_cards;

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
    TellLocalTime();
    for (unsigned i = 0; i < machine.nProcessors; ++i)
    {
        SampleProcessor();
        g_processors.Put(i, 42);
    }
    g_processors.EndCycle();
    LookAtTraceSwitch();
}

void RunMemorySamplerFloor(const FloorConfig&, const Machine&) noexcept
{
    TellLocalTime();
    SampleMemory();
    g_memory.Put(0, 42);
    g_memory.Put(1, 42);
    g_memory.EndCycle();
    LookAtTraceSwitch();
}

void RunDiskSamplerFloor(const FloorConfig&, const Machine& machine) noexcept
{
    TellLocalTime();
    for (unsigned i = 0; i < machine.nDisks; ++i)
    {
        ConvertDiskName();
        SampleDisk();
        g_disks.Put(i, 42);
    }
    g_disks.EndCycle();
    LookAtTraceSwitch();
}

void RunNetworkSamplerFloor(const FloorConfig&, const Machine& machine) noexcept
{
    static const CardBytes card{};
    TellLocalTime();
    SampleTraffic();
    for (unsigned i = 0; i < machine.nCards; ++i)
    {
        g_cards.Put(i, card);
    }
    g_cards.EndCycle();
    LookAtTraceSwitch();
    ListAdapters();
}

} // namespace varnex::bench
