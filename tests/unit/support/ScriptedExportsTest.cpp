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
