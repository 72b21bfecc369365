#include "ImportFaults.h"

#include <pdhmsg.h>

#include <initializer_list>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>

namespace varnex::test
{

namespace
{

constexpr ULONGLONG INVALID_HANDLE = ~0ULL;
constexpr ULONGLONG MINUS_ONE = 0xFFFFFFFF;

CallFailure Status(ULONGLONG ullStatus)
{
    return {0, ullStatus, true};
}

// A map would keep the first of two answers to one name, and say nothing.
template <class Answer>
std::map<std::string, Answer> WithoutRepeats(std::initializer_list<std::pair<const std::string, Answer>> answers)
{
    std::map<std::string, Answer> table(answers);
    if (table.size() != answers.size())
    {
        throw std::logic_error("an import has two answers");
    }
    return table;
}

// Functions that say by a zero, and a last error, that they failed.
const std::map<std::string, DWORD>& ZeroAnswers()
{
    static const std::map<std::string, DWORD> answers = WithoutRepeats<DWORD>({
        {"CreateDirectoryA", ERROR_ACCESS_DENIED},
        {"CreateEventW", ERROR_ACCESS_DENIED},
        {"CreateFileMappingW", ERROR_NOT_ENOUGH_MEMORY},
        {"CreateMutexA", ERROR_ACCESS_DENIED},
        {"CreateMutexW", ERROR_ACCESS_DENIED},
        {"CreateSemaphoreW", ERROR_NOT_ENOUGH_MEMORY},
        {"CreateThread", ERROR_NOT_ENOUGH_MEMORY},
        {"DeleteFileW", ERROR_SHARING_VIOLATION},
        {"DuplicateHandle", ERROR_ACCESS_DENIED},
        {"ExpandEnvironmentStringsA", ERROR_NOT_ENOUGH_MEMORY},
        {"FileTimeToSystemTime", ERROR_INVALID_PARAMETER},
        {"FlushFileBuffers", ERROR_DISK_FULL},
        {"FreeLibrary", ERROR_INVALID_HANDLE},
        {"GetComputerNameExW", ERROR_MORE_DATA},
        {"GetFileAttributesExA", ERROR_ACCESS_DENIED},
        {"GetFileAttributesExW", ERROR_ACCESS_DENIED},
        {"GetFileInformationByHandle", ERROR_INVALID_FUNCTION},
        {"GetFileSizeEx", ERROR_INVALID_HANDLE},
        {"GetModuleFileNameA", ERROR_INSUFFICIENT_BUFFER},
        {"GetModuleFileNameW", ERROR_INSUFFICIENT_BUFFER},
        {"GetModuleHandleA", ERROR_MOD_NOT_FOUND},
        {"GetModuleHandleW", ERROR_MOD_NOT_FOUND},
        {"GetProcAddress", ERROR_PROC_NOT_FOUND},
        {"GetThreadContext", ERROR_INVALID_HANDLE},
        {"GlobalAlloc", ERROR_NOT_ENOUGH_MEMORY},
        {"InitializeSecurityDescriptor", ERROR_UNKNOWN_REVISION},
        {"K32GetMappedFileNameW", ERROR_ACCESS_DENIED},
        {"LoadLibraryA", ERROR_NOT_ENOUGH_MEMORY},
        {"LoadLibraryW", ERROR_NOT_ENOUGH_MEMORY},
        {"LocalAlloc", ERROR_NOT_ENOUGH_MEMORY},
        {"MapViewOfFile", ERROR_NOT_ENOUGH_MEMORY},
        {"MoveFileExA", ERROR_SHARING_VIOLATION},
        {"MoveFileExW", ERROR_SHARING_VIOLATION},
        {"MultiByteToWideChar", ERROR_NO_UNICODE_TRANSLATION},
        {"OpenEventW", ERROR_ACCESS_DENIED},
        {"OpenFileMappingW", ERROR_ACCESS_DENIED},
        {"OpenMutexW", ERROR_ACCESS_DENIED},
        {"ReadFile", ERROR_CRC},
        {"ReleaseMutex", ERROR_NOT_OWNER},
        {"ReleaseSemaphore", ERROR_TOO_MANY_POSTS},
        {"ReplaceFileW", ERROR_UNABLE_TO_REMOVE_REPLACED},
        {"ResetEvent", ERROR_INVALID_HANDLE},
        {"SetEndOfFile", ERROR_DISK_FULL},
        {"SetEvent", ERROR_INVALID_HANDLE},
        {"SetFilePointerEx", ERROR_INVALID_HANDLE},
        {"SetSecurityDescriptorDacl", ERROR_INVALID_SECURITY_DESCR},
        {"SetThreadPriority", ERROR_ACCESS_DENIED},
        {"SystemTimeToTzSpecificLocalTime", ERROR_INVALID_PARAMETER},
        {"TerminateThread", ERROR_ACCESS_DENIED},
        {"TlsAlloc", ERROR_NOT_ENOUGH_MEMORY},
        {"TlsSetValue", ERROR_INVALID_PARAMETER},
        {"UnmapViewOfFile", ERROR_INVALID_ADDRESS},
        {"VirtualAlloc", ERROR_NOT_ENOUGH_MEMORY},
        {"VirtualQuery", ERROR_INVALID_PARAMETER},
        {"WideCharToMultiByte", ERROR_INVALID_PARAMETER},
        {"WriteFile", ERROR_DISK_FULL},
        {"_beginthreadex", ERROR_NOT_ENOUGH_MEMORY},
        {"calloc", ERROR_SUCCESS},
        {"malloc", ERROR_SUCCESS},
        {"realloc", ERROR_SUCCESS},
        {"SysAllocString", ERROR_SUCCESS},
        {"SysAllocStringLen", ERROR_SUCCESS},
    });
    return answers;
}

// Functions that have another way of saying it.
const std::map<std::string, CallFailure>& OtherAnswers()
{
    static const std::map<std::string, CallFailure> answers = WithoutRepeats<CallFailure>({
        {"CoCreateInstance", Status(0x80040154)},   // REGDB_E_CLASSNOTREG
        {"CoGetApartmentType", Status(0x800401F0)}, // CO_E_NOTINITIALIZED
        {"CoInitialize", Status(0x8007000E)},       // E_OUTOFMEMORY
        {"CoInitializeEx", Status(0x8007000E)},
        {"CoSetProxyBlanket", Status(0x80070005)}, // E_ACCESSDENIED
        {"OleRun", Status(0x80004005)},            // E_FAIL
        {"VariantClear", Status(0x80070057)},      // E_INVALIDARG
        {"CreateFileA", {ERROR_SHARING_VIOLATION, INVALID_HANDLE, false}},
        {"CreateFileW", {ERROR_SHARING_VIOLATION, INVALID_HANDLE, false}},
        {"GetFileAttributesW", {ERROR_ACCESS_DENIED, MINUS_ONE, false}},
        {"GetIfTable", Status(ERROR_NOT_SUPPORTED)},
        {"PdhAddCounterA", Status(PDH_CSTATUS_NO_COUNTER)},
        {"PdhAddCounterW", Status(PDH_CSTATUS_NO_COUNTER)},
        {"PdhCloseQuery", Status(PDH_INVALID_HANDLE)},
        {"PdhCollectQueryData", Status(PDH_NO_DATA)},
        {"PdhEnumObjectItemsA", Status(PDH_CSTATUS_NO_OBJECT)},
        {"PdhEnumObjectItemsW", Status(PDH_CSTATUS_NO_OBJECT)},
        {"PdhGetFormattedCounterArrayA", Status(PDH_INVALID_DATA)},
        {"PdhGetFormattedCounterArrayW", Status(PDH_INVALID_DATA)},
        {"PdhGetFormattedCounterValue", Status(PDH_INVALID_DATA)},
        {"PdhOpenQueryA", Status(PDH_MEMORY_ALLOCATION_FAILURE)},
        {"PdhOpenQueryW", Status(PDH_MEMORY_ALLOCATION_FAILURE)},
        {"PdhRemoveCounter", Status(PDH_INVALID_HANDLE)},
        {"RegCloseKey", Status(ERROR_INVALID_HANDLE)},
        {"RegOpenKeyExW", Status(ERROR_ACCESS_DENIED)},
        {"RegQueryValueExW", Status(ERROR_FILE_NOT_FOUND)},
        {"ResumeThread", {ERROR_ACCESS_DENIED, MINUS_ONE, false}},
        {"SuspendThread", {ERROR_ACCESS_DENIED, MINUS_ONE, false}},
        {"WaitForSingleObject", {ERROR_INVALID_HANDLE, WAIT_FAILED, false}},
        {"_vscprintf", {0, MINUS_ONE, true}},
        {"_vscwprintf", {0, MINUS_ONE, true}},
        {"_vsnprintf", {0, MINUS_ONE, true}},
        {"_vsnwprintf", {0, MINUS_ONE, true}},
    });
    return answers;
}

// What cannot fail: no result, or a result that is an answer whatever it is.
const std::set<std::string>& InfallibleImports()
{
    static const std::set<std::string> names = {
        // locks, times, thread and process facts
        "AcquireSRWLockExclusive", "DeleteCriticalSection", "EnterCriticalSection", "GetACP", "GetCurrentProcess",
        "GetCurrentProcessId", "GetCurrentThread", "GetCurrentThreadId", "GetLastError", "GetLocalTime",
        "GetSystemDefaultLangID", "GetSystemTimeAsFileTime", "GetTickCount", "GetTickCount64",
        "InitializeCriticalSection", "IsDBCSLeadByte", "IsDBCSLeadByteEx", "LeaveCriticalSection", "OutputDebugStringA",
        "ReleaseSRWLockExclusive", "SetLastError", "Sleep", "SleepEx",
        // messages, of which there may be none
        "PeekMessageW", "DispatchMessageW", "PostQuitMessage",
        // gives a block back; its result tells nothing that anybody could act on
        "LocalFree", "TlsFree", "CoUninitialize", "SysFreeString", "SysStringLen", "VariantInit",
        // a thread's value may be null
        "TlsGetValue",
        // exceptions and the crash filter, not part of a healthy life
        "RaiseException", "RtlCaptureContext", "RtlLookupFunctionEntry", "RtlUnwindEx", "RtlVirtualUnwind",
        "SetUnhandledExceptionFilter", "K32GetModuleBaseNameA", "GetFileAttributesA",
        // the run-time library's start relocates itself by it before any code of the module runs
        "VirtualProtect",
        // arithmetic on memory and text, and the run-time library's own bookkeeping
        "___lc_codepage_func", "___mb_cur_max_func", "__iob_func", "_amsg_exit", "_errno", "_initterm", "_lock",
        "_stricmp", "_unlock", "_wcsicmp", "_wcsnicmp", "_wcstoi64", "_wtoi", "abort", "atoi", "free", "localeconv",
        "_read", "_close", "memchr", "memcmp", "memcpy", "memmove", "memset", "strchr", "strcmp", "strcspn", "strerror",
        "strlen", "strncmp", "strnlen", "strspn", "strstr", "strtol", "strtoll", "_strtoi64", "wcschr", "wcscspn",
        "wcslen", "wcsnlen", "wcsrchr", "wcsstr", "wcstol", "fputs", "fputc", "fputwc", "fwrite", "fwprintf", "fflush",
        "vfprintf"};
    return names;
}

FaultTarget ImportTarget(ImportRedirector& imports, const std::string& name, const CallFailure& failure)
{
    imports.CountCalls(name.c_str());
    return {name,
            [&imports, name, failure](ULONGLONG ullCall, FailMode mode)
            { imports.FailCall(name.c_str(), ullCall, mode, failure); },
            [&imports, name] { return imports.Calls(name.c_str()); },
            [&imports, name] { return imports.Failures(name.c_str()); }};
}

} // namespace

std::vector<FaultTarget> ImportTargets(ImportRedirector& imports)
{
    std::vector<FaultTarget> targets;
    for (const std::string& name : imports.Names())
    {
        const auto zero = ZeroAnswers().find(name);
        const auto other = OtherAnswers().find(name);
        if (zero != ZeroAnswers().end())
        {
            // TlsAlloc is the one whose zero would be an index.
            const ULONGLONG ullResult = name == "TlsAlloc" ? MINUS_ONE : 0;
            targets.push_back(ImportTarget(imports, name, {zero->second, ullResult, false}));
        }
        else if (other != OtherAnswers().end())
        {
            targets.push_back(ImportTarget(imports, name, other->second));
        }
    }
    return targets;
}

std::vector<std::string> UnknownImports(const ImportRedirector& imports)
{
    std::vector<std::string> unknown;
    for (const std::string& name : imports.Names())
    {
        if (ZeroAnswers().count(name) + OtherAnswers().count(name) + InfallibleImports().count(name) != 1 &&
            name != "CloseHandle")
        {
            unknown.push_back(name);
        }
    }
    return unknown;
}

} // namespace varnex::test
