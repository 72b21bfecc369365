// Writing a dump, with every system call in the test's hands. Hosts that really crash are in tests/module/crash.

#include "diag/CrashDump.h"

#include "support/ImportRedirector.h"
#include "support/ModulePathScript.h"
#include "support/ModuleTree.h"
#include "support/ProcessMeter.h"
#include "support/ScriptedExports.h"
#include "support/TestText.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <algorithm>

#include <dbghelp.h>
#include <psapi.h>

namespace varnex::test
{

namespace
{

// What the dump file was created with.
struct Creation
{
    std::string name;
    DWORD dwAccess;
    DWORD dwShare;
    DWORD dwDisposition;
    DWORD dwFlags;
};

// A host in a tree of its own, with the filter asked for and a dump library that the test answers for.
struct DumpBench
{
    DumpBench() : path(redirector, tree.InBin(L"host.exe")), exports(redirector)
    {
        redirector.Replace<decltype(::SetUnhandledExceptionFilter)>(
            "SetUnhandledExceptionFilter", [](LPTOP_LEVEL_EXCEPTION_FILTER) { return LPTOP_LEVEL_EXCEPTION_FILTER{}; });
        redirector.Replace<decltype(::GetModuleBaseNameA)>("K32GetModuleBaseNameA",
                                                           [](HANDLE, HMODULE, LPSTR pszName, DWORD cchName) -> DWORD
                                                           {
                                                               const std::string name = "host.exe";
                                                               pszName[name.copy(pszName, cchName - 1)] = '\0';
                                                               return static_cast<DWORD>(name.size());
                                                           });
        redirector.Replace<decltype(::LoadLibraryA)>("LoadLibraryA", [this](LPCSTR pszName) { return Load(pszName); });
        redirector.Replace<decltype(::CreateFileA)>(
            "CreateFileA",
            [this](LPCSTR pszName, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwDisposition,
                   DWORD dwFlags, HANDLE hTemplate)
            {
                created.push_back({pszName, dwAccess, dwShare, dwDisposition, dwFlags});
                return CreateFileA(pszName, dwAccess, dwShare, pSecurity, dwDisposition, dwFlags, hTemplate);
            });
        exports.Replace<decltype(::MiniDumpWriteDump)>(
            "MiniDumpWriteDump",
            [this](HANDLE, DWORD, HANDLE hFile, MINIDUMP_TYPE, PMINIDUMP_EXCEPTION_INFORMATION,
                   PMINIDUMP_USER_STREAM_INFORMATION, PMINIDUMP_CALLBACK_INFORMATION)
            {
                DWORD cbWritten = 0;
                WriteFile(hFile, "part", 4, &cbWritten, nullptr);
                return bAnswer;
            });
        Install();
    }

    void Install() { Cst_SetExceptionHandler_Ex(VARNEX_DUMP_NORMAL); }
    int Write()
    {
        EXCEPTION_POINTERS pointers = {};
        return WriteCrashDump(&pointers);
    }
    std::string Dump() const { return ReadFileBytes(tree.InBin(L"host.exe_00.dmp")); }
    std::string InBin(const wchar_t* pwszName) const { return AnsiFromWide(tree.InBin(pwszName)); }

    HMODULE Load(const std::string& name)
    {
        asked.push_back(name);
        const bool bThere = std::find(libraries.begin(), libraries.end(), name) != libraries.end();
        return bThere ? GetModuleHandleW(L"kernel32.dll") : nullptr;
    }

    ModuleTree tree;
    ImportRedirector redirector;
    ModulePathScript path;
    ScriptedExports exports;
    std::vector<std::string> libraries = {"DBGHELP.DLL"}; // the names that can be loaded
    std::vector<std::string> asked;
    std::vector<Creation> created;
    BOOL bAnswer = TRUE;
};

using Texts = std::vector<std::string>;

} // namespace

TEST_CASE("a dump that was written is told, in a file that others may write to and that replaces an older one")
{
    DumpBench bench;
    CHECK(bench.Write() == 1);
    CHECK(bench.Dump() == "part");
    REQUIRE(bench.created.size() == 1);
    const Creation& creation = bench.created.front();
    CHECK(creation.name == bench.InBin(L"host.exe_00.dmp"));
    CHECK(creation.dwAccess == GENERIC_WRITE);
    CHECK(creation.dwShare == FILE_SHARE_WRITE);
    CHECK(creation.dwDisposition == CREATE_ALWAYS);
    CHECK(creation.dwFlags == FILE_ATTRIBUTE_NORMAL);
}

TEST_CASE("a dump that failed is told, and its file stays")
{
    DumpBench bench;
    bench.bAnswer = FALSE;
    CHECK(bench.Write() == 0);
    CHECK(bench.Dump() == "part");
}

TEST_CASE("the library is looked for beside the host, then by its name")
{
    DumpBench bench;
    const std::string besideHost = bench.InBin(L"DBGHELP.DLL");
    SECTION("beside the host")
    {
        bench.libraries = {besideHost, "DBGHELP.DLL"};
        CHECK(bench.Write() == 1);
        CHECK(bench.asked == Texts{besideHost});
    }
    SECTION("by its name")
    {
        CHECK(bench.Write() == 1);
        CHECK(bench.asked == Texts{besideHost, "DBGHELP.DLL"});
    }
    SECTION("nowhere, and then no file is made")
    {
        bench.libraries.clear();
        CHECK(bench.Write() == 0);
        CHECK(bench.asked == Texts{besideHost, "DBGHELP.DLL"});
        CHECK(bench.created.empty());
    }
}

TEST_CASE("the library is looked for by its name only when the host's directory is unknown")
{
    DumpBench bench;
    SECTION("a path without a backslash")
    {
        bench.path.Set(L"host.exe");
    }
    SECTION("no path")
    {
        bench.path.Fail(ERROR_INVALID_HANDLE);
    }
    bench.redirector.FailCall("CreateFileA", 1, FailMode::FromThereOn, ERROR_PATH_NOT_FOUND,
                              reinterpret_cast<ULONGLONG>(INVALID_HANDLE_VALUE)); // nothing for the machine's disk
    bench.Install();
    CHECK(bench.Write() == 0);
    CHECK(bench.asked == Texts{"DBGHELP.DLL"});
    CHECK(bench.redirector.Failures("CreateFileA") == 1);
}

TEST_CASE("a library without the function makes no file")
{
    DumpBench bench;
    bench.exports.Hide("MiniDumpWriteDump");
    CHECK(bench.Write() == 0);
    CHECK(bench.exports.LookUps("MiniDumpWriteDump") == 1);
    CHECK(bench.created.empty());
}

TEST_CASE("a file that cannot be created is told, and the library is not called")
{
    DumpBench bench;
    bench.redirector.FailCall("CreateFileA", 1, FailMode::Once, ERROR_ACCESS_DENIED,
                              reinterpret_cast<ULONGLONG>(INVALID_HANDLE_VALUE));
    CHECK(bench.Write() == 0);
    CHECK(bench.redirector.Failures("CreateFileA") == 1);
    CHECK(bench.exports.Calls("MiniDumpWriteDump") == 0);
    CHECK(bench.Write() == 1);
}

TEST_CASE("the dump's file is closed, whether it was written or not")
{
    DumpBench bench;
    bench.Write();
    const std::size_t nBefore = CountHandles();
    for (const BOOL bAnswer : {TRUE, FALSE})
    {
        bench.bAnswer = bAnswer;
        bench.Write();
    }
    CHECK(CountHandles() == nBefore);
}

TEST_CASE("a dump takes no memory and no lock of its own")
{
    const Texts forbidden = {"malloc",
                             "calloc",
                             "realloc",
                             "HeapAlloc",
                             "LocalAlloc",
                             "VirtualAlloc",
                             "EnterCriticalSection",
                             "WaitForSingleObject",
                             "CreateMutexA",
                             "CreateThread"};
    DumpBench bench;
    for (const std::string& name : forbidden)
    {
        if (bench.redirector.Has(name.c_str()))
        {
            bench.redirector.CountCalls(name.c_str());
        }
    }
    const int nResult = bench.Write();
    const std::map<std::string, ULONGLONG> counts = bench.redirector.CallCounts();
    CHECK(nResult == 1);
    for (const auto& [name, ullCalls] : counts)
    {
        INFO(name << " " << ullCalls);
        CHECK(std::find(forbidden.begin(), forbidden.end(), name) == forbidden.end());
    }
}

} // namespace varnex::test
