#include "LogFixture.h"

#include "common/Handles.h"

// The log is renamed when it has grown past 8 MiB.

namespace varnex::test
{

namespace
{

constexpr LONGLONG MAX_LOG_BYTES = 8'388'608;

const std::wstring ROLLED_NAME = L"Varnex_20240131235959.log";

// A log of that many bytes, all zero.
void MakeLog(const LogFixture& fixture, LONGLONG llBytes)
{
    const UnscriptedScope unscripted;
    const UniqueFile file(CreateFileW(fixture.tree.InLogs(L"Varnex.log").c_str(), GENERIC_WRITE, 0, nullptr,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    REQUIRE(file);
    LARGE_INTEGER position;
    position.QuadPart = llBytes;
    REQUIRE(SetFilePointerEx(file.Get(), position, nullptr, FILE_BEGIN));
    REQUIRE(SetEndOfFile(file.Get()));
}

LONGLONG BytesIn(const std::wstring& path)
{
    const UnscriptedScope unscripted;
    WIN32_FILE_ATTRIBUTE_DATA attributes{};
    REQUIRE(GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &attributes));
    LARGE_INTEGER size;
    size.LowPart = attributes.nFileSizeLow;
    size.HighPart = static_cast<LONG>(attributes.nFileSizeHigh);
    return size.QuadPart;
}

void ScriptLogSize(ImportRedirector& redirector, DWORD dwHigh, DWORD dwLow)
{
    redirector.Replace<decltype(::GetFileAttributesExA)>("GetFileAttributesExA",
                                                         [=](LPCSTR, GET_FILEEX_INFO_LEVELS, LPVOID pInformation)
                                                         {
                                                             auto& attributes =
                                                                 *static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(pInformation);
                                                             attributes = {};
                                                             attributes.nFileSizeHigh = dwHigh;
                                                             attributes.nFileSizeLow = dwLow;
                                                             return TRUE;
                                                         });
}

constexpr char NEXT_LINE[] = "2024-01-31 23:59:59 [1] - next\r\n";

} // namespace

TEST_CASE("a log of exactly 8388608 bytes is not rolled")
{
    LogFixture fixture;
    MakeLog(fixture, MAX_LOG_BYTES);
    fixture.logger.Level1A("next");
    CHECK(fixture.tree.FilesInLogs() == std::vector<std::wstring>{L"Varnex.log"});
    CHECK(BytesIn(fixture.tree.InLogs(L"Varnex.log")) == MAX_LOG_BYTES + static_cast<LONGLONG>(strlen(NEXT_LINE)));
}

TEST_CASE("a log of 8388609 bytes is rolled before the next line")
{
    LogFixture fixture;
    MakeLog(fixture, MAX_LOG_BYTES + 1);
    SECTION("narrow")
    {
        fixture.logger.Level1A("next");
    }
    SECTION("wide")
    {
        fixture.logger.Level1W(L"next");
    }
    CHECK(fixture.tree.FilesInLogs() == std::vector<std::wstring>{L"Varnex.log", ROLLED_NAME});
    CHECK(BytesIn(fixture.tree.InLogs(ROLLED_NAME)) == MAX_LOG_BYTES + 1);
    CHECK(fixture.tree.Log() == NEXT_LINE);
}

TEST_CASE("the check alone rolls the log and writes no line")
{
    LogFixture fixture;
    MakeLog(fixture, MAX_LOG_BYTES + 1);
    fixture.logger.RollOverIfNeeded();
    CHECK(fixture.tree.FilesInLogs() == std::vector<std::wstring>{ROLLED_NAME});
}

TEST_CASE("the check makes the directory even when there is no log")
{
    LogFixture fixture(false);
    fixture.redirector.CountCalls("MoveFileExA");
    fixture.logger.RollOverIfNeeded();
    CHECK(FileExists(fixture.tree.LogsPath()));
    CHECK(fixture.tree.FilesInLogs().empty());
    CHECK(fixture.redirector.Calls("MoveFileExA") == 0);
}

TEST_CASE("the size of the log counts in 64 bits")
{
    struct Case
    {
        DWORD dwHigh;
        DWORD dwLow;
        ULONGLONG ullRenames;
    };
    const auto expected = GENERATE(Case{0, 0, 0}, Case{0, 8'388'607, 0}, Case{0, 8'388'608, 0}, Case{0, 8'388'609, 1},
                                   Case{0, MAXDWORD, 1}, Case{1, 0, 1}, Case{1, 8'388'608, 1}, Case{0x80000000, 0, 1});
    LogFixture fixture;
    ScriptLogSize(fixture.redirector, expected.dwHigh, expected.dwLow);
    fixture.redirector.CountCalls("MoveFileExA");
    fixture.logger.RollOverIfNeeded();
    CHECK(fixture.redirector.Calls("MoveFileExA") == expected.ullRenames);
}

TEST_CASE("the rolled log has the local time in its name, each number with its zeros")
{
    LogFixture fixture;
    fixture.clock.Set(LocalTime{2026, 2, 3, 4, 5, 6});
    MakeLog(fixture, MAX_LOG_BYTES + 1);
    fixture.logger.RollOverIfNeeded();
    CHECK(fixture.tree.FilesInLogs() == std::vector<std::wstring>{L"Varnex_20260203040506.log"});
}

TEST_CASE("the rename replaces, and is on the disk before it returns")
{
    LogFixture fixture;
    MakeLog(fixture, MAX_LOG_BYTES + 1);
    DWORD dwFlags = 0;
    fixture.redirector.Replace<decltype(::MoveFileExA)>("MoveFileExA",
                                                        [&](LPCSTR pszOld, LPCSTR pszNew, DWORD dwGiven)
                                                        {
                                                            dwFlags = dwGiven;
                                                            return MoveFileExA(pszOld, pszNew, dwGiven);
                                                        });
    fixture.logger.RollOverIfNeeded();
    CHECK(dwFlags == (MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH));
}

TEST_CASE("a second roll-over within one second replaces the first one's file")
{
    LogFixture fixture;
    MakeLog(fixture, MAX_LOG_BYTES + 1);
    fixture.logger.Level1A("next");
    MakeLog(fixture, MAX_LOG_BYTES + 2);
    fixture.logger.Level1A("next");
    CHECK(fixture.tree.FilesInLogs() == std::vector<std::wstring>{L"Varnex.log", ROLLED_NAME});
    CHECK(BytesIn(fixture.tree.InLogs(ROLLED_NAME)) == MAX_LOG_BYTES + 2);
    CHECK(fixture.tree.Log() == NEXT_LINE);
}

TEST_CASE("a roll-over one second later leaves the first one's file alone")
{
    LogFixture fixture;
    MakeLog(fixture, MAX_LOG_BYTES + 1);
    fixture.logger.RollOverIfNeeded();
    MakeLog(fixture, MAX_LOG_BYTES + 2);
    fixture.clock.Advance(1);
    fixture.logger.RollOverIfNeeded();
    CHECK(fixture.tree.FilesInLogs() == std::vector<std::wstring>{ROLLED_NAME, L"Varnex_20240201000000.log"});
    CHECK(BytesIn(fixture.tree.InLogs(ROLLED_NAME)) == MAX_LOG_BYTES + 1);
}

TEST_CASE("a rename that fails costs no line: the old log goes on")
{
    LogFixture fixture;
    MakeLog(fixture, MAX_LOG_BYTES + 1);
    fixture.redirector.FailCall("MoveFileExA", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);
    fixture.logger.Level1A("next");
    fixture.logger.Level1A("next");
    CHECK(fixture.redirector.Failures("MoveFileExA") == 2);
    CHECK(fixture.tree.FilesInLogs() == std::vector<std::wstring>{L"Varnex.log"});
    CHECK(BytesIn(fixture.tree.InLogs(L"Varnex.log")) ==
          MAX_LOG_BYTES + 1 + 2 * static_cast<LONGLONG>(strlen(NEXT_LINE)));
}

TEST_CASE("a log whose size cannot be read is not rolled")
{
    LogFixture fixture;
    MakeLog(fixture, MAX_LOG_BYTES + 1);
    fixture.redirector.FailCall("GetFileAttributesExA", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);
    fixture.logger.Level1A("next");
    CHECK(fixture.redirector.Failures("GetFileAttributesExA") == 1);
    CHECK(fixture.tree.FilesInLogs() == std::vector<std::wstring>{L"Varnex.log"});
}

TEST_CASE("the longest path of a log is rolled within bounds")
{
    LogFixture fixture;
    fixture.logger.Configure(std::string(248, 'd').c_str(), "Varnex"); // 259 characters with the name
    fixture.redirector.Replace<decltype(::CreateDirectoryA)>("CreateDirectoryA",
                                                             [](LPCSTR, LPSECURITY_ATTRIBUTES) { return TRUE; });
    ScriptLogSize(fixture.redirector, 1, 0);
    std::string newPath;
    fixture.redirector.Replace<decltype(::MoveFileExA)>("MoveFileExA",
                                                        [&](LPCSTR, LPCSTR pszNew, DWORD)
                                                        {
                                                            newPath = pszNew;
                                                            return TRUE;
                                                        });
    fixture.logger.RollOverIfNeeded();
    CHECK(newPath == std::string(248, 'd') + "\\Varnex_20240131235959.log");
}

} // namespace varnex::test
