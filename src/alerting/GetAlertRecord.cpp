#include "alerting/AlertMessage.h"
#include "alerting/AlertStore.h"
#include "diag/ExceptionBarrier.h"

#include <varnex/Varnex.h>

#include <vector>

namespace varnex
{

namespace
{

int FetchAlerts(int* pnAlertTypes, wchar_t** ppwszTexts, unsigned cchText, int* pnThresholds, int* pnValues,
                int nMaxCount)
{
    std::vector<VARNEX_ALERT_BUF> records;
    if (ReadLocalAlertInf(records, nMaxCount) != 0)
    {
        return 0;
    }
    int nCount = 0;
    for (VARNEX_ALERT_BUF& record : records)
    {
        if (ppwszTexts[nCount] != nullptr)
        {
            ComposeAlertMessage(record, ppwszTexts[nCount], cchText);
        }
        MarkPagingFileAlert(record); // also without a text buffer
        pnAlertTypes[nCount] = record.AlertType;
        pnThresholds[nCount] = record.Threshold;
        pnValues[nCount] = record.Value;
        ++nCount;
    }
    return nCount;
}

} // namespace

} // namespace varnex

int GetAlertRecord(int* pnAlertTypes, wchar_t** ppwszTexts, unsigned int cchText, int* pnThresholds, int* pnValues,
                   int nMaxCount)
{
    if (pnAlertTypes == nullptr || ppwszTexts == nullptr || pnThresholds == nullptr || pnValues == nullptr ||
        nMaxCount < 1)
    {
        return 0;
    }
    return varnex::StopExceptions(
        "GetAlertRecord", 0,
        [&] { return varnex::FetchAlerts(pnAlertTypes, ppwszTexts, cchText, pnThresholds, pnValues, nMaxCount); });
}
