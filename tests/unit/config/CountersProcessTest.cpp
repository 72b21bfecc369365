#include "ConfigFixture.h"

#include "common/Handles.h"
#include "config/DailyCounters.h"
#include "config/XmlConfig.h"
#include "support/ChildProcess.h"
#include "support/VirtualClock.h"

#include <catch2/catch.hpp>

#include <windows.h>

namespace varnex::test
{

namespace
{

constexpr wchar_t TODAY[] = L"2026-01-31";
constexpr wchar_t DIRECTORY_VARIABLE[] = L"VARNEX_TEST_CONFIG_DIRECTORY";
constexpr wchar_t KEY_VARIABLE[] = L"VARNEX_TEST_KEY";
constexpr wchar_t COUNTER_VARIABLE[] = L"VARNEX_TEST_COUNTER";
constexpr wchar_t WHERE_VARIABLE[] = L"VARNEX_TEST_WHERE";
constexpr wchar_t END_VARIABLE[] = L"VARNEX_TEST_END_EVENT";
constexpr wchar_t READY_ENDING[] = L"-ready"; // of the semaphore that counts the readers that have begun
constexpr unsigned SAVES = 15;
constexpr DWORD CHILD_MS = 60000;

std::wstring Variable(const wchar_t* pwszName)
{
    wchar_t wszValue[512];
    const DWORD cchValue = GetEnvironmentVariableW(pwszName, wszValue, 512);
    return std::wstring(wszValue, cchValue);
}

ChildProcess StartChild(const char* pszTestCase, const ConfigFixture& config, const wchar_t* pwszName,
                        const std::wstring& value)
{
    ChildOptions options;
    options.environment = {
        {DIRECTORY_VARIABLE, config.tree.BinPath()}, {KEY_VARIABLE, config.Key()}, {pwszName, value}};
    return ChildProcess::OfTestCase(pszTestCase, options);
}

void CheckEndedWell(const ChildProcess& child)
{
    REQUIRE(child.WaitForEnd(CHILD_MS));
    INFO(child.Output());
    CHECK(child.ExitCode() == 0);
}

} // namespace

TEST_CASE("child: saves one counter again and again", "[.]")
{
    ConfigFixture config(Variable(DIRECTORY_VARIABLE), Variable(KEY_VARIABLE));
    const int nCounter = std::stoi(Variable(COUNTER_VARIABLE));
    for (unsigned nSave = 1; nSave <= SAVES; ++nSave)
    {
        int nCount = -77;
        CHECK(SaveAlertNumIntoLocal(TODAY, nCounter, nSave) == 0);
        CHECK(GetAlertNumFromLocal(TODAY, nCounter, &nCount) == 0);
        CHECK(nCount == static_cast<int>(nSave)); // what another process saved has not undone it
    }
    CHECK(config.tree.Log().find("fail") == std::string::npos);
}

TEST_CASE("child: reads the counters until it is told to end", "[.]")
{
    ConfigFixture config(Variable(DIRECTORY_VARIABLE), Variable(KEY_VARIABLE));
    const UniqueHandle end(OpenEventW(SYNCHRONIZE, FALSE, Variable(END_VARIABLE).c_str()));
    REQUIRE(end);
    const UniqueHandle ready(
        OpenSemaphoreW(SEMAPHORE_MODIFY_STATE, FALSE, (Variable(END_VARIABLE) + READY_ENDING).c_str()));
    int anLast[] = {0, 0};
    int nReads = 0;
    while (WaitForSingleObject(end.Get(), 20) == WAIT_TIMEOUT)
    {
        for (const int nIndex : {0, 1})
        {
            int nCount = -77;
            const int nResult = GetAlertNumFromLocal(TODAY, nIndex == 0 ? 1 : 6, &nCount);
            REQUIRE(nResult == 0);
            REQUIRE(nCount >= anLast[nIndex]);
            anLast[nIndex] = nCount;
            ++nReads;
        }
        if (nReads == 2 && ready)
        {
            ReleaseSemaphore(ready.Get(), 1, nullptr);
        }
    }
    CHECK(nReads > 0);
}

TEST_CASE("processes that save different counters at the same time lose none, and readers always see a whole file")
{
    ConfigFixture config;
    config.tree.WriteConfig(ConfigBuilder()
                                .SetCounter("Date", "2026-01-31")
                                .SetCounter("CPU", "0")
                                .SetCounter("PH", "0")
                                .SetCounter("PF", "0")
                                .SetCounter("Disk", "0")
                                .SetCounter("Network", "0"));
    const std::wstring endName = L"varnex-test-end-" + std::to_wstring(GetCurrentProcessId());
    const UniqueHandle end(CreateEventW(nullptr, TRUE, FALSE, endName.c_str()));
    REQUIRE(end);
    const ChildProcess reader =
        StartChild("child: reads the counters until it is told to end", config, END_VARIABLE, endName);
    std::vector<ChildProcess> writers;
    for (const int nCounter : {1, 3, 5, 6})
    {
        writers.push_back(StartChild("child: saves one counter again and again", config, COUNTER_VARIABLE,
                                     std::to_wstring(nCounter)));
    }
    for (const ChildProcess& writer : writers)
    {
        CheckEndedWell(writer);
    }
    CHECK(reader.Runs());
    SetEvent(end.Get());
    CheckEndedWell(reader);
    for (const int nCounter : {1, 3, 5, 6})
    {
        int nCount = -77;
        CHECK(GetAlertNumFromLocal(TODAY, nCounter, &nCount) == 0);
        CHECK(nCount == static_cast<int>(SAVES));
    }
    CHECK(config.tree.FilesInBin() == std::vector<std::wstring>{L"KpmCfg.xml"});
}

TEST_CASE("readers in other processes see a whole file and a count that only grows while it is written in place")
{
    ConfigFixture config;
    config.tree.WriteConfig(
        ConfigBuilder().SetCounter("Date", "2026-01-31").SetCounter("CPU", "0").SetCounter("PF", "0"));
    const std::wstring endName = L"varnex-test-end-" + std::to_wstring(GetCurrentProcessId());
    const UniqueHandle end(CreateEventW(nullptr, TRUE, FALSE, endName.c_str()));
    REQUIRE(end);
    const UniqueHandle ready(CreateSemaphoreW(nullptr, 0, 2, (endName + READY_ENDING).c_str()));
    REQUIRE(ready);
    std::vector<ChildProcess> readers;
    for (int i = 0; i < 2; ++i)
    {
        readers.push_back(
            StartChild("child: reads the counters until it is told to end", config, END_VARIABLE, endName));
        REQUIRE(WaitForSingleObject(ready.Get(), CHILD_MS) == WAIT_OBJECT_0);
    }
    unsigned nSaved = 0;
    {
        VirtualClock clock(config.redirector); // the second before each writing in place takes no time
        config.redirector.FailCall("MoveFileExW", 1, FailMode::FromThereOn, ERROR_SHARING_VIOLATION);
        // A reader that has the file open at this moment makes it a refused save: those do not count.
        for (int nTry = 0; nTry < 1000 && nSaved < SAVES; ++nTry)
        {
            nSaved += SaveAlertNumIntoLocal(TODAY, 1, nSaved + 1) == 0 ? 1 : 0;
        }
        config.redirector.StopFailing("MoveFileExW");
    }
    CHECK(nSaved == SAVES);
    for (const ChildProcess& reader : readers)
    {
        CHECK(reader.Runs());
    }
    SetEvent(end.Get());
    for (const ChildProcess& reader : readers)
    {
        CheckEndedWell(reader);
    }
    CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/CPU") == std::to_wstring(SAVES));
}

TEST_CASE("child: ends in the middle of writing in place", "[.]")
{
    ConfigFixture config(Variable(DIRECTORY_VARIABLE), Variable(KEY_VARIABLE));
    VirtualClock clock(config.redirector);
    config.redirector.FailCall("MoveFileExW", 1, FailMode::FromThereOn, ERROR_SHARING_VIOLATION);
    config.redirector.Replace<decltype(::WriteFile)>(
        "WriteFile",
        [&](HANDLE hFile, LPCVOID pBytes, DWORD cbBytes, LPDWORD pcbWritten, LPOVERLAPPED pOverlapped)
        {
            if (config.redirector.Calls("MoveFileExW") != 0) // what comes after those is in place
            {
                WriteFile(hFile, pBytes, cbBytes - 8, pcbWritten, pOverlapped);
                TerminateProcess(GetCurrentProcess(), 99);
            }
            return WriteFile(hFile, pBytes, cbBytes, pcbWritten, pOverlapped);
        });
    SaveAlertNumIntoLocal(TODAY, 1, 50);
}

TEST_CASE("a process that ends in the middle of writing in place leaves the whole new file beside it")
{
    ConfigFixture config;
    config.tree.WriteConfig(ConfigBuilder().SetCounter("Date", "2026-01-31").SetCounter("CPU", "4"));
    const std::string before = config.FileBytes();
    const ChildProcess child =
        StartChild("child: ends in the middle of writing in place", config, WHERE_VARIABLE, L"in place");
    REQUIRE(child.WaitForEnd(CHILD_MS));
    CHECK(child.ExitCode() == 99);
    CHECK(config.FileBytes() != before);
    config.tree.WriteConfigText(ReadFileBytes(config.File() + L".tmp"));
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == 0);
    CHECK(nCount == 50);
}

TEST_CASE("child: ends in the middle of a save", "[.]")
{
    ConfigFixture config(Variable(DIRECTORY_VARIABLE), Variable(KEY_VARIABLE));
    const std::wstring where = Variable(WHERE_VARIABLE);
    const auto die = []
    {
        TerminateProcess(GetCurrentProcess(), 99);
        return FALSE;
    };
    if (where == L"flush")
    {
        config.redirector.Replace<decltype(::FlushFileBuffers)>("FlushFileBuffers", [die](HANDLE) { return die(); });
    }
    else
    {
        config.redirector.Replace<decltype(::MoveFileExW)>("MoveFileExW",
                                                           [die](LPCWSTR, LPCWSTR, DWORD) { return die(); });
    }
    SaveAlertNumIntoLocal(TODAY, 1, 50);
}

TEST_CASE("a process that ends in the middle of a save leaves the old file whole, and saving goes on")
{
    ConfigFixture config;
    for (const wchar_t* const pwszWhere : {L"flush", L"replace"})
    {
        config.tree.WriteConfig(ConfigBuilder().SetCounter("Date", "2026-01-31").SetCounter("CPU", "4"));
        const std::string before = config.FileBytes();
        config.mutex.Make();
        const ChildProcess child = StartChild("child: ends in the middle of a save", config, WHERE_VARIABLE, pwszWhere);
        REQUIRE(child.WaitForEnd(CHILD_MS));
        CHECK(child.ExitCode() == 99);
        CHECK(config.FileBytes() == before);
        CHECK(FileExists(config.File() + L".tmp"));

        CHECK(SaveAlertNumIntoLocal(TODAY, 1, 5) == -3); // the first one meets the mutex that the child abandoned
        CHECK(SaveAlertNumIntoLocal(TODAY, 1, 5) == 0);
        CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/CPU") == L"5");
        CHECK(config.tree.FilesInBin() == std::vector<std::wstring>{L"KpmCfg.xml"});
    }
}

} // namespace varnex::test
