#pragma once

#include <optional>
#include <string>
#include <vector>

namespace varnex::host
{

// A number of the configuration: as it is written and as the module takes it.
struct ConfigNumber
{
    std::wstring name;
    std::wstring unit;
    std::optional<std::wstring> text; // nothing when the module does not find the element
    int nRead = 0;                    // the number that the module reads out of the text
    int nInForce = 0;                 // what it goes by

    bool IsFromFile() const noexcept { return text.has_value() && nRead == nInForce; }
};

// What a policy value is, whatever its resource.
enum class PolicyRole
{
    Interval,
    Threshold,
    SamplingAmount,
    MaxAlertNum
};

struct PolicyNumber : ConfigNumber
{
    PolicyRole role = PolicyRole::Interval;
};

struct DayCount : ConfigNumber
{
    int nMost = 0; // the day's limit
};

struct DayCounts
{
    std::wstring today;
    std::wstring date; // to which the counts in the file belong; empty when there is none
    bool bToday = false;
    std::vector<DayCount> counts;
};

struct ConfigReading
{
    std::vector<PolicyNumber> policy; // sixteen, by resource
    ConfigNumber logLevel;
    DayCounts day;
};

// Reads a configuration file by the module's own code: policy, log level and today's counts, just as its monitors do.
// Nothing when the module's document object does not load the file; one in another process's hands is tried again for a
// second. rootName: the name of the file's outermost element. COM is initialised on the thread. Once in a process.
std::optional<ConfigReading> ReadConfig(const std::wstring& path, const std::wstring& rootName);

} // namespace varnex::host
