#include "alerting/AlertDispatch.h"

#include "alerting/AlertRecord.h"
#include "alerting/AlertStore.h"
#include "common/AnsiText.h"
#include "common/Handles.h"
#include "diag/ExceptionBarrier.h"
#include "diag/SPLogger.h"

#include <process.h>

namespace varnex
{

int SendAlertToAllServer(int nAlertType, int nThreshold, int nValue, const char* pszResourceName,
                         int nHappenTime) noexcept
{
    UniqueLocalBlock<VARNEX_ALERT_BUF> record(
        static_cast<VARNEX_ALERT_BUF*>(LocalAlloc(LPTR, sizeof(VARNEX_ALERT_BUF))));
    if (!record)
    {
        Log()->Level1A("SendAlertToAllServer -- Failed to allocate TSL memory!");
        return -1;
    }
    record.Get()->AlertType = nAlertType;
    record.Get()->Threshold = nThreshold;
    record.Get()->Value = nValue;
    record.Get()->HappenTime = nHappenTime;
    if (pszResourceName != nullptr)
    {
        CopyAnsiText(record.Get()->ResourceName, sizeof record.Get()->ResourceName, pszResourceName);
    }
    const UniqueHandle thread(
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, WriteAlertRecord_Thread, record.Get(), 0, nullptr)));
    if (!thread)
    {
        const DWORD dwError = GetLastError();
        Log()->Level4A("SendAlertToAllServer -- Start SendAlert_Tread thread failed(%d)!", dwError);
        return -1;
    }
    (void)record.Release(); // the thread's now
    return 0;
}

unsigned __stdcall WriteAlertRecord_Thread(void* pRecord) noexcept
{
    const UniqueLocalBlock<VARNEX_ALERT_BUF> record(static_cast<VARNEX_ALERT_BUF*>(pRecord));
    if (!record)
    {
        Log()->Level1A("WriteAlertRecord_Thread -- Failed to get TLS data!");
        return 0xFFFFFFFF;
    }
    const int nResult = StopExceptions("WriteAlertRecord_Thread", -1,
                                       [&record]
                                       {
                                           const VARNEX_ALERT_BUF& alert = *record.Get();
                                           return SaveLocalAlertInfo(alert.AlertType, alert.Threshold, alert.Value,
                                                                     alert.ResourceName, alert.HappenTime, alert.Extra);
                                       });
    if (nResult != 0)
    {
        Log()->Level4A("WriteAlertRecord_Thread -- save alert to local fail(%d)", nResult);
    }
    return static_cast<unsigned>(nResult);
}

} // namespace varnex
