// The shipped DLL at a path that is longer than the 260 characters it asks the system for.

#include "common/Handles.h"
#include "support/ModuleTree.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr char ALERT[] = "3;50;72;2147483647(2038-01-19 03:14:07);D1;\r\n";
constexpr wchar_t ROOT_LOG[] = L"c:\\Varnex.log";

// The module in the innermost of four directories with long names, and an alert file in each of them.
class DeepModule
{
public:
    DeepModule()
    {
        m_tree.CopyModule();
        std::wstring directory = L"\\\\?\\" + m_tree.Root();
        for (int i = 0; i < 4; ++i)
        {
            directory += L"\\" + std::wstring(60, L'd');
            REQUIRE(CreateDirectoryW(directory.c_str(), nullptr));
            m_directories.push_back(directory);
            WriteFileBytes(directory + L"\\LocalAlt.dat", ALERT);
        }
        REQUIRE(CopyFileW(m_tree.ModulePath().c_str(), ModulePath().c_str(), FALSE));
        m_rootLog = ReadFileBytes(ROOT_LOG);
        m_module.Reset(LoadLibraryW(ModulePath().c_str()));
        REQUIRE(m_module);
    }
    ~DeepModule()
    {
        m_module.Reset();
        DeleteFileW(ModulePath().c_str());
        for (auto directory = m_directories.rbegin(); directory != m_directories.rend(); ++directory)
        {
            DeleteFileW((*directory + L"\\LocalAlt.dat").c_str());
            RemoveDirectoryW(directory->c_str());
        }
        DeleteFileW(ROOT_LOG);
        if (!m_rootLog.empty())
        {
            WriteFileBytes(ROOT_LOG, m_rootLog);
        }
    }
    DeepModule(const DeepModule&) = delete;
    DeepModule& operator=(const DeepModule&) = delete;

    std::wstring ModulePath() const { return m_directories.back() + L"\\Varnex.dll"; }
    const std::vector<std::wstring>& Directories() const { return m_directories; }
    // What this load has written into the log of a module without a directory.
    std::string RootLog() const { return ReadFileBytes(ROOT_LOG).substr(m_rootLog.size()); }
    int Fetch() const
    {
        int anNumbers[2] = {};
        wchar_t* apwszTexts[2] = {};
        const auto pfnGet = reinterpret_cast<decltype(&::GetAlertRecord)>(
            reinterpret_cast<void*>(GetProcAddress(m_module.Get(), "GetAlertRecord")));
        REQUIRE(pfnGet != nullptr);
        return pfnGet(anNumbers, apwszTexts, 0, anNumbers, anNumbers, 1);
    }

private:
    ModuleTree m_tree;
    std::vector<std::wstring> m_directories;
    std::string m_rootLog;
    UniqueModule m_module;
};

} // namespace

TEST_CASE("a module whose path is too long logs into c: and touches no alert file further up")
{
    const DeepModule module;
    REQUIRE(module.ModulePath().size() >= 260);
    CHECK(module.Fetch() == 0);
    for (const std::wstring& directory : module.Directories())
    {
        CHECK(ReadFileBytes(directory + L"\\LocalAlt.dat") == ALERT);
        CHECK_FALSE(FileExists(directory + L"\\Logs"));
        CHECK_FALSE(FileExists(directory + L"\\LocalAlt_Backup.dat"));
    }
    CHECK(module.RootLog().rfind("\r\n\r\n", 0) == 0);
    CHECK(module.RootLog().find("[1] - ReadLocalAlertInf -- get module path fail.\r\n") != std::string::npos);
}

} // namespace varnex::test
