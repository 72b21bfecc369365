#include "support/ChildProcess.h"
#include "support/ModuleTree.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <shellapi.h>

#include <cstdio>
#include <cstdlib>

namespace varnex::test
{

TEST_CASE("child: tells its environment, and fails \"as told\", [really]", "[.]")
{
    wchar_t wszDirectory[MAX_PATH];
    GetCurrentDirectoryW(MAX_PATH, wszDirectory);
    const char* pszValue = std::getenv("VARNEX_CHILD_TEST");
    std::printf("value <%s> directory <%ls>\n", pszValue != nullptr ? pszValue : "", wszDirectory);
    std::fprintf(stderr, "on the other stream\n");
    std::fflush(nullptr);
    _exit(42);
}

TEST_CASE("child: never ends", "[.]")
{
    Sleep(60000);
}

TEST_CASE("child: dies by an access violation", "[.]")
{
    RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
}

TEST_CASE("a child gets its environment and directory, and its output and exit code are seen")
{
    const ModuleTree tree;
    ChildOptions options;
    options.environment[L"VARNEX_CHILD_TEST"] = L"a b";
    options.directory = tree.BinPath();
    const ChildProcess child =
        ChildProcess::OfTestCase("child: tells its environment, and fails \"as told\", [really]", options);
    REQUIRE(child.WaitForEnd(20000));
    CHECK(child.ExitCode() == 42);
    CHECK_THAT(child.Output(), Catch::Contains("value <a b>"));
    CHECK_THAT(child.Output(), Catch::Contains("\\A\\B\\bin>"));
    CHECK_THAT(child.Output(), Catch::Contains("on the other stream"));
}

TEST_CASE("a child that does not end can be killed")
{
    ChildProcess child = ChildProcess::OfTestCase("child: never ends");
    CHECK_FALSE(child.WaitForEnd(200));
    CHECK(child.Runs());
    child.Kill();
    CHECK_FALSE(child.Runs());
    CHECK(child.ExitCode() == 0xDEAD);
}

TEST_CASE("a child that still runs is killed at the end of its scope")
{
    HANDLE hProcess = nullptr;
    {
        const ChildProcess child = ChildProcess::OfTestCase("child: never ends");
        hProcess = OpenProcess(SYNCHRONIZE, FALSE, child.Id());
        REQUIRE(hProcess != nullptr);
        CHECK(WaitForSingleObject(hProcess, 0) == WAIT_TIMEOUT);
    }
    CHECK(WaitForSingleObject(hProcess, 10000) == WAIT_OBJECT_0);
    CloseHandle(hProcess);
}

TEST_CASE("a crash of a child is seen by its exit code")
{
    const ChildProcess child = ChildProcess::OfTestCase("child: dies by an access violation");
    REQUIRE(child.WaitForEnd(20000));
    CHECK(child.ExitCode() != 0);
}

TEST_CASE("child: tells its arguments", "[.]")
{
    int nArguments = 0;
    wchar_t** ppwszArguments = CommandLineToArgvW(GetCommandLineW(), &nArguments);
    for (int nArgument = 2; nArgument < nArguments; ++nArgument)
    {
        std::printf("<%ls>", ppwszArguments[nArgument]);
    }
    LocalFree(ppwszArguments);
}

TEST_CASE("a program gets its arguments as they were given")
{
    ChildOptions options;
    options.arguments = {L"--name", L"a \\\"quoted\" b\\c\\"};
    const ChildProcess child = ChildProcess::OfTestCase("child: tells its arguments", options);
    REQUIRE(child.WaitForEnd(20000));
    CHECK_THAT(child.Output(), Catch::Contains("<--name><a \\\"quoted\" b\\c\\>"));
}

} // namespace varnex::test
