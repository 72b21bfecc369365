#include "ChartThresholds.h"

#include "CheckedConfigFile.h"
#include "ConfigReading.h"
#include "ConfigTree.h"
#include "HostError.h"
#include "ModuleFiles.h"
#include "ModuleLog.h"
#include "alerting/MonCPUThread.h"
#include "alerting/MonDiskThread.h"
#include "alerting/MonMemThread.h"
#include "alerting/MonNetworkThread.h"
#include "common/Com.h"

namespace varnex::host
{

namespace
{

// A monitor that is never started: only its policy is read.
template <class Monitor>
ChartThreshold DefaultThreshold()
{
    Monitor monitor;
    monitor.UpdateAlertPolicy();
    return {monitor.GetThreshold(), "the default; no configuration was given"};
}

std::vector<ChartThreshold> DefaultThresholds()
{
    SilenceModuleLog();
    SetCheckedConfigFile(L"");
    return {DefaultThreshold<CMonCPUThread>(), DefaultThreshold<CMonMemThread>(), DefaultThreshold<CMonDiskThread>(),
            DefaultThreshold<CMonNetworkThread>()};
}

std::wstring ExistingFile(const std::string& file)
{
    std::error_code error;
    const std::filesystem::path full = std::filesystem::absolute(FromUtf8(file), error);
    if (error || !FileExists(full))
    {
        throw HostError(L"There is no file " + FromUtf8(file) + L".");
    }
    return full.lexically_normal().wstring();
}

ConfigReading ReadPolicyOf(const std::string& file)
{
    const std::wstring path = ExistingFile(file);
    const ConfigTree tree = ReadConfigTree(path);
    if (!tree.fault)
    {
        if (std::optional<ConfigReading> reading = ReadConfig(path, tree.root.name))
        {
            return *std::move(reading);
        }
    }
    throw HostError(FromUtf8(file) + L" is no configuration that the module could load; varnexhost check-config says "
                                     L"why.");
}

} // namespace

std::vector<ChartThreshold> ReadThresholds(const std::string& configFile)
{
    const ThreadApartment apartment(S_OK); // ends with the process
    if (!apartment.Usable())
    {
        throw HostError(L"COM is not available to this process: " +
                        SystemErrorText(static_cast<DWORD>(apartment.Result())));
    }
    if (configFile.empty())
    {
        return DefaultThresholds();
    }
    std::vector<ChartThreshold> thresholds;
    for (const PolicyNumber& number : ReadPolicyOf(configFile).policy)
    {
        if (number.role == PolicyRole::Threshold)
        {
            const char* pszOrigin = number.IsFromFile() ? "from the configuration"
                                                        : "the default; the configuration "
                                                          "has no valid value";
            thresholds.push_back({number.nInForce, pszOrigin});
        }
    }
    return thresholds;
}

} // namespace varnex::host
