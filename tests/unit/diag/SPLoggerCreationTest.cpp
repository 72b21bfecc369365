#include "LogFixture.h"
#include "OwnProcess.h"

#include <atomic>
#include <cstdlib>
#include <vector>

// The logger is made once for a process, at its first use, so each of these runs in a process of its own.

namespace varnex::test
{

namespace
{

// What the directory for temporary files expands to: the text, and the length that the system reports.
void ScriptTempDirectory(ImportRedirector& redirector, const std::string& text, DWORD cchReported)
{
    redirector.Replace<decltype(::ExpandEnvironmentStringsA)>(
        "ExpandEnvironmentStringsA",
        [=](LPCSTR pszSource, LPSTR pszTarget, DWORD cchTarget) -> DWORD
        {
            if (std::string(pszSource) != "%TEMP%" || cchTarget != 260)
            {
                return 0;
            }
            pszTarget[text.copy(pszTarget, cchTarget - 1)] = '\0';
            return cchReported;
        });
}

std::string DirectoryOfNewLogger(const std::string& text, DWORD cchReported)
{
    ImportRedirector redirector;
    ScriptTempDirectory(redirector, text, cchReported);
    return SPLogger::Instance()->LogDirectory;
}

} // namespace

TEST_CASE("child: a new logger", "[.]")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    clock.Set(LocalTime{2024, 1, 31, 3, 9, 5});
    ScriptTempDirectory(redirector, "D:\\Temp", 8);
    const SECURITY_ATTRIBUTES* pSecurity = nullptr;
    BOOL bOwned = TRUE;
    redirector.Replace<decltype(::CreateMutexA)>("CreateMutexA",
                                                 [&](LPSECURITY_ATTRIBUTES pGiven, BOOL bInitialOwner, LPCSTR pszName)
                                                 {
                                                     pSecurity = pGiven;
                                                     bOwned = bInitialOwner;
                                                     return CreateMutexA(pGiven, bInitialOwner, pszName);
                                                 });
    const SPLogger& logger = *SPLogger::Instance();
    CHECK(logger.Level == 3);
    CHECK(std::string(logger.LoggerName) == "SPLogger_20240131030905");
    CHECK(std::string(logger.MutexName) == "SPLogger_20240131030905");
    CHECK(std::string(logger.LogDirectory) == "D:\\Temp");
    CHECK(std::string(logger.LogFilePath) == "\\SPLogger_20240131030905.log");
    CHECK(redirector.Calls("CreateMutexA") == 1);
    CHECK(pSecurity == nullptr);
    CHECK(bOwned == FALSE);
}

TEST_CASE("a new logger takes its names from the time, and lies at the root of the current drive")
{
    PassesInItsOwnProcess("child: a new logger");
}

TEST_CASE("child: the mutex of a new logger", "[.]")
{
    const SPLogger& logger = *SPLogger::Instance();
    REQUIRE(logger.Mutex != nullptr);
    const UniqueHandle byName(OpenMutexA(SYNCHRONIZE, FALSE, logger.MutexName));
    REQUIRE(byName);
    REQUIRE(WaitForSingleObject(byName.Get(), 0) == WAIT_OBJECT_0);
    ReleaseMutex(byName.Get());
    CHECK_FALSE(UniqueHandle(OpenMutexA(SYNCHRONIZE, FALSE, (std::string("Global\\") + logger.MutexName).c_str())));
}

TEST_CASE("the mutex of a new logger has the logger's name, outside the global namespace, and is free")
{
    PassesInItsOwnProcess("child: the mutex of a new logger");
}

TEST_CASE("child: the temporary directory is empty", "[.]")
{
    CHECK(DirectoryOfNewLogger("", 1) == "c:");
}
TEST_CASE("child: the temporary directory does not expand", "[.]")
{
    CHECK(DirectoryOfNewLogger("", 0) == "c:");
}
TEST_CASE("child: the temporary directory is too long", "[.]")
{
    CHECK(DirectoryOfNewLogger(std::string(300, 't'), 301) == "c:");
}
TEST_CASE("child: the temporary directory just fits", "[.]")
{
    CHECK(DirectoryOfNewLogger(std::string(259, 't'), 260) == std::string(259, 't'));
}

TEST_CASE("a directory for temporary files that is empty or of no use becomes c:")
{
    PassesInItsOwnProcess("child: the temporary directory is empty");
    PassesInItsOwnProcess("child: the temporary directory does not expand");
    PassesInItsOwnProcess("child: the temporary directory is too long");
    PassesInItsOwnProcess("child: the temporary directory just fits");
}

TEST_CASE("child: the mutex cannot be made", "[.]")
{
    ModuleTree tree;
    ImportRedirector redirector;
    redirector.FailCall("CreateMutexA", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);
    std::vector<std::string> debuggerTexts;
    redirector.Replace<decltype(::OutputDebugStringA)>("OutputDebugStringA",
                                                       [&](LPCSTR pszText) { debuggerTexts.push_back(pszText); });
    SPLogger& logger = *SPLogger::Instance();
    CHECK(debuggerTexts == std::vector<std::string>{"Create SPLogger failed."});
    CHECK(logger.Mutex == nullptr);
    CHECK(logger.Level == 1);

    logger.Configure(AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
    logger.Level1A("text");
    logger.Level1W(L"text");
    CHECK(tree.FilesInLogs().empty());
    CHECK(debuggerTexts.size() == 1);
}

TEST_CASE("a mutex that cannot be made is told to the debugger, at level 1, and no line is ever written")
{
    PassesInItsOwnProcess("child: the mutex cannot be made");
}

TEST_CASE("child: a logger that is made in peace", "[.]")
{
    ImportRedirector redirector;
    redirector.CountCalls("OutputDebugStringA");
    REQUIRE(SPLogger::Instance()->Mutex != nullptr);
    CHECK(redirector.Calls("OutputDebugStringA") == 0);
}

TEST_CASE("the debugger hears nothing of a logger that is made in peace")
{
    PassesInItsOwnProcess("child: a logger that is made in peace");
}

TEST_CASE("child: many threads ask for the logger at once", "[.]")
{
    constexpr DWORD THREADS = 8;
    ImportRedirector redirector;
    // Long enough for the others to come while the first one still makes it.
    redirector.Replace<decltype(::CreateMutexA)>("CreateMutexA",
                                                 [](LPSECURITY_ATTRIBUTES pSecurity, BOOL bOwned, LPCSTR pszName)
                                                 {
                                                     Sleep(200);
                                                     return CreateMutexA(pSecurity, bOwned, pszName);
                                                 });
    const UniqueHandle begin(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::vector<UniqueHandle> threads;
    for (DWORD i = 0; i < THREADS; ++i)
    {
        threads.emplace_back(CreateThread(
            nullptr, 0,
            [](void* hBegin) -> DWORD
            {
                WaitForSingleObject(hBegin, INFINITE);
                return SPLogger::Instance()->Mutex != nullptr && Log() == SPLogger::Instance();
            },
            begin.Get(), 0, nullptr));
        REQUIRE(threads.back());
    }
    SetEvent(begin.Get());
    for (const UniqueHandle& thread : threads)
    {
        REQUIRE(WaitForSingleObject(thread.Get(), 30'000) == WAIT_OBJECT_0);
        DWORD dwSawWholeLogger = FALSE;
        REQUIRE(GetExitCodeThread(thread.Get(), &dwSawWholeLogger));
        CHECK(dwSawWholeLogger == TRUE);
    }
    CHECK(redirector.Calls("CreateMutexA") == 1);
}

TEST_CASE("many threads that ask for the logger at once get the same one, whole")
{
    PassesInItsOwnProcess("child: many threads ask for the logger at once");
}

namespace
{

char g_szMutexName[260];

// Registered before the logger is made, so it runs after the logger's own clean-up.
void EndProgramByMutex()
{
    const HANDLE hMutex = OpenMutexA(SYNCHRONIZE, FALSE, g_szMutexName);
    ExitProcess(hMutex == nullptr && GetLastError() == ERROR_FILE_NOT_FOUND ? 42 : 43);
}

} // namespace

TEST_CASE("child: the logger at the end of the process", "[.]")
{
    REQUIRE(std::atexit(&EndProgramByMutex) == 0);
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    clock.Set(LocalTime{1999, 12, 31, 23, 59, static_cast<WORD>(GetCurrentProcessId() % 60)});
    strcpy_s(g_szMutexName, SPLogger::Instance()->MutexName);
    const UniqueHandle byName(OpenMutexA(SYNCHRONIZE, FALSE, g_szMutexName));
    REQUIRE(byName);
}

TEST_CASE("the end of the process closes the mutex")
{
    const ChildProcess child = ChildProcess::OfTestCase("child: the logger at the end of the process");
    REQUIRE(child.WaitForEnd(60'000));
    INFO(child.Output());
    CHECK(child.ExitCode() == 42);
}

} // namespace varnex::test
