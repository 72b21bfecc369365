#include "support/ModuleTree.h"

#include <catch2/catch.hpp>

#include <windows.h>

namespace varnex::test
{

TEST_CASE("a tree is fresh, and gone at the end with all that was put into it")
{
    std::wstring root;
    {
        const ModuleTree tree;
        const ModuleTree other;
        root = tree.Root();
        CHECK(root != other.Root());
        CHECK(tree.FilesInBin().empty());
        CHECK(FileExists(tree.LogsPath()));
        CHECK(tree.ModulePath() == root + L"\\A\\B\\bin\\Varnex.dll");
        WriteFileBytes(tree.InBin(L"read-only"), "x");
        SetFileAttributesW(tree.InBin(L"read-only").c_str(), FILE_ATTRIBUTE_READONLY);
        CHECK(FileExists(root));
    }
    CHECK_FALSE(FileExists(root));
}

TEST_CASE("a tree can be made without its log directory")
{
    const ModuleTree tree(false);
    CHECK_FALSE(FileExists(tree.LogsPath()));
    CHECK(FileExists(tree.BinPath()));
}

TEST_CASE("files are read as the bytes that they are")
{
    ModuleTree tree;
    const std::string bytes("a\r\nb\n\x1A\0c", 8);
    tree.WriteAlerts(bytes);
    CHECK(tree.Alerts() == bytes);
    CHECK(tree.Log().empty());
    CHECK(tree.FilesInBin() == std::vector<std::wstring>{L"LocalAlt.dat"});
    WriteFileBytes(tree.InLogs(L"Varnex.log"), "line");
    CHECK(tree.Log() == "line");
    CHECK(tree.FilesInLogs() == std::vector<std::wstring>{L"Varnex.log"});
}

TEST_CASE("the configuration is written and its nodes are read back")
{
    ModuleTree tree;
    tree.WriteConfig(ConfigBuilder().Set("CPUInterval", 1).SetCounter("Date", "2026-01-31"));
    CHECK(tree.ConfigNode(L"KPMConfiguration/PkiAlert/CPUInterval") == L"1");
    CHECK(tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/Date") == L"2026-01-31");
    CHECK_FALSE(tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/CPU").has_value());
    tree.RemoveConfig();
    CHECK(tree.FilesInBin().empty());
}

} // namespace varnex::test
