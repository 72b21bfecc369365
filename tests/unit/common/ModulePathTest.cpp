#include "common/ModulePath.h"

#include "common/BoundedText.h"
#include "support/ImportRedirector.h"
#include "support/ModulePathScript.h"

#include <catch2/catch.hpp>

#include <string>

using namespace varnex;
using namespace varnex::test;

TEST_CASE("the log lies in Logs beside the module's directory")
{
    struct Row
    {
        const char* pszModule;
        const char* pszLogs;
    };
    const Row rows[] = {
        {R"(D:\A\B\bin\x.dll)", R"(D:\A\B\Logs)"},
        {R"(X:\dir\x.dll)", R"(X:\Logs)"},
        {R"(\\server\share\bin\x.dll)", R"(\\server\share\Logs)"},
        {R"(X:\x.dll)", "c:"}, // one backslash
        {"x.dll", "c:"},
        {"", "c:"},
    };
    for (const Row& row : rows)
    {
        CAPTURE(row.pszModule);
        char szLogs[PATH_CHARS];
        LogDirectoryOf(row.pszModule, szLogs);
        CHECK(std::string(szLogs) == row.pszLogs);
    }
}

TEST_CASE("a log directory that does not fit its buffer is cut and terminated")
{
    const std::string module = "X:\\" + std::string(250, 'd') + "\\b\\x.dll"; // 262 characters; 259 are taken
    char szLogs[PATH_CHARS];
    LogDirectoryOf(module.c_str(), szLogs);
    CHECK(std::string(szLogs) == "X:\\" + std::string(250, 'd') + "\\Logs");

    const std::string longer = "X:\\" + std::string(252, 'd') + "\\b\\x";
    LogDirectoryOf(longer.c_str(), szLogs);
    CHECK(std::string(szLogs) == "X:\\" + std::string(252, 'd') + "\\Log");
}

TEST_CASE("a module's directory ends in its backslash")
{
    ImportRedirector redirector;
    ModulePathScript path(redirector, LR"(D:\A\bin\x.dll)");
    char szDirectory[PATH_CHARS];
    wchar_t wszDirectory[PATH_CHARS];
    CHECK(ModuleDirectoryA(nullptr, szDirectory));
    CHECK(ModuleDirectoryW(nullptr, wszDirectory));
    CHECK(std::string(szDirectory) == R"(D:\A\bin\)");
    CHECK(std::wstring(wszDirectory) == LR"(D:\A\bin\)");
}

TEST_CASE("a module path without a backslash, or none at all, gives no directory")
{
    ImportRedirector redirector;
    ModulePathScript path(redirector, L"x.dll");
    char szDirectory[PATH_CHARS] = "?";
    wchar_t wszDirectory[PATH_CHARS] = L"?";
    CHECK_FALSE(ModuleDirectoryA(nullptr, szDirectory));
    CHECK_FALSE(ModuleDirectoryW(nullptr, wszDirectory));
    CHECK(szDirectory[0] == '\0');
    CHECK(wszDirectory[0] == L'\0');

    path.Fail(ERROR_INVALID_HANDLE);
    CopyTextA(szDirectory, R"(D:\former\x.dll)");
    CopyTextW(wszDirectory, LR"(D:\former\x.dll)");
    CHECK_FALSE(ModuleDirectoryA(nullptr, szDirectory));
    CHECK_FALSE(ModuleDirectoryW(nullptr, wszDirectory));
    CHECK(szDirectory[0] == '\0');
    CHECK(wszDirectory[0] == L'\0');
}

TEST_CASE("a module path of 259 characters is whole, a longer one is none at all")
{
    ImportRedirector redirector;
    ModulePathScript path(redirector, L"D:\\bin\\" + std::wstring(252, L'x'));
    char szDirectory[PATH_CHARS];
    wchar_t wszDirectory[PATH_CHARS];
    CHECK(ModuleDirectoryA(nullptr, szDirectory));
    CHECK(ModuleDirectoryW(nullptr, wszDirectory));
    CHECK(std::string(szDirectory) == "D:\\bin\\");
    CHECK(std::wstring(wszDirectory) == L"D:\\bin\\");

    path.Set(L"D:\\bin\\" + std::wstring(253, L'x'));
    CHECK_FALSE(ModuleDirectoryA(nullptr, szDirectory));
    CHECK_FALSE(ModuleDirectoryW(nullptr, wszDirectory));
    CHECK(szDirectory[0] == '\0');
    CHECK(wszDirectory[0] == L'\0');
}
