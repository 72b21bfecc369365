// A host that crashes as it is told:
//
//     crash_host DLL MODES CRASH [SETUP]
//
// MODES  what it calls Cst_SetExceptionHandler_Ex with, in turn: "3", "3,0"; "none": not at all
// CRASH  access-violation | second-thread | little-stack | stack-overflow | raise | none
// SETUP  previous-filter: installs a filter of its own before the module's
//        chained-filter: installs one after it, which calls the module's and ends the process with its own code
//        system-libraries: looks for libraries in the system's directory only

#include "CrashWords.h"

#include "common/Handles.h"
#include "common/Procedure.h"

#include <varnex/Varnex.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace varnex::test
{

namespace
{

constexpr std::uintptr_t LITTLE_STACK = 32 * 1024;

char g_szData[sizeof(PROGRAM_DATA)] = {};
LPTOP_LEVEL_EXCEPTION_FILTER g_pfnModuleFilter = nullptr;

void Print(const char* pszWord, std::uint64_t ullNumber)
{
    std::printf("%s %llu\n", pszWord, static_cast<unsigned long long>(ullNumber));
    std::fflush(stdout);
}

std::uintptr_t AddressOf(const volatile void* pAddress)
{
    return reinterpret_cast<std::uintptr_t>(pAddress);
}

LONG WINAPI PreviousFilter(EXCEPTION_POINTERS*)
{
    Print(PREVIOUS_FILTER_RAN, 1);
    return EXCEPTION_CONTINUE_SEARCH;
}

LONG WINAPI ChainedFilter(EXCEPTION_POINTERS* pExceptionPointers)
{
    Print(MODULE_FILTER_ANSWERED, static_cast<std::uint64_t>(g_pfnModuleFilter(pExceptionPointers)));
    TerminateProcess(GetCurrentProcess(), CHAINED_FILTER_EXIT_CODE);
    return EXCEPTION_EXECUTE_HANDLER;
}

FilterOwner OwnerOf(LPTOP_LEVEL_EXCEPTION_FILTER pfnFilter, HMODULE hModule)
{
    if (pfnFilter == PreviousFilter)
    {
        return FilterOwner::Host;
    }
    HMODULE hOwner = nullptr;
    const BOOL bFound =
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           reinterpret_cast<const wchar_t*>(reinterpret_cast<void*>(pfnFilter)), &hOwner);
    return bFound != FALSE && hOwner == hModule ? FilterOwner::Module : FilterOwner::Another;
}

void InstallFilters(HMODULE hModule, const char* pszModes)
{
    const auto pfnInstall = ProcedureOf<decltype(&::Cst_SetExceptionHandler_Ex)>(hModule, "Cst_SetExceptionHandler_Ex");
    for (const char* pszMode = pszModes; pszMode != nullptr; pszMode = std::strchr(pszMode, ','))
    {
        pszMode += *pszMode == ',' ? 1 : 0;
        const auto pfnReturned = pfnInstall(static_cast<unsigned>(std::strtoul(pszMode, nullptr, 10)));
        Print(RETURNED_FILTER_OF, static_cast<std::uint64_t>(OwnerOf(pfnReturned, hModule)));
    }
}

void ViolateAccess()
{
    Print(CRASHING_THREAD, GetCurrentThreadId());
    *reinterpret_cast<volatile int*>(BAD_ADDRESS) = 1;
}

DWORD WINAPI SecondThread(void*)
{
    ViolateAccess();
    return 0;
}

void CrashInSecondThread()
{
    const UniqueHandle thread(CreateThread(nullptr, 0, SecondThread, nullptr, 0, nullptr));
    WaitForSingleObject(thread.Get(), INFINITE);
}

// Goes down the stack to nBottom and calls there. Its result depends on every depth, or the compiler makes a loop.
unsigned Descend(std::uintptr_t nBottom, void (*pfnThere)())
{
    volatile char achFrame[512] = {};
    if (AddressOf(&achFrame[0]) <= nBottom)
    {
        pfnThere();
        return 0;
    }
    return Descend(nBottom, pfnThere) + static_cast<unsigned>(achFrame[0]);
}

void CrashWithLittleStack()
{
    MEMORY_BASIC_INFORMATION stack = {};
    VirtualQuery(&stack, &stack, sizeof(stack));
    Descend(AddressOf(stack.AllocationBase) + LITTLE_STACK, ViolateAccess);
}

void OverflowStack()
{
    Print(CRASHING_THREAD, GetCurrentThreadId());
    Descend(0, ViolateAccess);
}

void RaiseOwnCode()
{
    Print(CRASHING_THREAD, GetCurrentThreadId());
    RaiseException(RAISED_CODE, 0, 0, nullptr);
}

void Crash(const std::string& crash)
{
    struct Kind
    {
        const char* pszName;
        void (*pfnCrash)();
    };
    const Kind aKinds[] = {{"access-violation", ViolateAccess},
                           {"second-thread", CrashInSecondThread},
                           {"little-stack", CrashWithLittleStack},
                           {"stack-overflow", OverflowStack},
                           {"raise", RaiseOwnCode}};
    for (const Kind& kind : aKinds)
    {
        if (crash == kind.pszName)
        {
            kind.pfnCrash();
        }
    }
}

void SetUp(const std::string& setup)
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX); // nobody is there to close the system's window
    if (setup == "previous-filter")
    {
        SetUnhandledExceptionFilter(PreviousFilter);
    }
    if (setup == "system-libraries")
    {
        SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
    }
}

int RunHost(const char* pszModule, const std::string& modes, const std::string& crash, const std::string& setup)
{
    SetUp(setup);
    const UniqueModule module(LoadLibraryA(pszModule));
    if (!module)
    {
        return NO_MODULE_EXIT_CODE;
    }
    if (modes != "none")
    {
        InstallFilters(module.Get(), modes.c_str());
    }
    if (setup == "chained-filter")
    {
        g_pfnModuleFilter = SetUnhandledExceptionFilter(ChainedFilter);
    }
    const std::string heap(HEAP_SIZE, HEAP_FILL);
    std::memcpy(g_szData, PROGRAM_DATA, sizeof(PROGRAM_DATA));
    Print(HEAP_ADDRESS, AddressOf(heap.data()));
    Print(DATA_ADDRESS, AddressOf(g_szData));
    Crash(crash);
    Print(SURVIVED, 1);
    SetUnhandledExceptionFilter(nullptr);
    return 0;
}

} // namespace

} // namespace varnex::test

int main(int argc, char** argv)
{
    return argc < 4 ? varnex::test::NO_MODULE_EXIT_CODE
                    : varnex::test::RunHost(argv[1], argv[2], argv[3], argc > 4 ? argv[4] : "");
}
