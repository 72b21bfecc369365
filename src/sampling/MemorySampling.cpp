#include "sampling/MemorySampling.h"

#include "common/Handles.h"
#include "common/Procedure.h"
#include "diag/SPLogger.h"

namespace varnex
{

namespace
{

using StatusFunction = BOOL(WINAPI*)(LPMEMORYSTATUSEX);

struct MemoryMB
{
    unsigned nTotalPhysical = 0;
    unsigned nAvailablePhysical = 0;
    unsigned nTotalPagingFile = 0;
    unsigned nAvailablePagingFile = 0;
};

unsigned InMB(DWORDLONG nBytes) noexcept
{
    return static_cast<unsigned>(nBytes >> 20);
}

unsigned UsedPercent(unsigned nTotal, unsigned nAvailable) noexcept
{
    return nTotal == 0 ? 0 : (nTotal - nAvailable) * 100 / nTotal;
}

int AsFailure(DWORD dwError) noexcept
{
    return static_cast<int>(dwError != ERROR_SUCCESS ? dwError : ERROR_GEN_FAILURE);
}

// Reads the status through a function looked up afresh. bRead tells whether the status call itself succeeded. Both
// operations share the messages, which name one of them.
int ReadMemory(MemoryMB& memory, bool& bRead) noexcept
{
    UniqueModule kernel32(LoadLibraryA("kernel32.dll"));
    if (!kernel32)
    {
        const DWORD dwError = GetLastError();
        Log()->Level1A("GetAvaMemoryUtilization -- LoadLibrary kernel32.dll failed(%d).", dwError);
        return AsFailure(dwError);
    }
    const auto pfnStatus = ProcedureOf<StatusFunction>(kernel32.Get(), "GlobalMemoryStatusEx");
    if (pfnStatus == nullptr)
    {
        const DWORD dwError = GetLastError();
        Log()->Level1A("GetAvaMemoryUtilization -- GetProcAddress GlobalMemoryStatusEx failed(%d).", dwError);
        (void)kernel32.Release(); // the library is not freed here: a known cost of this failure
        return AsFailure(dwError);
    }
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof status;
    bRead = pfnStatus(&status) != FALSE;
    if (bRead)
    {
        memory = {InMB(status.ullTotalPhys), InMB(status.ullAvailPhys), InMB(status.ullTotalPageFile),
                  InMB(status.ullAvailPageFile)};
    }
    return 0;
}

} // namespace

int GetAvaMemoryUtilization(unsigned* pnPhysicalPercent, unsigned* pnPagingFilePercent) noexcept
{
    if (pnPhysicalPercent == nullptr || pnPagingFilePercent == nullptr)
    {
        return -1;
    }
    MemoryMB memory;
    bool bRead = false;
    const int nResult = ReadMemory(memory, bRead);
    if (nResult == 0)
    {
        *pnPhysicalPercent = UsedPercent(memory.nTotalPhysical, memory.nAvailablePhysical);
        *pnPagingFilePercent = UsedPercent(memory.nTotalPagingFile, memory.nAvailablePagingFile);
    }
    return nResult;
}

int GetTotalMemorySize(unsigned* pnPhysicalMB, unsigned* pnPagingFileMB) noexcept
{
    if (pnPhysicalMB == nullptr || pnPagingFileMB == nullptr)
    {
        return -1;
    }
    MemoryMB memory;
    bool bRead = false;
    const int nResult = ReadMemory(memory, bRead);
    if (bRead)
    {
        *pnPhysicalMB = memory.nTotalPhysical;
        *pnPagingFileMB = memory.nTotalPagingFile;
    }
    return nResult;
}

} // namespace varnex
