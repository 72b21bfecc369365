#include "ConfigFixture.h"

#include "common/Handles.h"
#include "config/ConfigFile.h"
#include "config/DailyCounters.h"
#include "config/XmlConfig.h"
#include "entry/ModuleState.h"

#include <catch2/catch.hpp>

#include <cstring>
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

thread_local bool g_bVictim = false;

// A thread ended by TerminateThread would not come back either, but would leave its stack behind.
void EndIfVictim()
{
    if (g_bVictim)
    {
        ExitThread(0);
    }
}

DWORD WINAPI LookAsVictim(void*)
{
    g_bVictim = true;
    const ConfigFilePath path;
    return 1;
}

DWORD WINAPI Look(void* pFound)
{
    *static_cast<std::wstring*>(pFound) = ConfigFilePath().Text();
    return 1;
}

// Ends one thread within its search, and has another one search.
void CheckOthersHaveThePath(const ConfigFixture& config)
{
    constexpr DWORD PATIENCE_MS = 5000;
    const UniqueHandle victim(CreateThread(nullptr, 0, &LookAsVictim, nullptr, 0, nullptr));
    REQUIRE(WaitForSingleObject(victim.Get(), PATIENCE_MS) == WAIT_OBJECT_0);
    DWORD dwExitCode = 1;
    GetExitCodeThread(victim.Get(), &dwExitCode);
    REQUIRE(dwExitCode == 0);
    std::wstring found;
    const UniqueHandle other(CreateThread(nullptr, 0, &Look, &found, 0, nullptr));
    REQUIRE(WaitForSingleObject(other.Get(), PATIENCE_MS) == WAIT_OBJECT_0);
    CHECK(found == config.File());
    CHECK(ConfigFilePath().Text() == config.File());
}

} // namespace

TEST_CASE("the configuration lies beside the module")
{
    ConfigFixture config;
    CHECK(ConfigFilePath().Text() == config.tree.BinPath() + L"\\KpmCfg.xml");
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
    const wchar_t* const pwszFirst = ConfigFilePath().Text();
    const wchar_t* const pwszSecond = ConfigFilePath().Text();
    g_hModule = nullptr;
    CHECK(asked == std::vector<HMODULE>{hModule});
    CHECK(pwszFirst == pwszSecond);
    CHECK(pwszFirst == config.File());
}

TEST_CASE("a module path without a backslash: every operation calls the file missing")
{
    ConfigFixture config;
    config.modulePath.Set(L"Varnex.dll");
    CHECK(std::wstring(ConfigFilePath().Text()).empty());
    CHECK_FALSE(ConfigFilePath().Exists());
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
    CHECK(std::wstring(ConfigFilePath().Text()).empty());
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
    CHECK(std::wstring(ConfigFilePath().Text()) == L"C:\\KpmCfg.xml");
}

TEST_CASE("a configuration path of 259 characters fits")
{
    ConfigFixture config;
    const std::wstring directory = L"C:\\" + std::wstring(245, L'd') + L"\\";
    config.modulePath.Set(directory + L"V.dll");
    CHECK(ConfigFilePath().Text() == directory + L"KpmCfg.xml");
}

TEST_CASE("a configuration path that does not fit: every operation calls the file missing, whatever lies there")
{
    ConfigFixture config;
    const std::wstring bin = config.tree.BinPath() + L"\\";
    const std::wstring directory = bin + std::wstring(249 - bin.size(), L'd') + L"\\";
    REQUIRE(CreateDirectoryW(directory.c_str(), nullptr));
    WriteFileBytes(directory + L"KpmCfg.xm", ConfigBuilder().Build()); // a cut path would find it
    config.modulePath.Set(directory + L"V.dll");
    CheckEveryOperationCallsTheFileMissing(config);
}

TEST_CASE("a thread that was ended while it looked for the path keeps nobody from it")
{
    ConfigFixture config;
    const std::wstring path = config.tree.ModulePath();
    config.redirector.Replace<decltype(::GetModuleFileNameW)>("GetModuleFileNameW",
                                                              [&](HMODULE, LPWSTR pwszPath, DWORD cchPath)
                                                              {
                                                                  EndIfVictim();
                                                                  std::wcsncpy(pwszPath, path.c_str(), cchPath);
                                                                  return static_cast<DWORD>(path.size());
                                                              });
    CheckOthersHaveThePath(config);
}

TEST_CASE("a thread that was ended while it kept the path keeps nobody from it")
{
    ConfigFixture config;
    const std::size_t cbPath = config.File().size() * sizeof(wchar_t);
    config.redirector.Replace<decltype(::memcpy)>("memcpy",
                                                  [cbPath](void* pTarget, const void* pSource, std::size_t cbSource)
                                                  {
                                                      if (cbSource == cbPath)
                                                      {
                                                          EndIfVictim();
                                                      }
                                                      return memcpy(pTarget, pSource, cbSource);
                                                  });
    CheckOthersHaveThePath(config);
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
    CHECK_FALSE(ConfigFilePath().Exists());
    config.tree.WriteConfig(ConfigBuilder());
    CHECK(ConfigFilePath().Exists());
    config.tree.RemoveConfig();
    CHECK_FALSE(ConfigFilePath().Exists());
}

} // namespace varnex::test
