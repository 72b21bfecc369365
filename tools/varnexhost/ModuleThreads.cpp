#include "ModuleThreads.h"

#include "common/Handles.h"

#include <cstdint>

#include <psapi.h>
#include <tlhelp32.h>

namespace varnex::host
{

namespace
{

using UniqueSnapshot = UniqueResource<FileTraits>;

// Not in the SDK's headers by name, but stable since the first Windows NT.
constexpr int THREAD_QUERY_WIN32_START_ADDRESS = 9;
using QueryThreadFunction = LONG(NTAPI*)(HANDLE, int, void*, ULONG, ULONG*);

QueryThreadFunction FindQueryThread() noexcept
{
    const HMODULE hNtdll = GetModuleHandleW(L"ntdll.dll");
    return reinterpret_cast<QueryThreadFunction>(
        reinterpret_cast<void*>(GetProcAddress(hNtdll, "NtQueryInformationThread")));
}

bool LiesIn(HMODULE hModule, std::uintptr_t nAddress) noexcept
{
    MODULEINFO image = {};
    if (hModule == nullptr || !GetModuleInformation(GetCurrentProcess(), hModule, &image, sizeof(image)))
    {
        return false;
    }
    const auto nBase = reinterpret_cast<std::uintptr_t>(image.lpBaseOfDll);
    return nAddress >= nBase && nAddress - nBase < image.SizeOfImage;
}

bool LiesInRunTime(std::uintptr_t nAddress) noexcept
{
    return LiesIn(GetModuleHandleW(L"msvcrt.dll"), nAddress) || LiesIn(GetModuleHandleW(L"ucrtbase.dll"), nAddress);
}

// 0 when the system does not tell.
std::uintptr_t StartAddressOf(HANDLE hThread) noexcept
{
    static const QueryThreadFunction pfnQuery = FindQueryThread();
    void* pStart = nullptr;
    if (pfnQuery == nullptr ||
        pfnQuery(hThread, THREAD_QUERY_WIN32_START_ADDRESS, &pStart, sizeof(pStart), nullptr) < 0)
    {
        return 0;
    }
    return reinterpret_cast<std::uintptr_t>(pStart);
}

void CountThread(HMODULE hModule, DWORD dwThreadId, ModuleThreads& threads) noexcept
{
    const UniqueHandle thread(OpenThread(THREAD_QUERY_INFORMATION | SYNCHRONIZE, FALSE, dwThreadId));
    if (!thread && GetLastError() == ERROR_INVALID_PARAMETER)
    {
        return; // ended since the snapshot
    }
    if (thread && WaitForSingleObject(thread.Get(), 0) == WAIT_OBJECT_0)
    {
        return;
    }
    const std::uintptr_t nStart = thread ? StartAddressOf(thread.Get()) : 0;
    threads.nUnreadable += nStart == 0 ? 1U : 0U;
    threads.nMonitors += LiesIn(hModule, nStart) ? 1U : 0U;
    threads.nRunTime += LiesInRunTime(nStart) ? 1U : 0U;
}

} // namespace

ModuleThreads FindModuleThreads(HMODULE hModule) noexcept
{
    ModuleThreads threads;
    const UniqueSnapshot snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    if (!snapshot || !Thread32First(snapshot.Get(), &entry))
    {
        return threads;
    }
    threads.bKnown = true;
    do
    {
        if (entry.th32OwnerProcessID == GetCurrentProcessId() && entry.th32ThreadID != GetCurrentThreadId())
        {
            CountThread(hModule, entry.th32ThreadID, threads);
        }
        entry.dwSize = sizeof(entry);
    } while (Thread32Next(snapshot.Get(), &entry));
    return threads;
}

} // namespace varnex::host
