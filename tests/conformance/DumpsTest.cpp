// Crashes, the filter that sees them, and dumps.

#include "Codes.h"
#include "Conformance.h"

#include "common/Handles.h"
#include "support/ChildProcess.h"
#include "support/ModuleTree.h"
#include "support/TestFiles.h"

#include <catch2/catch.hpp>

#include <dbghelp.h>
#include <psapi.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

namespace varnex::test
{

namespace
{

constexpr DWORD PATIENCE_MS = 30000;
constexpr DWORD OWN_CODE = 0xE0000001;

// A dump of this process: the numbers of its streams, or what went wrong.
std::string StreamsOf(MINIDUMP_TYPE type, std::initializer_list<int> wanted, bool bException = false)
{
    const ModuleTree tree;
    const std::wstring path = tree.Root() + L"\\dump";
    {
        const UniqueFile file(
            CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        CONTEXT context{};
        RtlCaptureContext(&context);
        EXCEPTION_RECORD record{};
        record.ExceptionCode = OWN_CODE;
        EXCEPTION_POINTERS pointers{&record, &context};
        MINIDUMP_EXCEPTION_INFORMATION information{GetCurrentThreadId(), &pointers, FALSE};
        if (!MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file.Get(), type,
                               bException ? &information : nullptr, nullptr, nullptr))
        {
            return "FALSE";
        }
    }
    const std::string bytes = ReadFileBytes(path);
    MINIDUMP_HEADER header{};
    if (bytes.size() < sizeof header)
    {
        return "no header";
    }
    std::memcpy(&header, bytes.data(), sizeof header);
    if (header.Signature != 0x504D444D)
    {
        return "another signature";
    }
    std::set<int> found;
    for (ULONG i = 0; i < header.NumberOfStreams; ++i)
    {
        MINIDUMP_DIRECTORY directory{};
        std::memcpy(&directory, bytes.data() + header.StreamDirectoryRva + i * sizeof directory, sizeof directory);
        found.insert(static_cast<int>(directory.StreamType));
    }
    std::string answer;
    for (const int nStream : wanted)
    {
        answer +=
            (answer.empty() ? "" : ", ") + std::to_string(nStream) + (found.count(nStream) != 0 ? "" : " missing");
    }
    return answer;
}

LONG WINAPI EndWith40(EXCEPTION_POINTERS*)
{
    ExitProcess(40);
}

LONG WINAPI GoOn(EXCEPTION_POINTERS*)
{
    return EXCEPTION_CONTINUE_SEARCH;
}

LONG WINAPI HandleIt(EXCEPTION_POINTERS*)
{
    return EXCEPTION_EXECUTE_HANDLER;
}

// How a child ends that installs a filter and does something; 40: the filter has seen it.
std::string EndOf(const std::string& name)
{
    const ChildProcess child = ChildProcess::OfTestCase(name);
    if (!child.WaitForEnd(PATIENCE_MS))
    {
        return "no end";
    }
    const DWORD dwCode = child.ExitCode();
    if (dwCode == 40)
    {
        return "the filter sees it";
    }
    char szCode[16];
    std::snprintf(szCode, sizeof szCode, "0x%08lX", dwCode);
    return szCode;
}

int* volatile g_pnNowhere = nullptr;

const std::string DUMP_PAGE = "windows/win32/api/minidumpapiset/nf-minidumpapiset-minidumpwritedump";
const std::string TYPE_PAGE = "windows/win32/api/minidumpapiset/ne-minidumpapiset-minidump_type";
const std::string FILTER_PAGE = "windows/win32/api/errhandlingapi/nf-errhandlingapi-setunhandledexceptionfilter";

} // namespace

// Catch's own handler of signals would come first.
TEST_CASE("child: crashes by a wild pointer", "[.]")
{
    SetUnhandledExceptionFilter(EndWith40);
    *g_pnNowhere = 1;
}

TEST_CASE("child: crashes, and its filter lets it go on", "[.]")
{
    SetUnhandledExceptionFilter(GoOn);
    *g_pnNowhere = 1;
}

TEST_CASE("child: crashes, and its filter handles it", "[.]")
{
    SetUnhandledExceptionFilter(HandleIt);
    RaiseException(OWN_CODE, 0, 0, nullptr);
}

TEST_CASE("child: crashes after its filter was replaced", "[.]")
{
    SetUnhandledExceptionFilter(GoOn);
    SetUnhandledExceptionFilter(EndWith40);
    *g_pnNowhere = 1;
}

TEST_CASE("child: crashes on another thread", "[.]")
{
    SetUnhandledExceptionFilter(EndWith40);
    const auto body = [](void*) -> DWORD
    {
        *g_pnNowhere = 1;
        return 0;
    };
    const UniqueHandle thread(CreateThread(nullptr, 0, +body, nullptr, 0, nullptr));
    WaitForSingleObject(thread.Get(), PATIENCE_MS);
}

TEST_CASE("child: aborts", "[.]")
{
    SetUnhandledExceptionFilter(EndWith40);
    std::abort();
}

TEST_CASE("child: fails fast", "[.]")
{
    SetUnhandledExceptionFilter(EndWith40);
    RaiseFailFastException(nullptr, nullptr, 0);
}

TEST_CASE("child: ends itself by force", "[.]")
{
    SetUnhandledExceptionFilter(EndWith40);
    TerminateProcess(GetCurrentProcess(), 17);
}

TEST_CASE("dumps: a crash comes to the filter")
{
    Verify(Documented("the filter sees it", FILTER_PAGE), [] { return EndOf("child: crashes by a wild pointer"); });
}

TEST_CASE("dumps: a crash on another thread comes to the filter")
{
    Verify(Documented("the filter sees it", FILTER_PAGE), [] { return EndOf("child: crashes on another thread"); });
}

TEST_CASE("dumps: a crash that the filter lets go on ends the process with its code")
{
    Verify(Documented("0xC0000005", FILTER_PAGE), [] { return EndOf("child: crashes, and its filter lets it go on"); });
}

TEST_CASE("dumps: an exception that the filter handles ends the process with its code")
{
    Verify(Documented("0xE0000001", FILTER_PAGE), [] { return EndOf("child: crashes, and its filter handles it"); });
}

TEST_CASE("dumps: a filter takes the place of the one before it")
{
    Verify(Documented("the filter sees it", FILTER_PAGE),
           [] { return EndOf("child: crashes after its filter was replaced"); });
}

TEST_CASE("dumps: installing a filter tells the one before it")
{
    Verify(Documented("the one before", FILTER_PAGE),
           []
           {
               const auto pfnBefore = SetUnhandledExceptionFilter(GoOn);
               const auto pfnTold = SetUnhandledExceptionFilter(pfnBefore);
               return std::string(pfnTold == GoOn ? "the one before" : "another one");
           });
}

TEST_CASE("dumps: an abort does not come to the filter")
{
    Verify(Documented("0x00000003", "cpp/c-runtime-library/reference/abort"), [] { return EndOf("child: aborts"); });
}

TEST_CASE("dumps: a fast failure does not come to the filter")
{
    Verify(Documented("not to the filter", "windows/win32/api/errhandlingapi/nf-errhandlingapi-raisefailfastexception"),
           []
           {
               const std::string end = EndOf("child: fails fast");
               return end == "the filter sees it" ? end : "not to the filter";
           });
}

TEST_CASE("dumps: a process that ends itself by force does not come to the filter")
{
    Verify(Documented("0x00000011", "windows/win32/api/processthreadsapi/nf-processthreadsapi-terminateprocess"),
           [] { return EndOf("child: ends itself by force"); });
}

TEST_CASE("dumps: a plain dump holds threads, modules, memory and the system, and no exception")
{
    Verify(Documented("3, 4, 5, 7, 6 missing", TYPE_PAGE),
           []
           {
               return StreamsOf(MiniDumpNormal, {ThreadListStream, ModuleListStream, MemoryListStream, SystemInfoStream,
                                                 ExceptionStream});
           });
}

TEST_CASE("dumps: a dump with an exception holds it")
{
    Verify(Documented("6", DUMP_PAGE), [] { return StreamsOf(MiniDumpNormal, {ExceptionStream}, true); });
}

TEST_CASE("dumps: a dump with handles holds them")
{
    Verify(Documented("12", TYPE_PAGE).OnWine("12 missing", "module_crash: mode 1 asks for the open handles as well"),
           [] { return StreamsOf(MiniDumpWithHandleData, {HandleDataStream}); });
}

TEST_CASE("dumps: a dump of the whole memory holds it in its own list")
{
    Verify(Documented("9", TYPE_PAGE), [] { return StreamsOf(MiniDumpWithFullMemory, {Memory64ListStream}); });
}

TEST_CASE("dumps: a dump into a file that cannot be written fails")
{
    Verify(Documented("FALSE", DUMP_PAGE).OnWine("TRUE"),
           []
           {
               const ModuleTree tree;
               const std::wstring path = tree.Root() + L"\\dump";
               WriteFileBytes(path, "");
               const UniqueFile file(
                   CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
               return std::string(MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file.Get(),
                                                    MiniDumpNormal, nullptr, nullptr, nullptr)
                                      ? "TRUE"
                                      : "FALSE");
           });
}

TEST_CASE("dumps: a process's own module has the name of its file")
{
    Verify(Documented("the file's name", "windows/win32/api/psapi/nf-psapi-getmodulebasenamea"),
           []
           {
               char szName[MAX_PATH] = "";
               char szPath[MAX_PATH] = "";
               GetModuleBaseNameA(GetCurrentProcess(), nullptr, szName, MAX_PATH);
               GetModuleFileNameA(nullptr, szPath, MAX_PATH);
               const char* pszFile = std::strrchr(szPath, '\\');
               return std::string(pszFile != nullptr && _stricmp(pszFile + 1, szName) == 0 ? "the file's name"
                                                                                           : "another name");
           });
}

} // namespace varnex::test
