#include "PerfObject.h"

#include "CounterPath.h"
#include "DiskStats.h"
#include "ProcStat.h"
#include "SourceFile.h"

namespace varnex::winepdh
{

namespace
{

constexpr LONGLONG llTimeUnitsPerSecond = 10000000;

LONGLONG ReadTime() noexcept
{
    LARGE_INTEGER ticks;
    LARGE_INTEGER frequency;
    QueryPerformanceCounter(&ticks);
    QueryPerformanceFrequency(&frequency);
    // Whole seconds first: the product of all ticks would overflow on a machine that has been up for long.
    return ticks.QuadPart / frequency.QuadPart * llTimeUnitsPerSecond +
           ticks.QuadPart % frequency.QuadPart * llTimeUnitsPerSecond / frequency.QuadPart;
}

std::optional<InstanceSamples> ReadProcessors()
{
    const auto text = ReadSource(L"WINEPDH_PROC_STAT", L"Z:\\proc\\stat");
    auto samples = text ? ParseProcStat(*text) : InstanceSamples();
    return samples.empty() ? std::nullopt : std::optional<InstanceSamples>(std::move(samples));
}

std::optional<InstanceSamples> ReadDisks()
{
    const auto text = ReadSource(L"WINEPDH_DISKSTATS", L"Z:\\proc\\diskstats");
    if (!text)
    {
        return std::nullopt;
    }
    return SampleDisks(SelectDisks(ParseDiskStats(*text)), ReadTime());
}

constexpr PerfObject perfObjects[] = {
    {&LocalizedNames::processor, PERF_100NSEC_TIMER_INV, {100.0, true}, &ReadProcessors},
    {&LocalizedNames::disk, PERF_COUNTER_BULK_COUNT, {static_cast<double>(llTimeUnitsPerSecond), false}, &ReadDisks},
};

} // namespace

const PerfObject* FindPerfObject(std::wstring_view name) noexcept
{
    for (const PerfObject& object : perfObjects)
    {
        if (EqualNames(name, object.Names().pwszObject))
        {
            return &object;
        }
    }
    return nullptr;
}

std::wstring CounterList(const PerfObject& object)
{
    return std::wstring(object.Names().pwszCounter) + L'\0';
}

std::wstring InstanceList(const InstanceSamples& samples)
{
    std::wstring list;
    for (const InstanceSample& instance : samples)
    {
        list += instance.name;
        list += L'\0';
    }
    return list;
}

} // namespace varnex::winepdh
