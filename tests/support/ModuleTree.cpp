#include "support/ModuleTree.h"

#include "support/ScriptScope.h"
#include "support/TestText.h"
#include "support/XmlReader.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <algorithm>
#include <filesystem>

namespace varnex::test
{

namespace fs = std::filesystem;

namespace
{

std::wstring FreshRoot()
{
    wchar_t wszTemp[MAX_PATH + 1];
    REQUIRE(GetTempPathW(MAX_PATH + 1, wszTemp) != 0);
    static LONG nLast = 0;
    return wszTemp + (L"varnex-" + std::to_wstring(GetCurrentProcessId())) + L"-" +
           std::to_wstring(InterlockedIncrement(&nLast));
}

std::vector<std::wstring> NamesIn(const std::wstring& directory)
{
    const UnscriptedScope unscripted;
    std::vector<std::wstring> names;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, error))
    {
        names.push_back(entry.path().filename().wstring());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// A test may have made files read-only.
void MakeWritable(const std::wstring& directory)
{
    std::error_code error;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory, error))
    {
        SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
    }
}

std::wstring ShippedModule()
{
    wchar_t wszPath[32768];
    const DWORD cchPath = GetEnvironmentVariableW(L"VARNEX_DLL_PATH", wszPath, 32768);
    return cchPath != 0 ? std::wstring(wszPath, cchPath) : ProgramDirectory() + L"\\Varnex.dll";
}

} // namespace

ModuleTree::ModuleTree(bool bMakeLogs)
{
    const UnscriptedScope unscripted;
    m_root = FreshRoot();
    fs::remove_all(m_root); // a killed program of the same number may have left one
    fs::create_directories(BinPath());
    if (bMakeLogs)
    {
        fs::create_directory(LogsPath());
    }
}

ModuleTree::~ModuleTree()
{
    const UnscriptedScope unscripted;
    std::error_code error;
    MakeWritable(m_root);
    fs::remove_all(m_root, error);
    if (fs::exists(m_root, error))
    {
        WARN("Not removed, something is still open in it: " << Utf8FromWide(m_root));
    }
}

std::wstring ModuleTree::Root() const
{
    return m_root;
}

std::wstring ModuleTree::BinPath() const
{
    return m_root + L"\\A\\B\\bin";
}

std::wstring ModuleTree::LogsPath() const
{
    return m_root + L"\\A\\B\\Logs";
}

std::wstring ModuleTree::ModulePath() const
{
    return InBin(L"Varnex.dll");
}

std::wstring ModuleTree::InBin(const std::wstring& name) const
{
    return BinPath() + L"\\" + name;
}

std::wstring ModuleTree::InLogs(const std::wstring& name) const
{
    return LogsPath() + L"\\" + name;
}

void ModuleTree::CopyModule()
{
    const UnscriptedScope unscripted;
    CopyModule(ShippedModule());
}

void ModuleTree::CopyModule(const std::wstring& source)
{
    const UnscriptedScope unscripted;
    if (CopyFileW(source.c_str(), ModulePath().c_str(), FALSE) == FALSE)
    {
        FAIL("Cannot copy " << Utf8FromWide(source) << ", error " << GetLastError());
    }
}

void ModuleTree::WriteConfig(const ConfigBuilder& config)
{
    WriteConfigText(config.Build());
}

void ModuleTree::WriteConfigText(const std::string& text)
{
    WriteFileBytes(InBin(L"KpmCfg.xml"), text);
}

void ModuleTree::RemoveConfig()
{
    const UnscriptedScope unscripted;
    DeleteFileW(InBin(L"KpmCfg.xml").c_str());
}

std::optional<std::wstring> ModuleTree::ConfigNode(const std::wstring& path) const
{
    return XmlReader::FromFile(InBin(L"KpmCfg.xml")).Text(path);
}

std::string ModuleTree::Log() const
{
    return ReadFileBytes(InLogs(L"Varnex.log"));
}

std::string ModuleTree::Alerts() const
{
    return ReadFileBytes(InBin(L"LocalAlt.dat"));
}

void ModuleTree::WriteAlerts(const std::string& bytes)
{
    WriteFileBytes(InBin(L"LocalAlt.dat"), bytes);
}

std::vector<std::wstring> ModuleTree::FilesInLogs() const
{
    return NamesIn(LogsPath());
}

std::vector<std::wstring> ModuleTree::FilesInBin() const
{
    return NamesIn(BinPath());
}

} // namespace varnex::test
