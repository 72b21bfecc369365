#include "LogEntries.h"
#include "LogFixture.h"

#include "support/ProcessMeter.h"

#include <algorithm>
#include <functional>

// A line that cannot be written is dropped, and the caller notices nothing.

namespace varnex::test
{

namespace
{

constexpr DWORD CALLERS_ERROR = 4711;

// The last error that one narrow line leaves of CALLERS_ERROR, and one wide line.
void CheckThatErrorIsKept(SPLogger& logger)
{
    SetLastError(CALLERS_ERROR);
    logger.Level1A("dropped %s", "narrow");
    const DWORD dwAfterNarrow = GetLastError();
    SetLastError(CALLERS_ERROR);
    logger.Level1W(L"dropped %s", L"wide");
    const DWORD dwAfterWide = GetLastError();
    CHECK(dwAfterNarrow == CALLERS_ERROR);
    CHECK(dwAfterWide == CALLERS_ERROR);
}

} // namespace

TEST_CASE("a line that is written leaves the thread's last error alone")
{
    LogFixture fixture;
    for (std::size_t i = 0; i < 4; ++i)
    {
        SetLastError(CALLERS_ERROR);
        (fixture.logger.*NarrowEntries()[i].pfnLog)("text");
        CHECK(GetLastError() == CALLERS_ERROR);
        SetLastError(CALLERS_ERROR);
        (fixture.logger.*WideEntries()[i].pfnLog)(L"text");
        CHECK(GetLastError() == CALLERS_ERROR);
    }
    CHECK(LogFile(fixture.tree).Lines().size() == 8);
}

TEST_CASE("a failing call costs one line, and neither a handle nor the caller's last error nor the next line")
{
    struct Case
    {
        const char* pszImport;
        DWORD dwError;
        ULONGLONG ullResult;
    };
    const auto failing = GENERATE(Case{"CreateFileA", ERROR_ACCESS_DENIED, static_cast<ULONGLONG>(-1)},
                                  Case{"CreateFileA", ERROR_SHARING_VIOLATION, static_cast<ULONGLONG>(-1)},
                                  Case{"WriteFile", ERROR_DISK_FULL, 0}, Case{"WriteFile", ERROR_HANDLE_DISK_FULL, 0},
                                  Case{"malloc", ERROR_NOT_ENOUGH_MEMORY, 0});
    INFO(failing.pszImport << " fails with " << failing.dwError);
    LogFixture fixture;
    fixture.logger.Level1A("first");
    const std::size_t nHandles = CountHandles();
    fixture.redirector.FailCall(failing.pszImport, 1, FailMode::FromThereOn, failing.dwError, failing.ullResult);
    // Long enough for a block of memory; nothing but the logger may run while there is none.
    constexpr char szLong[] = "a text that is too long to stand inside a string object %s";
    constexpr wchar_t wszLong[] = L"a text that is too long to stand inside a string object %s";
    SetLastError(CALLERS_ERROR);
    fixture.logger.Level1A(szLong, "narrow");
    const DWORD dwAfterNarrow = GetLastError();
    SetLastError(CALLERS_ERROR);
    fixture.logger.Level1W(wszLong, L"wide");
    const DWORD dwAfterWide = GetLastError();
    fixture.redirector.StopFailing(failing.pszImport);

    CHECK(fixture.redirector.Failures(failing.pszImport) >= 2);
    CHECK(dwAfterNarrow == CALLERS_ERROR);
    CHECK(dwAfterWide == CALLERS_ERROR);
    CHECK(CountHandles() == nHandles);
    CHECK(fixture.IsMutexFree());
    fixture.logger.Level1A("next");
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [1] - first\r\n2024-01-31 23:59:59 [1] - next\r\n");
}

TEST_CASE("a line of which a part was written is ended before the next one")
{
    LogFixture fixture;
    DWORD cbRoom = 10;
    fixture.redirector.Replace<decltype(::WriteFile)>(
        "WriteFile",
        [&cbRoom](HANDLE hFile, LPCVOID pData, DWORD cbData, LPDWORD pcbWritten, LPOVERLAPPED)
        {
            const DWORD cbTaken = std::min(cbData, cbRoom);
            cbRoom -= cbTaken;
            SetLastError(ERROR_DISK_FULL);
            return cbTaken != 0 ? WriteFile(hFile, pData, cbTaken, pcbWritten, nullptr) : FALSE;
        });
    fixture.logger.Level1A("torn");
    CHECK(fixture.tree.Log() == "2024-01-31");
    const auto cbMore = GENERATE(DWORD{0}, DWORD{1}, DWORD{2}); // what the line between finds, which is lost
    CAPTURE(cbMore);
    cbRoom = cbMore;
    fixture.logger.Level1A("lost");
    fixture.redirector.Restore("WriteFile");
    fixture.redirector.CountCalls("WriteFile");
    fixture.logger.Level1A("next");
    fixture.logger.Level1A("last");
    CHECK(fixture.tree.Log() == "2024-01-31" + std::string(cbMore == 1 ? "\r" : "") +
                                    "\r\n2024-01-31 23:59:59 [1] - next\r\n2024-01-31 23:59:59 [1] - last\r\n");
    CHECK(fixture.redirector.Calls("WriteFile") == (cbMore == 2 ? 2 : 3));
}

TEST_CASE("a directory that cannot be made costs nothing while it is there")
{
    LogFixture fixture;
    fixture.redirector.FailCall("CreateDirectoryA", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);
    CheckThatErrorIsKept(fixture.logger);
    CHECK(fixture.redirector.Failures("CreateDirectoryA") == 2);
    CHECK(LogFile(fixture.tree).Lines().size() == 2);
}

TEST_CASE("without its directory a line is dropped")
{
    LogFixture fixture(false);
    SECTION("because the directory cannot be made")
    {
        fixture.redirector.FailCall("CreateDirectoryA", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);
        CheckThatErrorIsKept(fixture.logger);
        CHECK_FALSE(FileExists(fixture.tree.LogsPath()));
    }
    SECTION("because a file stands in its place")
    {
        WriteFileBytes(fixture.tree.LogsPath(), "a file");
        CheckThatErrorIsKept(fixture.logger);
        CHECK(ReadFileBytes(fixture.tree.LogsPath()) == "a file");
    }
}

TEST_CASE("a log that somebody else has open without sharing costs lines only as long as that lasts")
{
    LogFixture fixture;
    {
        const UniqueFile file(CreateFileW(fixture.tree.InLogs(L"Varnex.log").c_str(), GENERIC_READ, 0, nullptr,
                                          CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        REQUIRE(file);
        CheckThatErrorIsKept(fixture.logger);
    }
    CHECK(fixture.tree.Log().empty());
    fixture.logger.Level1A("next");
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [1] - next\r\n");
}

TEST_CASE("a log that somebody reads or writes with sharing goes on")
{
    LogFixture fixture;
    const UniqueFile file(CreateFileW(fixture.tree.InLogs(L"Varnex.log").c_str(), GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                      nullptr));
    REQUIRE(file);
    fixture.logger.Level1A("next");
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [1] - next\r\n");
}

TEST_CASE("a message that cannot be put into text leaves the stamp and the level")
{
    LogFixture fixture;
    // The C library has no narrow form of this character in its own locale.
    fixture.logger.Level1A("name %S", L"\u4e2d");
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [1] - \r\n");
}

TEST_CASE("the mark between two loads is dropped when the file cannot be opened")
{
    LogFixture fixture;
    fixture.redirector.FailCall("CreateFileA", 1, FailMode::Once, ERROR_ACCESS_DENIED, static_cast<ULONGLONG>(-1));
    fixture.redirector.CountCalls("WriteFile");
    fixture.logger.WriteSeparator();
    CHECK(fixture.redirector.Failures("CreateFileA") == 1);
    CHECK(fixture.redirector.Calls("WriteFile") == 0);
    CHECK(fixture.tree.FilesInLogs().empty());
}

} // namespace varnex::test
