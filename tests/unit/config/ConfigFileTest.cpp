#include "ConfigFixture.h"

#include "config/ConfigFile.h"
#include "config/DailyCounters.h"
#include "config/XmlConfig.h"
#include "entry/ModuleState.h"

#include <catch2/catch.hpp>

#include <cwchar>

namespace varnex::test
{

namespace
{

// Every operation, on a configuration that has no path.
void CheckEveryOperationCallsTheFileMissing(ConfigFixture& config)
{
    int nValue = 77;
    CHECK(GetAlertConfValue(1, 1) == -1);
    CHECK(GetLogLevel(&nValue) == -1);
    wchar_t wszValue[8] = L"before";
    CHECK(GetXMLNodeValue(nullptr, L"KPMConfiguration/Any", wszValue, 8) == -1);
    CHECK(SetXMLNodeValue(nullptr, L"KPMConfiguration/Any", L"text") == -1);
    CHECK(GetAlertNumFromLocal(L"2026-01-31", 1, &nValue) == -2);
    CHECK(SaveAlertNumIntoLocal(L"2026-01-31", 1, 5) == -2);
    CHECK(nValue == 77);
    CHECK(std::wstring(wszValue) == L"before");
    CHECK(config.TakeLog() ==
          Lines{"[1] - GetAlertConfValue -- input file() doesn't exist, exit...",
                "[1] - GetAlertConfValue -- input file() doesn't exist, exit...",
                "[1] - GetXMLNodeValue -- XML file() doesn't exist, exit...", "",
                "[1] - SetXMLNodeValue -- XML file() doesn't exist, exit...", "",
                "[2] - GetAlertNumFromLocal -- global configure file() doesn't exist.",
                "[4] - SaveAlertNumIntoLocal -- input parameter: date(2026-01-31), Alert Type(1), Alert number(5)",
                "[2] - SaveAlertNumIntoLocal -- global configure file() doesn't exist."});
}

} // namespace

TEST_CASE("the configuration lies beside the module")
{
    ConfigFixture config;
    CHECK(ConfigFilePath() == config.tree.BinPath() + L"\\KpmCfg.xml");
}

TEST_CASE("the configuration's path is asked of the module's own handle, once, and then kept")
{
    ConfigFixture config;
    const HMODULE hModule = GetModuleHandleW(L"kernel32.dll");
    std::vector<HMODULE> asked;
    const std::wstring path = config.tree.ModulePath();
    config.redirector.Replace<decltype(::GetModuleFileNameW)>("GetModuleFileNameW",
                                                              [&](HMODULE hAsked, LPWSTR pwszPath, DWORD cchPath)
                                                              {
                                                                  asked.push_back(hAsked);
                                                                  std::wcsncpy(pwszPath, path.c_str(), cchPath);
                                                                  return static_cast<DWORD>(path.size());
                                                              });
    g_hModule = hModule;
    const wchar_t* const pwszFirst = ConfigFilePath();
    const wchar_t* const pwszSecond = ConfigFilePath();
    g_hModule = nullptr;
    CHECK(asked == std::vector<HMODULE>{hModule});
    CHECK(pwszFirst == pwszSecond);
    CHECK(pwszFirst == config.File());
}

TEST_CASE("a module path without a backslash: every operation calls the file missing")
{
    ConfigFixture config;
    config.modulePath.Set(L"Varnex.dll");
    CHECK(std::wstring(ConfigFilePath()).empty());
    CHECK_FALSE(ConfigFileExists());
    CheckEveryOperationCallsTheFileMissing(config);
}

TEST_CASE("a module path that is too long: every operation calls the file missing")
{
    ConfigFixture config;
    config.modulePath.Set(config.tree.BinPath() + L"\\" + std::wstring(300, L'd') + L"\\Varnex.dll");
    CheckEveryOperationCallsTheFileMissing(config);
}

TEST_CASE("a module path that cannot be read: every operation calls the file missing")
{
    ConfigFixture config;
    config.modulePath.Fail(ERROR_INVALID_HANDLE);
    CHECK(std::wstring(ConfigFilePath()).empty());
    CheckEveryOperationCallsTheFileMissing(config);
}

TEST_CASE("a configuration path that is still empty is worked out at the next need")
{
    ConfigFixture config;
    config.tree.WriteConfig(ConfigBuilder().Set("CPUInterval", 12));
    config.modulePath.Set(L"Varnex.dll");
    CHECK(GetAlertConfValue(1, 1) == -1);
    config.modulePath.Set(config.tree.ModulePath());
    CHECK(GetAlertConfValue(1, 1) == 12);
}

TEST_CASE("a module in a drive's root has its configuration there")
{
    ConfigFixture config;
    config.modulePath.Set(L"C:\\Varnex.dll");
    CHECK(std::wstring(ConfigFilePath()) == L"C:\\KpmCfg.xml");
}

TEST_CASE("a configuration path of more than 259 characters is cut")
{
    ConfigFixture config;
    const std::wstring directory = L"C:\\" + std::wstring(250, L'd') + L"\\";
    config.modulePath.Set(directory + L"V.dll");
    CHECK(ConfigFilePath() == (directory + L"KpmCfg.xml").substr(0, 259));
    CHECK_FALSE(ConfigFileExists());
}

TEST_CASE("a module path outside the system's code page leads to its configuration")
{
    ConfigFixture config;
    const std::wstring directory = config.tree.InBin(L"\u4e2d\u6587");
    REQUIRE(CreateDirectoryW(directory.c_str(), nullptr));
    WriteFileBytes(directory + L"\\KpmCfg.xml", ConfigBuilder().Set("DiskThreshold", 33).Build());
    config.modulePath.Set(directory + L"\\Varnex.dll");
    CHECK(GetAlertConfValue(3, 2) == 33);
}

TEST_CASE("the configuration's existence is looked up each time")
{
    ConfigFixture config;
    CHECK_FALSE(ConfigFileExists());
    config.tree.WriteConfig(ConfigBuilder());
    CHECK(ConfigFileExists());
    config.tree.RemoveConfig();
    CHECK_FALSE(ConfigFileExists());
}

} // namespace varnex::test
