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
#include <limits>

// What stands under the names of the module's files, and who else has them open.

namespace varnex::test
{

namespace
{

bool IsEmptyDirectory(const std::wstring& path)
{
    return RemoveDirectoryW(path.c_str()) != FALSE; // which it is no more then
}

constexpr int FORGED = 1500;

// The last fetch began with the forged alerts from that one on: those of a disk with as much of its name as has room.
void CheckForged(const HostUnderAttack& host, int nFirst, int nEnd)
{
    for (int i = nFirst; i < nEnd; ++i)
    {
        CAPTURE(i);
        const FetchedAlert& alert = host.Fetched(i - nFirst);
        REQUIRE(alert.nType == (i % 2 == 0 ? 3 : -7));
        REQUIRE(alert.nThreshold == (std::numeric_limits<int>::min)());
        REQUIRE(alert.nValue == i);
        const std::size_t cchText = wcsnlen(alert.wszText, FetchedAlert::TEXT_CHARS);
        REQUIRE(cchText < FetchedAlert::TEXT_CHARS);
        REQUIRE((i % 2 != 0 || cchText == FetchedAlert::TEXT_CHARS - 1));
        REQUIRE((alert.wszText[cchText - 1] == L'%') == (i % 2 == 0));
    }
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

TEST_CASE("forged alerts are handed out as alerts, within the caller's arrays, and one that fits no line is told")
{
    constexpr int AT_ONCE = HostUnderAttack::FETCHED_AT_ONCE + 1;
    constexpr int TOO_LONG_EACH = 50;
    constexpr int TOO_LONG = FORGED / TOO_LONG_EACH;
    HostUnderAttack host;
    std::string forged;
    const std::string now = std::to_string(_time64(nullptr));
    for (int i = 0; i < FORGED; ++i)
    {
        forged += (i % 2 == 0 ? "3" : "-7") + (";-2147483648;" + std::to_string(i)) + ";" + now + "();" +
                  std::string(900, '%') + ";\r\n";
        forged += i % TOO_LONG_EACH == 0 ? "3;1;1;" + now + "();" + std::string(1500, '%') + ";\r\n" : "";
    }
    host.tree.WriteAlerts(forged);
    host.Begin();
    REQUIRE(host.AwaitAlerts(FORGED + TOO_LONG + 2)); // the module's own come last
    REQUIRE(host.FetchAll() == AT_ONCE);
    CheckForged(host, 0, AT_ONCE);
    REQUIRE(host.FetchAll() == FORGED - AT_ONCE + 2);
    CheckForged(host, AT_ONCE, FORGED);
    CHECK(host.tree.Alerts().empty());
    CHECK(host.Log().CountContaining("ReadLocalAlertInf -- Translate buffer string(") == 2 * TOO_LONG);
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
