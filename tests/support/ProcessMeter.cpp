#include "support/ProcessMeter.h"

#include "common/Handles.h"
#include "support/ScriptScope.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <tlhelp32.h>

#include <vector>

namespace varnex::test
{

namespace
{

// The system's table of all open handles, as NtQuerySystemInformation gives it.
constexpr int EXTENDED_HANDLE_INFORMATION = 64;
constexpr LONG LENGTH_MISMATCH = static_cast<LONG>(0xC0000004);

struct HandleEntry
{
    void* pObject;
    ULONG_PTR nProcessId;
    ULONG_PTR nHandle;
    ULONG nGrantedAccess;
    USHORT nCreatorBackTraceIndex;
    USHORT nObjectTypeIndex;
    ULONG nAttributes;
    ULONG nReserved;
};

struct HandleTable
{
    ULONG_PTR nHandles;
    ULONG_PTR nReserved;
    HandleEntry entries[1];
};

using QuerySystemInformation = LONG(NTAPI*)(int, void*, ULONG, ULONG*);

QuerySystemInformation FindQuery()
{
    const FARPROC pfnFound = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation");
    REQUIRE(pfnFound != nullptr);
    return reinterpret_cast<QuerySystemInformation>(reinterpret_cast<void*>(pfnFound));
}

std::vector<char> ReadHandleTable()
{
    const QuerySystemInformation pfnQuery = FindQuery();
    std::vector<char> buffer(1 << 16);
    for (;;)
    {
        const LONG nStatus =
            pfnQuery(EXTENDED_HANDLE_INFORMATION, buffer.data(), static_cast<ULONG>(buffer.size()), nullptr);
        if (nStatus != LENGTH_MISMATCH)
        {
            REQUIRE(nStatus == 0);
            return buffer;
        }
        buffer.resize(buffer.size() * 2);
    }
}

} // namespace

std::size_t CountHandles()
{
    const UnscriptedScope unscripted;
    const std::vector<char> buffer = ReadHandleTable();
    const auto* pTable = reinterpret_cast<const HandleTable*>(buffer.data());
    std::size_t nOwn = 0;
    for (ULONG_PTR nEntry = 0; nEntry < pTable->nHandles; ++nEntry)
    {
        nOwn += pTable->entries[nEntry].nProcessId == GetCurrentProcessId() ? 1 : 0;
    }
    REQUIRE(nOwn != 0);
    return nOwn;
}

std::size_t CountThreads()
{
    const UnscriptedScope unscripted;
    const UniqueFile snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    REQUIRE(snapshot);
    THREADENTRY32 entry;
    entry.dwSize = sizeof(entry);
    std::size_t nOwn = 0;
    for (BOOL bFound = Thread32First(snapshot.Get(), &entry); bFound != FALSE;
         bFound = Thread32Next(snapshot.Get(), &entry))
    {
        nOwn += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    }
    REQUIRE(nOwn != 0);
    return nOwn;
}

HeapUse CountHeapBlocks()
{
    const UnscriptedScope unscripted;
    HANDLE ahHeaps[64];
    const DWORD nHeaps = GetProcessHeaps(64, ahHeaps);
    REQUIRE(nHeaps != 0);
    REQUIRE(nHeaps <= 64);
    HeapUse use;
    for (DWORD i = 0; i < nHeaps; ++i)
    {
        HeapLock(ahHeaps[i]);
        PROCESS_HEAP_ENTRY entry{};
        while (HeapWalk(ahHeaps[i], &entry))
        {
            if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0)
            {
                ++use.nBlocks;
                use.cbBlocks += entry.cbData;
            }
        }
        HeapUnlock(ahHeaps[i]);
    }
    REQUIRE(use.nBlocks != 0);
    return use;
}

// Added up region by region: Wine leaves the process's own counter at 0.
std::size_t PrivateBytes()
{
    const UnscriptedScope unscripted;
    std::size_t cbPrivate = 0;
    const char* pAddress = nullptr;
    MEMORY_BASIC_INFORMATION region;
    while (VirtualQuery(pAddress, &region, sizeof(region)) != 0)
    {
        cbPrivate += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize : 0;
        pAddress = static_cast<const char*>(region.BaseAddress) + region.RegionSize;
    }
    REQUIRE(cbPrivate != 0);
    return cbPrivate;
}

} // namespace varnex::test
