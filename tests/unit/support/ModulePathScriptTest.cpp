#include "support/ModulePathScript.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <string>

namespace varnex::test
{

TEST_CASE("the module's path is the scripted one, in both widths")
{
    ImportRedirector redirector;
    ModulePathScript path(redirector, L"C:\\A\\B\\bin\\Varnex.dll");
    wchar_t wszPath[MAX_PATH];
    char szPath[MAX_PATH];
    CHECK(GetModuleFileNameW(nullptr, wszPath, MAX_PATH) == 21);
    CHECK(std::wstring(wszPath) == L"C:\\A\\B\\bin\\Varnex.dll");
    CHECK(GetModuleFileNameA(nullptr, szPath, MAX_PATH) == 21);
    CHECK(std::string(szPath) == "C:\\A\\B\\bin\\Varnex.dll");
    path.Set(L"Varnex.dll");
    GetModuleFileNameA(nullptr, szPath, MAX_PATH);
    CHECK(std::string(szPath) == "Varnex.dll");
}

TEST_CASE("a path that does not fit is cut, terminated and reported")
{
    ImportRedirector redirector;
    const ModulePathScript path(redirector, L"C:\\Varnex.dll");
    char szPath[6] = "?????";
    CHECK(GetModuleFileNameA(nullptr, szPath, 6) == 6);
    CHECK(GetLastError() == ERROR_INSUFFICIENT_BUFFER);
    CHECK(std::string(szPath) == "C:\\Va");
}

TEST_CASE("the look-up of the module's path can fail")
{
    ImportRedirector redirector;
    ModulePathScript path(redirector, L"C:\\Varnex.dll");
    path.Fail(ERROR_INVALID_HANDLE);
    wchar_t wszPath[MAX_PATH];
    CHECK(GetModuleFileNameW(nullptr, wszPath, MAX_PATH) == 0);
    CHECK(GetLastError() == ERROR_INVALID_HANDLE);
}

} // namespace varnex::test
