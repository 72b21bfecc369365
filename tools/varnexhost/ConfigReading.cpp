#include "ConfigReading.h"

#include "CheckedConfigFile.h"
#include "ModuleLog.h"
#include "alerting/AlertRecord.h"
#include "alerting/MonCPUThread.h"
#include "alerting/MonDiskThread.h"
#include "alerting/MonMemThread.h"
#include "alerting/MonNetworkThread.h"
#include "alerting/MonitorLoop.h"
#include "config/DailyCounters.h"
#include "config/XmlConfig.h"

#include <iterator>

namespace varnex::host
{

namespace
{

std::optional<std::wstring> TextAt(const std::wstring& nodePath)
{
    wchar_t wszText[256] = L""; // as much as the module looks at
    if (GetXMLNodeValue(nullptr, nodePath.c_str(), wszText, std::size(wszText)) != 0)
    {
        return std::nullopt;
    }
    return wszText;
}

// A file that does not load gives a success and leaves the buffer alone.
bool DoesLoad(const std::wstring& rootName)
{
    constexpr wchar_t UNTOUCHED = L'\x1';
    wchar_t wszText[2] = {UNTOUCHED, L'\0'};
    return GetXMLNodeValue(nullptr, rootName.c_str(), wszText, std::size(wszText)) != 0 || wszText[0] != UNTOUCHED;
}

struct Resource
{
    int nAlertType;
    const wchar_t* pwszName;
    const wchar_t* pwszThresholdUnit;
};

PolicyNumber ReadPolicyNumber(const Resource& resource, PolicyRole role, ConfType confType, const wchar_t* pwszName,
                              const wchar_t* pwszUnit, int nInForce)
{
    PolicyNumber number;
    number.name = std::wstring(resource.pwszName) + pwszName;
    number.unit = pwszUnit;
    number.text = TextAt(L"KPMConfiguration/PkiAlert/" + number.name);
    number.nRead = GetAlertConfValue(resource.nAlertType, static_cast<unsigned>(confType));
    number.nInForce = nInForce;
    number.role = role;
    return number;
}

// A monitor that is never started: only its policy is read.
template <class Monitor>
void AppendPolicy(const Resource& resource, std::vector<PolicyNumber>& policy)
{
    Monitor monitor;
    monitor.UpdateAlertPolicy();
    policy.push_back(
        ReadPolicyNumber(resource, PolicyRole::Interval, ConfType::Interval, L"Interval", L"s", monitor.GetInterval()));
    policy.push_back(ReadPolicyNumber(resource, PolicyRole::Threshold, ConfType::Threshold, L"Threshold",
                                      resource.pwszThresholdUnit, monitor.GetThreshold()));
    policy.push_back(ReadPolicyNumber(resource, PolicyRole::SamplingAmount, ConfType::SamplingAmount, L"SamplingAmount",
                                      L"samples", monitor.GetSamplingAmount()));
    policy.push_back(ReadPolicyNumber(resource, PolicyRole::MaxAlertNum, ConfType::MaxAlertNum, L"MaxAlertNum",
                                      L"a day", monitor.GetMaxAlertNum()));
}

std::vector<PolicyNumber> ReadPolicy()
{
    std::vector<PolicyNumber> policy;
    AppendPolicy<CMonCPUThread>({ALERT_TYPE_CPU, L"CPU", L"%"}, policy);
    AppendPolicy<CMonMemThread>({ALERT_TYPE_MEMORY, L"Memory", L"%"}, policy);
    AppendPolicy<CMonDiskThread>({ALERT_TYPE_DISK, L"Disk", L"MB/s"}, policy);
    AppendPolicy<CMonNetworkThread>({ALERT_TYPE_NETWORK, L"Network", L"%"}, policy);
    return policy;
}

ConfigNumber ReadLogLevel()
{
    constexpr int LEVEL_AT_LOAD = 3;
    ConfigNumber level;
    level.name = L"Level";
    level.text = TextAt(L"KPMConfiguration/VarnexLog/Level");
    GetLogLevel(&level.nRead);
    Log()->Level = LEVEL_AT_LOAD;
    RefreshLogLevel();
    level.nInForce = Log()->Level;
    return level;
}

int MostOf(const std::vector<PolicyNumber>& policy, const wchar_t* pwszName)
{
    for (const PolicyNumber& number : policy)
    {
        if (number.name == pwszName)
        {
            return number.nInForce;
        }
    }
    return 0;
}

DayCounts ReadDayCounts(const std::vector<PolicyNumber>& policy)
{
    struct Counter
    {
        int nCounter;
        const wchar_t* pwszName;
        const wchar_t* pwszLimit;
    };
    const Counter counters[] = {
        {ALERT_COUNTER_CPU, L"CPU", L"CPUMaxAlertNum"},
        {ALERT_COUNTER_PHYSICAL_MEMORY, L"PH", L"MemoryMaxAlertNum"},
        {ALERT_COUNTER_PAGING_FILE, L"PF", L"MemoryMaxAlertNum"},
        {ALERT_COUNTER_DISK, L"Disk", L"DiskMaxAlertNum"},
        {ALERT_COUNTER_NETWORK, L"Network", L"NetworkMaxAlertNum"},
    };
    const AlertMoment moment;
    DayCounts day;
    day.today = moment.wszDate;
    day.date = TextAt(L"KPMConfiguration/PkiAlertNum/Date").value_or(L"");
    int nIgnored = 0;
    day.bToday = GetAlertNumFromLocal(moment.wszDate, ALERT_COUNTER_CPU, &nIgnored) != COUNTERS_FAILED;
    for (const Counter& counter : counters)
    {
        AlertState state;
        ReadTodaysCount(state, moment, counter.nCounter, L"%s %d");
        DayCount count;
        count.name = counter.pwszName;
        count.text = TextAt(std::wstring(L"KPMConfiguration/PkiAlertNum/") + counter.pwszName);
        count.nRead = count.nInForce = state.nTodaySentAlertNum;
        count.nMost = MostOf(policy, counter.pwszLimit);
        day.counts.push_back(std::move(count));
    }
    return day;
}

} // namespace

std::optional<ConfigReading> ReadConfig(const std::wstring& path, const std::wstring& rootName)
{
    SilenceModuleLog();
    SetCheckedConfigFile(path);
    if (!DoesLoad(rootName))
    {
        return std::nullopt;
    }
    ConfigReading reading;
    reading.policy = ReadPolicy();
    reading.logLevel = ReadLogLevel();
    reading.day = ReadDayCounts(reading.policy);
    return reading;
}

} // namespace varnex::host
