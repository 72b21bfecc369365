#include "diag/CrashDump.h"

#include "common/AnsiText.h"
#include "common/BoundedText.h"
#include "common/Handles.h"
#include "common/ModulePath.h"
#include "common/Procedure.h"

#include "varnex/Varnex.h"

#include <cstring>

#include <dbghelp.h>
#include <psapi.h>

namespace varnex
{

unsigned DumpType = MiniDumpNormal;

namespace
{

constexpr int LAST_DUMP_INDEX = 98; // callers rely on it: 99 is never formed
constexpr char DUMP_TAIL[] = "00.dmp";
constexpr std::size_t DUMP_NAME_CHARS = 2 * PATH_CHARS + sizeof(DUMP_TAIL);
constexpr char DUMP_LIBRARY[] = "DBGHELP.DLL";

// Everything about the files that does not change while the process lives, worked out while it is still sound.
struct CrashFiles
{
    char szDumpName[DUMP_NAME_CHARS];   // of the dump with index 0
    std::size_t nDigits;                // where the index stands in it
    char szHostLibrary[2 * PATH_CHARS]; // the dump library beside the executable; empty: there is no such path
};
CrashFiles g_crashFiles;

CrashFiles FindCrashFiles() noexcept
{
    char szDirectory[PATH_CHARS] = "";
    GetModuleFileNameA(nullptr, szDirectory, PATH_CHARS);
    szDirectory[PATH_CHARS - 1] = '\0';
    const char* pszBackslash = FindLastBackslashA(szDirectory);
    if (pszBackslash != nullptr)
    {
        szDirectory[pszBackslash - szDirectory] = '\0';
    }
    char szBaseName[PATH_CHARS] = "";
    GetModuleBaseNameA(GetCurrentProcess(), nullptr, szBaseName, PATH_CHARS);
    szBaseName[PATH_CHARS - 1] = '\0';

    CrashFiles files = {};
    FormatTextA(files.szDumpName, "%s\\%s_%s", szDirectory, szBaseName, DUMP_TAIL);
    files.nDigits = std::strlen(files.szDumpName) - std::strlen(DUMP_TAIL);
    if (pszBackslash != nullptr)
    {
        FormatTextA(files.szHostLibrary, "%s\\%s", szDirectory, DUMP_LIBRARY);
    }
    return files;
}

// From here on everything runs in a process that has crashed, perhaps with little stack left.

bool FileExists(const char* pszName) noexcept
{
    return GetFileAttributesA(pszName) != INVALID_FILE_ATTRIBUTES;
}

// The name of the next dump: the first free one, or the last.
void ChooseDumpName(char (&szDumpName)[DUMP_NAME_CHARS]) noexcept
{
    std::memcpy(szDumpName, g_crashFiles.szDumpName, sizeof(szDumpName));
    for (int nIndex = 1; nIndex <= LAST_DUMP_INDEX && FileExists(szDumpName); ++nIndex)
    {
        szDumpName[g_crashFiles.nDigits] = static_cast<char>('0' + nIndex / 10);
        szDumpName[g_crashFiles.nDigits + 1] = static_cast<char>('0' + nIndex % 10);
    }
}

// The dump library beside the host's executable, else the system's. Never freed: the process is ending.
HMODULE LoadDumpLibrary() noexcept
{
    const HMODULE hLibrary = g_crashFiles.szHostLibrary[0] == '\0' ? nullptr : LoadLibraryA(g_crashFiles.szHostLibrary);
    return hLibrary != nullptr ? hLibrary : LoadLibraryA(DUMP_LIBRARY);
}

LONG WINAPI CrashFilter(EXCEPTION_POINTERS* pExceptionPointers) noexcept
{
    WriteCrashDump(pExceptionPointers);
    return EXCEPTION_CONTINUE_SEARCH; // whatever became of the dump, the crash goes on to the next handler
}

} // namespace

int WriteCrashDump(EXCEPTION_POINTERS* pExceptionPointers) noexcept
{
    char szDumpName[DUMP_NAME_CHARS];
    ChooseDumpName(szDumpName);

    const HMODULE hLibrary = LoadDumpLibrary();
    const auto pfnWriteDump = ProcedureOf<decltype(&MiniDumpWriteDump)>(hLibrary, "MiniDumpWriteDump");
    if (hLibrary == nullptr || pfnWriteDump == nullptr)
    {
        return 0;
    }
    const UniqueFile file(CreateFileA(szDumpName, GENERIC_WRITE, FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
    {
        return 0;
    }
    MINIDUMP_EXCEPTION_INFORMATION information = {GetCurrentThreadId(), pExceptionPointers, FALSE};
    const BOOL bWritten = pfnWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file.Get(),
                                       static_cast<MINIDUMP_TYPE>(DumpType), &information, nullptr, nullptr);
    return bWritten != FALSE ? 1 : 0;
}

} // namespace varnex

// The host may install another filter at any time, and must before it unloads the module: nothing here takes the
// filter back.
extern "C" VARNEX_EXCEPTION_FILTER Cst_SetExceptionHandler_Ex(unsigned int nMode)
{
    // The same bytes at every call: a crash in the meantime finds whole names.
    varnex::g_crashFiles = varnex::FindCrashFiles();
    switch (nMode)
    {
    case VARNEX_DUMP_HANDLES:
        varnex::DumpType = MiniDumpWithHandleData;
        break;
    case VARNEX_DUMP_DATA_AND_HANDLES:
        varnex::DumpType = MiniDumpWithDataSegs | MiniDumpWithHandleData;
        break;
    case VARNEX_DUMP_FULL_MEMORY:
        varnex::DumpType = MiniDumpWithFullMemory;
        break;
    default:
        varnex::DumpType = MiniDumpNormal;
        break;
    }
    return SetUnhandledExceptionFilter(varnex::CrashFilter);
}
