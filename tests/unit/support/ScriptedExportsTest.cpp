#include "support/ScriptedExports.h"

#include <catch2/catch.hpp>

#include <windows.h>

namespace varnex::test
{

namespace
{

template <class Signature>
Signature* LookUp(const char* pszFunction)
{
    const FARPROC pfnFound = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), pszFunction);
    return reinterpret_cast<Signature*>(reinterpret_cast<void*>(pfnFound));
}

} // namespace

TEST_CASE("a function that is looked up at run time can be scripted")
{
    ImportRedirector redirector;
    ScriptedExports exports(redirector);
    exports.Replace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{4711}; });
    CHECK(LookUp<decltype(::GetTickCount)>("GetTickCount")() == 4711);
    CHECK(exports.LookUps("GetTickCount") == 1);
    CHECK(exports.Calls("GetTickCount") == 1);
}

TEST_CASE("a hidden function is not found")
{
    ImportRedirector redirector;
    ScriptedExports exports(redirector);
    exports.Hide("GetTickCount");
    SetLastError(ERROR_SUCCESS);
    CHECK(LookUp<decltype(::GetTickCount)>("GetTickCount") == nullptr);
    CHECK(GetLastError() == ERROR_PROC_NOT_FOUND);
    exports.Restore("GetTickCount");
    CHECK(LookUp<decltype(::GetTickCount)>("GetTickCount") != nullptr);
}

TEST_CASE("one call of a function that is looked up at run time can be made to fail, or all from there on")
{
    const auto mode = GENERATE(FailMode::Once, FailMode::FromThereOn);
    ImportRedirector redirector;
    ScriptedExports exports(redirector);
    exports.Replace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{4711}; });
    exports.FailCall("GetTickCount", 2, mode, ERROR_NOT_SUPPORTED);
    const auto pfnFound = LookUp<decltype(::GetTickCount)>("GetTickCount");
    CHECK(pfnFound() == 4711);
    SetLastError(ERROR_SUCCESS);
    CHECK(pfnFound() == 0);
    CHECK(GetLastError() == ERROR_NOT_SUPPORTED);
    CHECK(pfnFound() == (mode == FailMode::Once ? 4711 : 0));
    CHECK(exports.Failures("GetTickCount") == (mode == FailMode::Once ? 1 : 2));
    CHECK(exports.Calls("GetTickCount") == 3);
}

TEST_CASE("every name that was looked up is told")
{
    ImportRedirector redirector;
    ScriptedExports exports(redirector);
    exports.Hide("GetTickCount");
    CHECK(exports.LookedUp().empty());
    LookUp<void()>("NoSuchFunction");
    LookUp<void()>("GetTickCount");
    CHECK(exports.LookedUp() == std::vector<std::string>{"GetTickCount", "NoSuchFunction"});
}

TEST_CASE("every other function is found as usual")
{
    ImportRedirector redirector;
    const ScriptedExports exports(redirector);
    const auto pfnFound = LookUp<decltype(::GetCurrentProcessId)>("GetCurrentProcessId");
    REQUIRE(pfnFound != nullptr);
    CHECK(pfnFound() == GetCurrentProcessId());
    CHECK(LookUp<void()>("NoSuchFunction") == nullptr);
}

TEST_CASE("an address that was looked up during the script reaches the real function after it")
{
    decltype(::GetCurrentProcessId)* pfnFound = nullptr;
    {
        ImportRedirector redirector;
        ScriptedExports exports(redirector);
        exports.Replace<decltype(::GetCurrentProcessId)>("GetCurrentProcessId", [] { return DWORD{1}; });
        pfnFound = LookUp<decltype(::GetCurrentProcessId)>("GetCurrentProcessId");
        CHECK(pfnFound() == 1);
    }
    CHECK(pfnFound() == GetCurrentProcessId());
}

} // namespace varnex::test
