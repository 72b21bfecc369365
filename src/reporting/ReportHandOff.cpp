#include "reporting/ReportHandOff.h"

#include "common/EveryoneAccess.h"
#include "common/ModulePath.h"
#include "diag/SPLogger.h"
#include "reporting/UtilizationStores.h"

#include <cstring>

#include <psapi.h>

namespace varnex
{

namespace
{

// Whether a view's memory is a file's, and not the paging file's. What the system answers then has a length, or is an
// error about a name that is too long for the buffer.
bool IsViewOfFile(void* pView) noexcept
{
    wchar_t wszFile[PATH_CHARS];
    SetLastError(ERROR_SUCCESS);
    if (GetMappedFileNameW(GetCurrentProcess(), pView, wszFile, PATH_CHARS) != 0)
    {
        return true;
    }
    const DWORD dwError = GetLastError();
    return dwError == ERROR_INSUFFICIENT_BUFFER || dwError == ERROR_MORE_DATA || dwError == ERROR_BAD_LENGTH;
}

// The name is open to every account: a section that somebody else made first may have memory that is only reserved, or
// may be laid over a file, where a failing disk or network ends whoever touches it.
bool IsUsable(void* pView) noexcept
{
    MEMORY_BASIC_INFORMATION region{};
    return VirtualQuery(pView, &region, sizeof region) != 0 && region.State == MEM_COMMIT &&
           region.RegionSize >= REPORT_SECTION_BYTES && !IsViewOfFile(pView);
}

bool MakeEvent(EveryoneAccess& access, const wchar_t* pwszName) noexcept
{
    UniqueHandle event(CreateEventW(access.Attributes(), TRUE, FALSE, pwszName));
    if (!event)
    {
        const DWORD dwError = GetLastError();
        Log()->Level1W(L"PrepareSendingMMFAndEvent -- CreateEvent fail(%d), Event Name(%s)", dwError, pwszName);
        return false;
    }
    (void)event.Release(); // stays open until the process ends
    return true;
}

} // namespace

UniqueView MapReportSection(HANDLE hSection) noexcept
{
    UniqueView view(MapViewOfFile(hSection, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, REPORT_SECTION_BYTES));
    if (view && !IsUsable(view.Get()))
    {
        view.Reset();
        SetLastError(ERROR_INVALID_ADDRESS);
    }
    return view;
}

int PrepareSendingMMFAndEvent() noexcept
{
    ForEachStore([](auto& store) { store.lock.Initialize(); });
    EveryoneAccess access;
    if (!MakeEvent(access, BEGIN_EVENT_NAME) || !MakeEvent(access, FINISH_EVENT_NAME))
    {
        return 1;
    }
    UniqueHandle section(CreateFileMappingW(INVALID_HANDLE_VALUE, access.Attributes(), PAGE_READWRITE, 0,
                                            REPORT_SECTION_BYTES, REPORT_SECTION_NAME));
    if (!section)
    {
        const DWORD dwError = GetLastError();
        Log()->Level1W(L"PrepareSendingMMFAndEvent -- CreateFileMapping fail(%d), MMF Name(%s), MMF size(%d)", dwError,
                       REPORT_SECTION_NAME, REPORT_SECTION_BYTES);
        return 1;
    }
    const HANDLE hSection = section.Release(); // stays open until the process ends
    const UniqueView view = MapReportSection(hSection);
    if (!view)
    {
        const DWORD dwError = GetLastError();
        Log()->Level1W(L"PrepareSendingMMFAndEvent -- MapViewOfFile fail(%d), XML Buffer Size(%d)", dwError,
                       REPORT_SECTION_BYTES);
        return 1;
    }
    std::memset(view.Get(), 0, REPORT_SECTION_BYTES);
    return 1;
}

} // namespace varnex
