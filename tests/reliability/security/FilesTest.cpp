#include "HostUnderAttack.h"

#include "support/AlertLines.h"
#include "support/ImportRedirector.h"
#include "support/LoadedModule.h"
#include "support/TestFiles.h"
#include "support/TestText.h"
#include "support/TraceRegistry.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <algorithm>

// What stands under the names of the module's files, and who else has them open.

namespace varnex::test
{

namespace
{

bool IsEmptyDirectory(const std::wstring& path)
{
    return RemoveDirectoryW(path.c_str()) != FALSE; // which it is no more then
}

} // namespace

TEST_CASE("a directory under the name of a file keeps that file out, and is left alone")
{
    struct Rule
    {
        const wchar_t* pwszFile;
        int nFetched; // of two alerts
    };
    const Rule rule = GENERATE(values<Rule>({{L"bin\\LocalAlt.dat", 0},
                                             {L"bin\\LocalAlt_Backup.dat", 0},
                                             {L"bin\\KpmCfg.xml.tmp", 2},
                                             {L"Logs\\Varnex.log", 2},
                                             {L"Logs\\MemoryUtil.log", 2}}));
    CAPTURE(Utf8FromWide(rule.pwszFile));
    HostUnderAttack host;
    const std::wstring path = host.tree.Root() + L"\\A\\B\\" + rule.pwszFile;
    REQUIRE(CreateDirectoryW(path.c_str(), nullptr));
    host.Begin();
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    if (std::wstring(rule.pwszFile) != L"bin\\LocalAlt.dat")
    {
        CHECK(host.AwaitAlerts());
    }
    CHECK(host.FetchAll() == rule.nFetched);
    CHECK(IsEmptyDirectory(path));
    host.End();
}

TEST_CASE("a configuration that is a directory means defaults, and is left alone")
{
    HostUnderAttack host;
    host.tree.RemoveConfig();
    const std::wstring path = host.tree.InBin(L"KpmCfg.xml");
    REQUIRE(CreateDirectoryW(path.c_str(), nullptr));
    host.Begin();
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    host.End();
    CHECK(IsEmptyDirectory(path));
}

TEST_CASE("forged alerts are handed out as alerts, within the caller's arrays")
{
    HostUnderAttack host;
    std::string forged;
    const std::string now = std::to_string(_time64(nullptr));
    for (int i = 0; i < 1500; ++i)
    {
        forged += "-7;2147483648;%s;" + now + "();" + std::string(2000, '%') + ";\r\n";
    }
    host.tree.WriteAlerts(forged);
    host.Begin();
    CHECK(host.FetchAll() <= 1001);
    host.End();
}

// A link takes the right to write in the folder; what follows from it is why that right must be the host's alone.
TEST_CASE("a link under the name of the alert file leads the module's lines to the other file until the next fetch")
{
    HostUnderAttack host;
    const std::wstring victim = host.tree.InLogs(L"Varnex_victim.txt");
    WriteFileBytes(victim, "somebody else's\r\n");
    REQUIRE(CreateHardLinkW(host.tree.InBin(L"LocalAlt.dat").c_str(), victim.c_str(), nullptr));
    host.Begin();
    CHECK(host.AwaitAlerts(3));
    CHECK_THAT(ReadFileBytes(victim), Catch::StartsWith("somebody else's\r\n2;1;"));
    CHECK(host.FetchAll() == 2);
    CHECK(host.tree.Alerts().empty());
    CHECK_THAT(ReadFileBytes(victim), Catch::StartsWith("somebody else's\r\n2;1;")); // not followed any more
    host.End();
}

TEST_CASE("a link under the name of the log leads the module's lines to the other file, behind what that holds")
{
    HostUnderAttack host;
    const std::wstring victim = host.tree.Root() + L"\\victim.txt";
    WriteFileBytes(victim, "somebody else's\r\n");
    REQUIRE(CreateHardLinkW(host.tree.InLogs(L"Varnex.log").c_str(), victim.c_str(), nullptr));
    host.Begin();
    CHECK(host.AwaitAlerts());
    CHECK(host.FetchAll() == 2);
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    CHECK(host.CanLog());
    const std::string bytes = ReadFileBytes(victim);
    CHECK_THAT(bytes, Catch::StartsWith("somebody else's\r\n"));
    CHECK_THAT(bytes, Catch::Contains("StartWorkingThread"));
    REQUIRE(DeleteFileW(victim.c_str())); // the test's own: whatever else is there at the end is the module's
    host.End();
}

TEST_CASE("a link under the name of a trace file has the other file emptied and traced into")
{
    ModuleTree tree;
    tree.CopyModule();
    const std::wstring victim = tree.Root() + L"\\victim.txt";
    WriteFileBytes(victim, "somebody else's\r\n");
    REQUIRE(CreateHardLinkW(tree.InLogs(L"MemoryUtil.log").c_str(), victim.c_str(), nullptr));
    LoadedModule module(tree, LoadedModule::Start::Later);
    ImportRedirector imports(module.Handle());
    TraceRegistry registry(imports);
    registry.SetSwitch(1);
    imports.Replace<decltype(::Sleep)>("Sleep", [](DWORD dwMilliseconds) { Sleep((dwMilliseconds + 199) / 200); });
    REQUIRE(module.Attach());
    module.Export<decltype(::StartPKIUtlThread)>("StartPKIUtlThread")();
    const ULONGLONG ullGiveUp = GetTickCount64() + HostUnderAttack::PATIENCE_MS;
    std::string bytes;
    while (std::count(bytes.begin(), bytes.end(), '\n') < 3 && GetTickCount64() < ullGiveUp)
    {
        Sleep(20);
        bytes = ReadFileBytes(victim);
    }
    module.Export<decltype(::StopPKIUtlThread)>("StopPKIUtlThread")();
    CHECK_THAT(bytes, Catch::StartsWith("Time\t"));
    CHECK(std::count(bytes.begin(), bytes.end(), '\n') >= 3);                      // a header and two measurements
    CHECK(ReadFileBytes(tree.InLogs(L"MemoryUtil.log")) == ReadFileBytes(victim)); // the link stands
}

} // namespace varnex::test
