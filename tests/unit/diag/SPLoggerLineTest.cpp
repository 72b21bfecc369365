#include "LogEntries.h"
#include "LogFixture.h"

// What one line looks like on disk, and which lines are written at all.

namespace varnex::test
{

TEST_CASE("each of the eight entries writes its stamp, its level and its text")
{
    LogFixture fixture;
    LogThroughEveryEntry(fixture.logger);
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [1] - line 1 narrow\r\n"
                                "2024-01-31 23:59:59 [1] - line 1 wide\r\n"
                                "2024-01-31 23:59:59 [2] - line 2 narrow\r\n"
                                "2024-01-31 23:59:59 [2] - line 2 wide\r\n"
                                "2024-01-31 23:59:59 [3] - line 3 narrow\r\n"
                                "2024-01-31 23:59:59 [3] - line 3 wide\r\n"
                                "2024-01-31 23:59:59 [4] - line 4 narrow\r\n"
                                "2024-01-31 23:59:59 [4] - line 4 wide\r\n");
}

TEST_CASE("the stamp is the local time of the line, each number with its zeros")
{
    LogFixture fixture;
    fixture.clock.Set(LocalTime{2026, 2, 3, 4, 5, 6});
    fixture.logger.Level1A("narrow");
    fixture.clock.Advance(1);
    fixture.logger.Level1W(L"wide");
    CHECK(fixture.tree.Log() == "2026-02-03 04:05:06 [1] - narrow\r\n2026-02-03 04:05:07 [1] - wide\r\n");
}

TEST_CASE("a line is one open, one write and one close")
{
    LogFixture fixture;
    for (const char* pszImport : {"CreateFileA", "WriteFile", "CloseHandle"})
    {
        fixture.redirector.CountCalls(pszImport);
    }
    SECTION("narrow")
    {
        fixture.logger.Level2A("first\nsecond %s", "text");
    }
    SECTION("wide")
    {
        fixture.logger.Level2W(L"first\nsecond %s", L"text");
    }
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [2] - first\r\nsecond text\r\n");
    CHECK(fixture.redirector.Calls("CreateFileA") == 1);
    CHECK(fixture.redirector.Calls("WriteFile") == 1);
    CHECK(fixture.redirector.Calls("CloseHandle") == 1);
}

TEST_CASE("the file is opened for appending only, and readers and writers may share it")
{
    LogFixture fixture;
    DWORD dwAccess = 0;
    DWORD dwShare = 0;
    DWORD dwDisposition = 0;
    fixture.redirector.Replace<decltype(::CreateFileA)>(
        "CreateFileA",
        [&](LPCSTR pszPath, DWORD dwWanted, DWORD dwShared, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwCreation,
            DWORD dwFlags, HANDLE hTemplate)
        {
            dwAccess = dwWanted;
            dwShare = dwShared;
            dwDisposition = dwCreation;
            return CreateFileA(pszPath, dwWanted, dwShared, pSecurity, dwCreation, dwFlags, hTemplate);
        });
    fixture.logger.Level1A("text");
    CHECK(dwAccess == FILE_APPEND_DATA);
    CHECK(dwShare == (FILE_SHARE_READ | FILE_SHARE_WRITE));
    CHECK(dwDisposition == OPEN_ALWAYS);
}

TEST_CASE("every LF of a line is written as CR LF, and a CR stays as it is")
{
    struct Case
    {
        const char* pszMessage;
        const char* pszOnDisk;
    };
    const auto expected = GENERATE(
        Case{"plain", "plain\r\n"}, Case{"", "\r\n"}, Case{"ends in a line feed\n", "ends in a line feed\r\n\r\n"},
        Case{"\n", "\r\n\r\n"}, Case{"one\ntwo\n\nthree", "one\r\ntwo\r\n\r\nthree\r\n"},
        Case{"carriage\rreturn", "carriage\rreturn\r\n"}, Case{"both\r\nends", "both\r\r\nends\r\n"});
    LogFixture fixture;
    fixture.logger.Level1A("%s", expected.pszMessage);
    fixture.logger.Level1W(L"%s", WideFromAnsi(expected.pszMessage).c_str());
    const std::string line = std::string("2024-01-31 23:59:59 [1] - ") + expected.pszOnDisk;
    CHECK(fixture.tree.Log() == line + line);
}

TEST_CASE("a line feed in the format itself leaves a blank line as well")
{
    LogFixture fixture;
    fixture.logger.Level1A("initialize COM interface failed.\n");
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [1] - initialize COM interface failed.\r\n\r\n");
}

TEST_CASE("wide text is written in the system's code page, with ? for what that lacks")
{
    LogFixture fixture;
    REQUIRE(GetACP() == 1252);
    fixture.logger.Level3W(L"%s|%s", L"Gr\u00f6\u00dfe \u20ac", L"\u4e2d\u6587");
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [3] - Gr\xf6\xdf"
                                "e \x80|??\r\n");
}

TEST_CASE("narrow text of the system's code page is written byte by byte")
{
    LogFixture fixture;
    fixture.logger.Level3A("%s", "\xe4\xf6\xfc\x1a\xff");
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [3] - \xe4\xf6\xfc\x1a\xff\r\n");
}

TEST_CASE("%s takes the entry's own width and %S the other one")
{
    LogFixture fixture;
    fixture.logger.Level1A("%s %S %d%%", "narrow", L"wide", 7);
    fixture.logger.Level1W(L"%s %S %d%%", L"wide", "narrow", 7);
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [1] - narrow wide 7%\r\n"
                                "2024-01-31 23:59:59 [1] - wide narrow 7%\r\n");
}

TEST_CASE("text from outside is never taken for a format")
{
    LogFixture fixture;
    fixture.logger.Level1A("%s", "%s%s%n%d");
    fixture.logger.Level1W(L"%s", L"%s%s%n%d");
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [1] - %s%s%n%d\r\n2024-01-31 23:59:59 [1] - %s%s%n%d\r\n");
}

TEST_CASE("a message of 100000 characters is written whole, in one write")
{
    LogFixture fixture;
    const std::string text = std::string(49'999, 'a') + "\n" + std::string(50'000, 'z');
    fixture.redirector.CountCalls("WriteFile");
    SECTION("narrow")
    {
        fixture.logger.Level1A("%s", text.c_str());
    }
    SECTION("wide")
    {
        fixture.logger.Level1W(L"%s", WideFromAnsi(text).c_str());
    }
    CHECK(fixture.redirector.Calls("WriteFile") == 1);
    const bool bWhole = fixture.tree.Log() == "2024-01-31 23:59:59 [1] - " + std::string(49'999, 'a') + "\r\n" +
                                                  std::string(50'000, 'z') + "\r\n";
    CHECK(bWhole);
}

TEST_CASE("a line goes behind what the file holds, whether or not that ends a line")
{
    LogFixture fixture;
    WriteFileBytes(fixture.tree.InLogs(L"Varnex.log"), "torn\x1a");
    fixture.logger.Level1A("next");
    CHECK(fixture.tree.Log() == "torn\x1a"
                                "2024-01-31 23:59:59 [1] - next\r\n");
}

TEST_CASE("a null format writes nothing at any level and touches neither mutex nor disk")
{
    LogFixture fixture;
    for (const char* pszImport : {"WaitForSingleObject", "CreateDirectoryA", "CreateFileA"})
    {
        fixture.redirector.CountCalls(pszImport);
    }
    const char* const pszNone = nullptr;
    const wchar_t* const pwszNone = nullptr;
    for (const NarrowEntry& entry : NarrowEntries())
    {
        (fixture.logger.*entry.pfnLog)(pszNone);
    }
    for (const WideEntry& entry : WideEntries())
    {
        (fixture.logger.*entry.pfnLog)(pwszNone);
    }
    CHECK(fixture.redirector.Calls("WaitForSingleObject") == 0);
    CHECK(fixture.redirector.Calls("CreateDirectoryA") == 0);
    CHECK(fixture.redirector.Calls("CreateFileA") == 0);
    CHECK(fixture.tree.FilesInLogs().empty());
}

TEST_CASE("a line is written while the level is at least its own")
{
    const int nLevel = GENERATE(-1, 0, 1, 2, 3, 4, 5);
    LogFixture fixture;
    fixture.logger.Level = nLevel;
    LogThroughEveryEntry(fixture.logger);
    const LogFile log(fixture.tree);
    for (int nLine = 1; nLine <= 4; ++nLine)
    {
        INFO("level " << nLevel << ", lines of level " << nLine);
        CHECK(log.CountOfLevel(nLine) == (nLine <= nLevel ? 2u : 0u));
    }
}

TEST_CASE("level 0 does not even make the file")
{
    LogFixture fixture;
    fixture.logger.Level = 0;
    fixture.redirector.CountCalls("WaitForSingleObject");
    LogThroughEveryEntry(fixture.logger);
    CHECK(fixture.tree.FilesInLogs().empty());
    CHECK(fixture.redirector.Calls("WaitForSingleObject") == 0);
}

TEST_CASE("the mark between two loads is one CR LF")
{
    LogFixture fixture;
    fixture.logger.WriteSeparator();
    fixture.logger.WriteSeparator();
    fixture.logger.Level1A("text");
    CHECK(fixture.tree.Log() == "\r\n\r\n2024-01-31 23:59:59 [1] - text\r\n");
}

} // namespace varnex::test
