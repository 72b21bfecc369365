#include "support/ImportRedirector.h"
#include "support/ChildProcess.h"
#include "support/ScriptScope.h"

#include "common/Handles.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <algorithm>
#include <cfloat>
#include <cstdio>
#include <stdexcept>

namespace varnex::test
{

namespace
{

DWORD g_dwSeenByPlainFunction = 0;

VOID WINAPI NoteSleep(DWORD dwMilliseconds)
{
    g_dwSeenByPlainFunction = dwMilliseconds;
}

bool DeleteFails(DWORD& dwError)
{
    SetLastError(ERROR_SUCCESS);
    const bool bFailed = DeleteFileW(L"no such file") == FALSE;
    dwError = GetLastError();
    return bFailed;
}

DWORD WINAPI CallTickCount(void* pStop)
{
    while (*static_cast<volatile LONG*>(pStop) == 0)
    {
        GetTickCount();
    }
    return 0;
}

} // namespace

TEST_CASE("a replaced import answers with the script until the redirector ends")
{
    {
        ImportRedirector redirector;
        redirector.Replace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{4711}; });
        CHECK(GetTickCount() == 4711);
    }
    CHECK(GetTickCount() != 4711);
}

TEST_CASE("a script gets every argument, in registers and on the stack")
{
    ImportRedirector redirector;
    std::string seen;
    redirector.Replace<decltype(::CreateFileW)>(
        "CreateFileW",
        [&](LPCWSTR pwszFile, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwCreation,
            DWORD dwFlags, HANDLE hTemplate)
        {
            char szSeen[200];
            std::snprintf(szSeen, sizeof(szSeen), "%ls %lu %lu %d %lu %lu %d", pwszFile, dwAccess, dwShare,
                          pSecurity == nullptr, dwCreation, dwFlags, hTemplate == nullptr);
            seen = szSeen;
            return INVALID_HANDLE_VALUE;
        });
    CHECK(CreateFileW(L"f", 1, 2, nullptr, 4, 5, nullptr) == INVALID_HANDLE_VALUE);
    CHECK(seen == "f 1 2 1 4 5 1");
}

TEST_CASE("arguments pass untouched through a gate that only counts")
{
    ImportRedirector redirector;
    redirector.CountCalls("MultiByteToWideChar");
    wchar_t wszText[8] = {};
    CHECK(MultiByteToWideChar(CP_ACP, 0, "seven", 5, wszText, 8) == 5);
    CHECK(std::wstring(wszText) == L"seven");
    CHECK(redirector.Calls("MultiByteToWideChar") == 1);
}

TEST_CASE("a floating-point argument and result pass through a gate")
{
    ImportRedirector redirector;
    redirector.CountCalls("_scalb");
    volatile double dHalf = 0.5;
    CHECK(_scalb(dHalf, 3) == 4.0);
    CHECK(redirector.Calls("_scalb") == 1);
}

TEST_CASE("inside a script the import is the real one")
{
    ImportRedirector redirector;
    DWORD dwReal = 0;
    const auto noteAndAnswer = [&]
    {
        dwReal = GetCurrentProcessId();
        return DWORD{1};
    };
    redirector.Replace<decltype(::GetCurrentProcessId)>("GetCurrentProcessId", noteAndAnswer);
    CHECK(GetCurrentProcessId() == 1);
    CHECK(dwReal == redirector.Original<decltype(::GetCurrentProcessId)>("GetCurrentProcessId")());
    CHECK(redirector.Calls("GetCurrentProcessId") == 1);
}

TEST_CASE("a script that calls back into the code under test can have the scripts answer there")
{
    ImportRedirector redirector;
    redirector.Replace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{5}; });
    const auto callBack = []
    {
        const ScriptedScope scripted;
        return GetTickCount();
    };
    redirector.Replace<decltype(::GetCurrentProcessId)>("GetCurrentProcessId", callBack);
    CHECK(GetCurrentProcessId() == 5);
}

TEST_CASE("support code sees the real functions and is not counted")
{
    ImportRedirector redirector;
    redirector.Replace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{5}; });
    {
        const UnscriptedScope unscripted;
        CHECK(GetTickCount() != 5);
    }
    CHECK(redirector.Calls("GetTickCount") == 0);
}

TEST_CASE("a plain function can replace an import, and an import of one DLL can be named")
{
    ImportRedirector redirector;
    redirector.Redirect("kernel32.dll!Sleep", &NoteSleep);
    Sleep(4711);
    CHECK(g_dwSeenByPlainFunction == 4711);
    CHECK_FALSE(redirector.Has("user32.dll!Sleep"));
}

TEST_CASE("the last error that a script leaves reaches the caller")
{
    ImportRedirector redirector;
    const auto refuse = [](LPCWSTR)
    {
        SetLastError(ERROR_WRITE_PROTECT);
        return FALSE;
    };
    redirector.Replace<decltype(::DeleteFileW)>("DeleteFileW", refuse);
    DWORD dwError = 0;
    CHECK(DeleteFails(dwError));
    CHECK(dwError == ERROR_WRITE_PROTECT);
}

TEST_CASE("a gate that only counts keeps the last error")
{
    ImportRedirector redirector;
    redirector.CountCalls("GetCurrentThreadId");
    SetLastError(1234);
    GetCurrentThreadId();
    CHECK(GetLastError() == 1234);
}

TEST_CASE("exactly the k-th call fails, with its result and last error")
{
    ImportRedirector redirector;
    redirector.FailCall("CreateEventW", 2, FailMode::Once, ERROR_NO_SYSTEM_RESOURCES);
    const UniqueHandle first(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const UniqueHandle second(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const DWORD dwError = GetLastError();
    const UniqueHandle third(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    CHECK(first);
    CHECK_FALSE(second);
    CHECK(dwError == ERROR_NO_SYSTEM_RESOURCES);
    CHECK(third);
    CHECK(redirector.Failures("CreateEventW") == 1);
    CHECK(redirector.Calls("CreateEventW") == 3);
}

TEST_CASE("the k-th and every later call fail until the failing is stopped")
{
    ImportRedirector redirector;
    redirector.FailCall("DeleteFileW", 2, FailMode::FromThereOn, ERROR_SHARING_VIOLATION);
    DWORD dwError = 0;
    DeleteFails(dwError);
    CHECK(dwError == ERROR_FILE_NOT_FOUND);
    DeleteFails(dwError);
    CHECK(dwError == ERROR_SHARING_VIOLATION);
    DeleteFails(dwError);
    CHECK(dwError == ERROR_SHARING_VIOLATION);
    redirector.StopFailing("DeleteFileW");
    DeleteFails(dwError);
    CHECK(dwError == ERROR_FILE_NOT_FOUND);
    CHECK(redirector.Failures("DeleteFileW") == 2);
}

TEST_CASE("a failing call can return any value and leave the last error alone")
{
    ImportRedirector redirector;
    redirector.FailCall("WaitForSingleObject", 1, FailMode::Once, CallFailure{0, WAIT_ABANDONED, true});
    SetLastError(77);
    CHECK(WaitForSingleObject(GetCurrentProcess(), 0) == WAIT_ABANDONED);
    CHECK(GetLastError() == 77);
    CHECK(WaitForSingleObject(GetCurrentProcess(), 0) == WAIT_TIMEOUT);
}

TEST_CASE("a failure applies on top of a script")
{
    ImportRedirector redirector;
    redirector.Replace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{5}; });
    redirector.FailCall("GetTickCount", 2, FailMode::Once, 0, 9);
    CHECK(GetTickCount() == 5);
    CHECK(GetTickCount() == 9);
    CHECK(GetTickCount() == 5);
}

TEST_CASE("every import can be counted at once, and the program works on")
{
    ImportRedirector redirector;
    redirector.CountEveryCall();
    GetTickCount();
    GetTickCount();
    const std::string text = std::to_string(GetCurrentProcessId()) + "x";
    const auto counts = redirector.CallCounts();
    REQUIRE(counts.count("GetTickCount") == 1);
    CHECK(counts.at("GetTickCount") == 2);
    CHECK(counts.at("GetCurrentProcessId") == 1);
    CHECK_FALSE(text.empty());
    CHECK(redirector.Names().size() > 50);
}

TEST_CASE("imported variables are left alone")
{
    const ImportRedirector redirector;
    const auto names = redirector.Names();
    CHECK(std::count(names.begin(), names.end(), "__initenv") == 0);
}

TEST_CASE("one import can be put back by itself")
{
    ImportRedirector redirector;
    redirector.Replace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{5}; });
    redirector.Replace<decltype(::GetCurrentProcessId)>("GetCurrentProcessId", [] { return DWORD{6}; });
    redirector.Restore("GetTickCount");
    CHECK(GetTickCount() != 5);
    CHECK(GetCurrentProcessId() == 6);
}

TEST_CASE("the newer of two redirectors answers, and the older one again after it")
{
    ImportRedirector older;
    older.Replace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{5}; });
    {
        ImportRedirector newer;
        newer.Replace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{6}; });
        CHECK(GetTickCount() == 6);
    }
    CHECK(GetTickCount() == 5);
}

TEST_CASE("a script can be set and taken away while other threads call")
{
    LONG bStop = 0;
    UniqueHandle threads[2];
    for (UniqueHandle& thread : threads)
    {
        thread.Reset(CreateThread(nullptr, 0, CallTickCount, &bStop, 0, nullptr));
    }
    for (int nRound = 0; nRound < 2000; ++nRound)
    {
        ImportRedirector redirector;
        redirector.Replace<decltype(::GetTickCount)>("GetTickCount", [nRound] { return static_cast<DWORD>(nRound); });
        REQUIRE(GetTickCount() == static_cast<DWORD>(nRound));
    }
    InterlockedExchange(&bStop, 1);
    for (const UniqueHandle& thread : threads)
    {
        CHECK(WaitForSingleObject(thread.Get(), 10000) == WAIT_OBJECT_0);
    }
}

TEST_CASE("an optional replacement tells whether the import is there")
{
    ImportRedirector redirector;
    CHECK(redirector.TryReplace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{5}; }));
    CHECK_FALSE(redirector.TryReplace<void()>("NoSuchFunction", [] {}));
    CHECK(GetTickCount() == 5);
}

TEST_CASE("child: replaces an import that is not there", "[.]")
{
    ImportRedirector redirector;
    redirector.Replace<void()>("NoSuchFunction", [] {});
}

TEST_CASE("child: has a script that throws", "[.]")
{
    ImportRedirector redirector;
    redirector.Replace<decltype(::GetTickCount)>("GetTickCount",
                                                 []() -> DWORD { throw std::runtime_error("as told"); });
    CHECK(GetTickCount() == 0);
}

TEST_CASE("redirecting a function that the module does not import fails the test")
{
    const ChildProcess child = ChildProcess::OfTestCase("child: replaces an import that is not there");
    REQUIRE(child.WaitForEnd(20000));
    CHECK(child.ExitCode() == 1);
    CHECK_THAT(child.Output(), Catch::Contains("does not import NoSuchFunction"));
}

TEST_CASE("a script that throws fails the test")
{
    const ChildProcess child = ChildProcess::OfTestCase("child: has a script that throws");
    REQUIRE(child.WaitForEnd(20000));
    CHECK(child.ExitCode() == 1);
    CHECK_THAT(child.Output(), Catch::Contains("A script threw: as told"));
}

} // namespace varnex::test
