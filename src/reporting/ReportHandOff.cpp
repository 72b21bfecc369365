#include "reporting/ReportHandOff.h"

#include "common/EveryoneAccess.h"
#include "diag/SPLogger.h"
#include "reporting/UtilizationStores.h"

#include <cstring>

namespace varnex
{

namespace
{

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
    MEMORY_BASIC_INFORMATION region{};
    // The name is open to every account: a section that somebody else made first may have memory that is only reserved.
    if (view && (VirtualQuery(view.Get(), &region, sizeof region) == 0 || region.State != MEM_COMMIT ||
                 region.RegionSize < REPORT_SECTION_BYTES))
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
