#include "ProcStat.h"

#include <optional>
#include <sstream>

namespace varnex::winepdh
{

namespace
{

constexpr char szAggregate[] = "cpu";

std::optional<Sample> ParseTimes(std::istringstream& fields)
{
    LONGLONG llUser = 0;
    LONGLONG llNice = 0;
    LONGLONG llSystem = 0;
    LONGLONG llIdle = 0;
    if (!(fields >> llUser >> llNice >> llSystem >> llIdle))
    {
        return std::nullopt;
    }
    // Kernels have added these one by one; what is missing counts as nothing. The guest times that follow them are
    // part of user and nice already.
    LONGLONG llIoWait = 0;
    LONGLONG llInterrupts = 0;
    LONGLONG llSoftInterrupts = 0;
    LONGLONG llStolen = 0;
    fields >> llIoWait >> llInterrupts >> llSoftInterrupts >> llStolen;
    const LONGLONG llBusy = llUser + llNice + llSystem + llInterrupts + llSoftInterrupts + llStolen;
    return Sample{llBusy, llBusy + llIdle + llIoWait};
}

// "cpu7" is instance "7", "cpu" is "_Total"; anything else, "intr" or "cpufreq", is no processor.
std::optional<std::wstring> InstanceName(const std::string& key)
{
    if (key == szAggregate)
    {
        return L"_Total";
    }
    const std::size_t cchPrefix = sizeof(szAggregate) - 1;
    if (key.compare(0, cchPrefix, szAggregate) != 0 || key.find_first_not_of("0123456789", cchPrefix) != key.npos)
    {
        return std::nullopt;
    }
    return std::wstring(key.begin() + static_cast<std::ptrdiff_t>(cchPrefix), key.end());
}

} // namespace

InstanceSamples ParseProcStat(const std::string& text)
{
    InstanceSamples processors;
    InstanceSamples total;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
    {
        std::istringstream fields(line);
        std::string key;
        fields >> key;
        const auto name = InstanceName(key);
        const auto times = name ? ParseTimes(fields) : std::nullopt;
        if (times)
        {
            (key == szAggregate ? total : processors).push_back({*name, *times});
        }
    }
    processors.insert(processors.end(), total.begin(), total.end());
    return processors;
}

} // namespace varnex::winepdh
