#include "LogEntries.h"
#include "LogFixture.h"

#include <vector>

// The writers of one process take turns by a mutex; only a plain success of the wait leads to a line.

namespace varnex::test
{

namespace
{

constexpr DWORD CALLERS_ERROR = 4711;
constexpr char NEXT_LINE[] = "2024-01-31 23:59:59 [1] - next\r\n";

// A worker takes the logger's mutex and keeps it that long.
void HoldMutex(LogFixture& fixture, DWORD dwMilliseconds)
{
    const HANDLE hMutex = fixture.logger.Mutex;
    fixture.clock.RunOnOtherThread(
        [=]
        {
            WaitForSingleObject(hMutex, INFINITE);
            Sleep(dwMilliseconds);
            ReleaseMutex(hMutex);
        });
    fixture.clock.WaitUntilAllAsleep();
    REQUIRE_FALSE(fixture.IsMutexFree());
}

// A worker takes the logger's mutex and ends with it.
void AbandonMutex(LogFixture& fixture)
{
    const HANDLE hMutex = fixture.logger.Mutex;
    fixture.clock.RunOnOtherThread([=] { WaitForSingleObject(hMutex, INFINITE); });
    fixture.clock.AdvanceUntilWorkersEnd(1);
}

std::vector<std::string> CallsOfOneLine(LogFixture& fixture)
{
    std::vector<std::string> calls;
    fixture.redirector.Replace<decltype(::WaitForSingleObject)>(
        "WaitForSingleObject",
        [&](HANDLE hObject, DWORD dwMilliseconds)
        {
            calls.push_back(hObject == fixture.logger.Mutex ? "wait " + std::to_string(dwMilliseconds) : "other wait");
            return WaitForSingleObject(hObject, dwMilliseconds);
        });
    fixture.redirector.Replace<decltype(::CreateDirectoryA)>("CreateDirectoryA",
                                                             [&](LPCSTR pszPath, LPSECURITY_ATTRIBUTES pSecurity)
                                                             {
                                                                 calls.push_back("directory");
                                                                 return CreateDirectoryA(pszPath, pSecurity);
                                                             });
    fixture.redirector.Replace<decltype(::CloseHandle)>("CloseHandle",
                                                        [&](HANDLE hObject)
                                                        {
                                                            calls.push_back("close");
                                                            return CloseHandle(hObject);
                                                        });
    fixture.redirector.Replace<decltype(::ReleaseMutex)>(
        "ReleaseMutex",
        [&](HANDLE hMutex)
        {
            calls.push_back(hMutex == fixture.logger.Mutex ? "release" : "other release");
            return ReleaseMutex(hMutex);
        });
    fixture.logger.Level1A("text");
    // The fixture goes on closing handles when the calls are gone.
    for (const char* pszImport : {"WaitForSingleObject", "CreateDirectoryA", "CloseHandle", "ReleaseMutex"})
    {
        fixture.redirector.Restore(pszImport);
    }
    return calls;
}

} // namespace

TEST_CASE("a line waits at most 5000 ms for the mutex and holds it from the directory to the closed file")
{
    LogFixture fixture;
    CHECK(CallsOfOneLine(fixture) == std::vector<std::string>{"wait 5000", "directory", "close", "release"});
}

TEST_CASE("every entry waits 5000 ms and gives the mutex back")
{
    LogFixture fixture;
    std::vector<DWORD> waits;
    fixture.redirector.Replace<decltype(::WaitForSingleObject)>("WaitForSingleObject",
                                                                [&](HANDLE hObject, DWORD dwMilliseconds)
                                                                {
                                                                    waits.push_back(dwMilliseconds);
                                                                    return WaitForSingleObject(hObject, 0);
                                                                });
    fixture.redirector.CountCalls("ReleaseMutex");
    LogThroughEveryEntry(fixture.logger);
    CHECK(waits == std::vector<DWORD>(8, 5000));
    CHECK(fixture.redirector.Calls("ReleaseMutex") == 8);
    CHECK(LogFile(fixture.tree).Lines().size() == 8);
}

TEST_CASE("a line that waits longer than five seconds is dropped")
{
    LogFixture fixture;
    HoldMutex(fixture, 60'000);
    const ULONGLONG ullStart = fixture.clock.ElapsedMs();
    DWORD dwError = 0; // read before Catch closes the section
    SetLastError(CALLERS_ERROR);
    SECTION("narrow")
    {
        fixture.logger.Level1A("dropped");
        dwError = GetLastError();
    }
    SECTION("wide")
    {
        fixture.logger.Level1W(L"dropped");
        dwError = GetLastError();
    }
    CHECK(fixture.clock.ElapsedMs() - ullStart == 5000);
    CHECK(dwError == CALLERS_ERROR);
    CHECK(fixture.tree.FilesInLogs().empty());

    fixture.clock.AdvanceUntilWorkersEnd(60);
    fixture.clock.Set(LocalTime{2024, 1, 31, 23, 59, 59});
    fixture.logger.Level1A("next");
    CHECK(fixture.tree.Log() == NEXT_LINE);
}

TEST_CASE("a line whose mutex comes free after 4999 ms is written, with the time of that moment")
{
    LogFixture fixture;
    HoldMutex(fixture, 4999);
    fixture.logger.Level1A("late");
    CHECK(fixture.tree.Log() == "2024-02-01 00:00:03 [1] - late\r\n");
    CHECK(fixture.IsMutexFree());
}

TEST_CASE("a wait that ends in anything but success drops the line and gives nothing back")
{
    const DWORD dwResult =
        GENERATE(as<DWORD>(), WAIT_ABANDONED, WAIT_TIMEOUT, WAIT_FAILED, WAIT_IO_COMPLETION, WAIT_OBJECT_0 + 1);
    LogFixture fixture;
    fixture.redirector.FailCall("WaitForSingleObject", 1, FailMode::FromThereOn, ERROR_INVALID_HANDLE, dwResult);
    for (const char* pszImport : {"ReleaseMutex", "CreateDirectoryA", "CreateFileA"})
    {
        fixture.redirector.CountCalls(pszImport);
    }
    SetLastError(CALLERS_ERROR);
    LogThroughEveryEntry(fixture.logger);
    const DWORD dwError = GetLastError();
    CHECK(fixture.redirector.Failures("WaitForSingleObject") == 8);
    CHECK(dwError == CALLERS_ERROR);
    CHECK(fixture.redirector.Calls("ReleaseMutex") == 0);
    CHECK(fixture.redirector.Calls("CreateDirectoryA") == 0);
    CHECK(fixture.redirector.Calls("CreateFileA") == 0);
}

TEST_CASE("a mutex that was abandoned costs the line, and stays with the thread that waited")
{
    LogFixture fixture;
    AbandonMutex(fixture);
    fixture.logger.Level1A("dropped");
    CHECK(fixture.tree.FilesInLogs().empty());
    CHECK_FALSE(fixture.IsMutexFree());

    // It is this thread's now, so its next line is written, and takes and gives once.
    fixture.logger.Level1A("next");
    CHECK(fixture.tree.Log() == NEXT_LINE);
    CHECK_FALSE(fixture.IsMutexFree());
    CHECK(ReleaseMutex(fixture.logger.Mutex));
    CHECK(fixture.IsMutexFree());
}

TEST_CASE("without a mutex no line is ever written")
{
    LogFixture fixture;
    fixture.logger.Mutex = nullptr;
    SetLastError(CALLERS_ERROR);
    LogThroughEveryEntry(fixture.logger);
    const DWORD dwError = GetLastError();
    CHECK(dwError == CALLERS_ERROR);
    CHECK(fixture.tree.FilesInLogs().empty());
}

TEST_CASE("a line that its level holds back does not wait for the mutex")
{
    LogFixture fixture;
    fixture.logger.Level = 3;
    HoldMutex(fixture, 60'000);
    const ULONGLONG ullStart = fixture.clock.ElapsedMs();
    fixture.logger.Level4A("text");
    fixture.logger.Level4W(L"text");
    CHECK(fixture.clock.ElapsedMs() == ullStart);
    fixture.clock.AdvanceUntilWorkersEnd(60);
}

TEST_CASE("the thread that writes a line is on record while it has the mutex, and only then")
{
    LogFixture fixture;
    const auto wide = GENERATE(false, true);
    CAPTURE(wide);
    std::vector<DWORD> writers;
    fixture.redirector.Replace<decltype(::WaitForSingleObject)>("WaitForSingleObject",
                                                                [&](HANDLE hObject, DWORD dwMilliseconds)
                                                                {
                                                                    writers.push_back(fixture.logger.Writer());
                                                                    return WaitForSingleObject(hObject, dwMilliseconds);
                                                                });
    fixture.redirector.Replace<decltype(::CreateFileA)>(
        "CreateFileA",
        [&](LPCSTR pszPath, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwHow,
            DWORD dwAttributes, HANDLE hTemplate)
        {
            writers.push_back(fixture.logger.Writer());
            return CreateFileA(pszPath, dwAccess, dwShare, pSecurity, dwHow, dwAttributes, hTemplate);
        });
    fixture.redirector.Replace<decltype(::ReleaseMutex)>("ReleaseMutex",
                                                         [&](HANDLE hMutex)
                                                         {
                                                             writers.push_back(fixture.logger.Writer());
                                                             return ReleaseMutex(hMutex);
                                                         });
    wide ? fixture.logger.Level1W(L"text") : fixture.logger.Level1A("text");
    for (const char* pszImport : {"WaitForSingleObject", "CreateFileA", "ReleaseMutex"})
    {
        fixture.redirector.Restore(pszImport);
    }
    CHECK(writers == std::vector<DWORD>{0, GetCurrentThreadId(), 0});
}

TEST_CASE("writers that are held off wait until they may go on")
{
    LogFixture fixture;
    {
        const SPLogger::WritersHeldOff held(1000);
        REQUIRE(held);
        CHECK_FALSE(fixture.IsMutexFree());
        fixture.clock.RunOnOtherThread([&] { fixture.logger.Level1A("next"); });
        fixture.clock.WaitUntilAllAsleep();
        CHECK(fixture.tree.FilesInLogs().empty());
    }
    fixture.clock.AdvanceUntilWorkersEnd(1);
    CHECK(fixture.tree.Log() == NEXT_LINE);
}

TEST_CASE("holding the writers off gives up after its time and then gives nothing back")
{
    LogFixture fixture;
    HoldMutex(fixture, 60'000);
    fixture.redirector.CountCalls("ReleaseMutex");
    const ULONGLONG ullStart = fixture.clock.ElapsedMs();
    {
        const SPLogger::WritersHeldOff held(1000);
        CHECK_FALSE(held);
    }
    CHECK(fixture.clock.ElapsedMs() - ullStart == 1000);
    CHECK(fixture.redirector.Calls("ReleaseMutex") == 0);
    fixture.clock.AdvanceUntilWorkersEnd(60);
}

TEST_CASE("writers are held off, too, when one of them has ended in the middle of a line")
{
    LogFixture fixture;
    AbandonMutex(fixture);
    {
        const SPLogger::WritersHeldOff held(1000);
        CHECK(held);
        CHECK_FALSE(fixture.IsMutexFree());
    }
    CHECK(fixture.IsMutexFree());
}

TEST_CASE("without a mutex nobody writes, so the writers are held off")
{
    LogFixture fixture;
    fixture.logger.Mutex = nullptr;
    fixture.redirector.CountCalls("ReleaseMutex");
    CHECK(SPLogger::WritersHeldOff(1000));
    CHECK(fixture.redirector.Calls("ReleaseMutex") == 0);
}

TEST_CASE("a wait that fails does not hold the writers off")
{
    LogFixture fixture;
    fixture.redirector.FailCall("WaitForSingleObject", 1, FailMode::Once, ERROR_INVALID_HANDLE, WAIT_FAILED);
    fixture.redirector.CountCalls("ReleaseMutex");
    CHECK_FALSE(SPLogger::WritersHeldOff(1000));
    CHECK(fixture.redirector.Calls("ReleaseMutex") == 0);
}

} // namespace varnex::test
