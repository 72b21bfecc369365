#include "alerting/AlertMessage.h"

#include "common/AnsiText.h"
#include "common/BoundedText.h"
#include "common/LocalTime.h"
#include "diag/SPLogger.h"

#include <windows.h>

#include <cstring>

namespace varnex
{

namespace
{

constexpr DWORD HOST_NAME_CHARS = 260;
constexpr std::size_t RESOURCE_NAME_CHARS = 260; // of the name as it is shown

void GetHostName(wchar_t (&wszHost)[HOST_NAME_CHARS]) noexcept
{
    DWORD cchHost = HOST_NAME_CHARS;
    if (!GetComputerNameExW(ComputerNameDnsHostname, wszHost, &cchHost))
    {
        const DWORD dwError = GetLastError();
        Log()->Level1A("GetAlertMessageHeader -- Get local host name failed(%d).", dwError);
        CopyTextW(wszHost, L"Unknown");
    }
}

} // namespace

void MarkPagingFileAlert(VARNEX_ALERT_BUF& record) noexcept
{
    if (record.AlertType == ALERT_TYPE_MEMORY && _stricmp(record.ResourceName, PAGING_FILE_NAME) == 0)
    {
        record.AlertType = ALERT_TYPE_PAGING_FILE;
    }
}

void ComposeAlertMessage(const VARNEX_ALERT_BUF& record, wchar_t* pwszText, std::size_t cchText) noexcept
{
    wchar_t wszHost[HOST_NAME_CHARS];
    GetHostName(wszHost);
    wchar_t wszTime[TIME_CHARS];
    FormatLocalTimeW(MomentOf(record.HappenTime, SecondsNow()), wszTime);
    CopyTextW(pwszText, cchText, wszTime);
    AppendTextW(pwszText, cchText, L", ");
    AppendTextW(pwszText, cchText, wszHost);
    const bool bNamed = record.AlertType == ALERT_TYPE_DISK || record.AlertType == ALERT_TYPE_NETWORK;
    if (bNamed && record.ResourceName[0] != '\0')
    {
        wchar_t wszWhole[sizeof record.ResourceName];
        WideFromAnsi(wszWhole, sizeof record.ResourceName, record.ResourceName);
        wchar_t wszResource[RESOURCE_NAME_CHARS];
        CopyTextW(wszResource, wszWhole);
        AppendTextW(pwszText, cchText, L", ");
        AppendTextW(pwszText, cchText, wszResource);
    }
}

} // namespace varnex
