#include "alerting/AlertLine.h"

#include "common/AnsiText.h"
#include "common/BoundedText.h"
#include "common/LocalTime.h"

#include <cstdlib>
#include <cstring>

namespace varnex
{

void FormatAlertLine(const VARNEX_ALERT_BUF& record, char (&szLine)[ALERT_LINE_CHARS]) noexcept
{
    char szTime[TIME_CHARS];
    FormatLocalTimeA(MomentOf(record.HappenTime, SecondsNow()), szTime);
    FormatTextA(szLine, "%d;%d;%d;%d(%s);%s;%s\n", record.AlertType, record.Threshold, record.Value, record.HappenTime,
                szTime, record.ResourceName, record.Extra);
}

int ParseAlertLine(const char* pszLine, VARNEX_ALERT_BUF* pRecord) noexcept
{
    if (pszLine == nullptr || pRecord == nullptr)
    {
        return -1;
    }
    const char* pszField = pszLine;
    for (int* const pnNumber : {&pRecord->AlertType, &pRecord->Threshold, &pRecord->Value, &pRecord->HappenTime})
    {
        const char* const pszEnd = std::strchr(pszField, ';');
        if (pszEnd == nullptr)
        {
            return -1;
        }
        *pnNumber = std::atoi(pszField); // stops at the separator, and at the readable time's parenthesis
        pszField = pszEnd + 1;
    }
    const char* const pszNameEnd = std::strchr(pszField, ';');
    if (pszNameEnd == nullptr)
    {
        return -1;
    }
    CopyAnsiText(pRecord->ResourceName, sizeof pRecord->ResourceName,
                 {pszField, static_cast<std::size_t>(pszNameEnd - pszField)});
    CopyAnsiText(pRecord->Extra, sizeof pRecord->Extra, pszNameEnd + 1);
    // One character only: of "\r\n" the "\r" stays.
    const std::size_t cchExtra = std::strlen(pRecord->Extra);
    if (cchExtra != 0 && (pRecord->Extra[cchExtra - 1] == '\n' || pRecord->Extra[cchExtra - 1] == '\r'))
    {
        pRecord->Extra[cchExtra - 1] = '\0';
    }
    return 0;
}

} // namespace varnex
