#include "config/DailyCounters.h"

#include "common/BoundedText.h"
#include "common/Handles.h"
#include "config/ConfigFile.h"
#include "config/XmlConfig.h"
#include "diag/SPLogger.h"

#include <cstdlib>
#include <cwchar>

namespace varnex
{

namespace
{

constexpr wchar_t COUNTS_MUTEX_NAME[] = L"Global\\{49BCAD94-02E7-4d1d-9CDA-5A7246CDD559}";
constexpr DWORD MUTEX_WAIT_MS = 90'000;

constexpr wchar_t DATE_PATH[] = L"KPMConfiguration/PkiAlertNum/Date";
constexpr std::size_t STORED_DATE_CHARS = 32;
constexpr std::size_t STORED_COUNT_CHARS = 16;

const wchar_t* CountNodeName(int nCounter) noexcept
{
    switch (nCounter)
    {
    case ALERT_COUNTER_CPU:
        return L"CPU";
    case ALERT_COUNTER_DISK:
        return L"Disk";
    case ALERT_COUNTER_NETWORK:
        return L"Network";
    case ALERT_COUNTER_PHYSICAL_MEMORY:
        return L"PH";
    case ALERT_COUNTER_PAGING_FILE:
        return L"PF";
    default:
        return L""; // the path then ends in a slash, which the node operations refuse
    }
}

void CountNodePath(const wchar_t* pwszName, wchar_t (&wszPath)[XML_NODE_PATH_CHARS]) noexcept
{
    FormatTextW(wszPath, L"KPMConfiguration/PkiAlertNum/%s", pwszName);
}

// True when there is a date to compare, an empty one included: a missing node is a date not written yet.
bool IsDateRead(int nResult) noexcept
{
    return nResult == 0 || nResult == XML_NODE_NOT_FOUND;
}

int WriteCount(const wchar_t* pwszName, const wchar_t* pwszValue)
{
    wchar_t wszPath[XML_NODE_PATH_CHARS];
    CountNodePath(pwszName, wszPath);
    return SetXMLNodeValue(nullptr, wszPath, pwszValue);
}

// Separate writes in a fixed order, each going on after a failure of the one before.
void StartNewDay(const wchar_t* pwszDate)
{
    struct Reset
    {
        const wchar_t* pwszName;
        const wchar_t* pwszValue;
        const wchar_t* pwszFailure;
    };
    const Reset resets[] = {
        {L"Date", pwszDate, L"SaveAlertNumIntoLocal -- Reset new date failed, continue reset alert number."},
        {L"CPU", L"0", L"SaveAlertNumIntoLocal -- Reset CPU alert number to zero failed, continue..."},
        {L"PH", L"0", L"SaveAlertNumIntoLocal -- Reset physical memory alert number to zero failed, continue..."},
        {L"PF", L"0", L"SaveAlertNumIntoLocal -- Reset paging file alert number to zero failed, continue..."},
        {L"Disk", L"0", L"SaveAlertNumIntoLocal -- Reset disk alert number to zero failed, continue..."},
        {L"Network", L"0", L"SaveAlertNumIntoLocal -- Reset network alert number to zero failed, continue..."},
    };
    Log()->Level2W(L"SaveAlertNumIntoLocal -- New date coming, reset all alert number and date information.");
    for (const Reset& reset : resets)
    {
        if (WriteCount(reset.pwszName, reset.pwszValue) != 0)
        {
            Log()->Level2W(reset.pwszFailure);
        }
    }
}

// The read-modify-write itself; the caller holds the mutex.
int SaveLocked(const wchar_t* pwszDate, int nCounter, unsigned nCount)
{
    wchar_t wszStoredDate[STORED_DATE_CHARS] = L"";
    const int nDateResult = ReadXMLNodeValue(DATE_PATH, wszStoredDate, STORED_DATE_CHARS);
    if (!IsDateRead(nDateResult))
    {
        Log()->Level2W(L"SaveAlertNumIntoLocal -- get date in configure file failed(0x%08x), exit...", nDateResult);
        return nDateResult;
    }
    Log()->Level4W(L"SaveAlertNumIntoLocal -- Alert Date in configure file(%s).", wszStoredDate);
    if (_wcsicmp(wszStoredDate, pwszDate) != 0)
    {
        StartNewDay(pwszDate);
    }
    else
    {
        Log()->Level4W(L"SaveAlertNumIntoLocal -- input date(%s) is identical with dateInCfgFile(%s), just change "
                       L"related alert number.",
                       pwszDate, wszStoredDate);
    }

    wchar_t wszCount[STORED_COUNT_CHARS];
    FormatTextW(wszCount, L"%d", static_cast<int>(nCount));
    const int nResult = WriteCount(CountNodeName(nCounter), wszCount);
    if (nResult == 0)
    {
        Log()->Level4W(L"SaveAlertNumIntoLocal -- Set type(%d) alert number(%d) successfully, date(%s)..", nCounter,
                       nCount, pwszDate);
    }
    else
    {
        Log()->Level2W(L"SaveAlertNumIntoLocal -- Set type(%d) alert number(%d) failed, date(%s), error code(0x%08x)",
                       nCounter, nCount, pwszDate, nResult);
    }
    return nResult;
}

UniqueHandle OpenCountsMutex() noexcept
{
    UniqueHandle mutex(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, COUNTS_MUTEX_NAME));
    if (!mutex)
    {
        mutex.Reset(CreateMutexW(nullptr, FALSE, COUNTS_MUTEX_NAME));
    }
    return mutex;
}

} // namespace

int GetAlertNumFromLocal(const wchar_t* pwszDate, int nCounter, int* pnCount)
{
    if (pwszDate == nullptr || pnCount == nullptr)
    {
        Log()->Level2W(L"GetAlertNumFromLocal -- checking parameters failed, pwszDate(%p), pnAlertNum(%p), "
                       L"nAlertType(%d).",
                       pwszDate, pnCount, nCounter);
        return COUNTERS_FAILED;
    }
    const ConfigFilePath path;
    if (!path.Exists())
    {
        Log()->Level2W(L"GetAlertNumFromLocal -- global configure file(%s) doesn't exist.", path.Text());
        return COUNTERS_NO_FILE;
    }
    wchar_t wszStoredDate[STORED_DATE_CHARS] = L"";
    int nResult = ReadXMLNodeValue(DATE_PATH, wszStoredDate, STORED_DATE_CHARS);
    if (!IsDateRead(nResult))
    {
        Log()->Level2W(L"GetAlertNumFromLocal -- get date in configure file failed(0x%08x), exit...", nResult);
        return nResult;
    }
    // Nothing stored differs from every date, an empty one included.
    if (wszStoredDate[0] == L'\0' || _wcsicmp(wszStoredDate, pwszDate) != 0)
    {
        Log()->Level4W(L"GetAlertNumFromLocal -- input date(%s) doesn't match configure date(%s), exit...", pwszDate,
                       wszStoredDate);
        return COUNTERS_FAILED;
    }
    wchar_t wszPath[XML_NODE_PATH_CHARS];
    CountNodePath(CountNodeName(nCounter), wszPath);
    wchar_t wszCount[STORED_COUNT_CHARS] = L"";
    nResult = ReadXMLNodeValue(wszPath, wszCount, STORED_COUNT_CHARS);
    if (nResult != 0)
    {
        Log()->Level2W(L"GetAlertNumFromLocal -- get alert number(%d) failed. alert type(%d), date(%s), error "
                       L"code(0x%08x).",
                       *pnCount, nCounter, pwszDate, nResult);
        return nResult;
    }
    *pnCount = _wtoi(wszCount);
    Log()->Level4W(L"GetAlertNumFromLocal -- get alert number(%d) successful, alert type(%d), date(%s).", *pnCount,
                   nCounter, pwszDate);
    return 0;
}

int SaveAlertNumIntoLocal(const wchar_t* pwszDate, int nCounter, unsigned nCount)
{
    if (pwszDate == nullptr || pwszDate[0] == L'\0')
    {
        Log()->Level2W(L"SaveAlertNumIntoLocal -- checking parameters failed, pwszDate(%p), nAlertType(%d).", pwszDate,
                       nCounter);
        return COUNTERS_FAILED;
    }
    Log()->Level4W(L"SaveAlertNumIntoLocal -- input parameter: date(%s), Alert Type(%d), Alert number(%d)", pwszDate,
                   nCounter, nCount);
    const ConfigFilePath path;
    if (!path.Exists())
    {
        Log()->Level2W(L"SaveAlertNumIntoLocal -- global configure file(%s) doesn't exist.", path.Text());
        return COUNTERS_NO_FILE;
    }
    const UniqueHandle mutex = OpenCountsMutex();
    // Given back and closed on every way out, also after a wait that ended in anything but success: a mutex that its
    // owner abandoned is thereby free again for the next one.
    bool bLocked = false;
    MutexHold hold;
    if (mutex)
    {
        bLocked = WaitForSingleObject(mutex.Get(), MUTEX_WAIT_MS) == WAIT_OBJECT_0;
        hold.Reset(mutex.Get());
    }
    if (!bLocked)
    {
        // The value printed is always 0.
        Log()->Level1W(L"SaveAlertNumIntoLocal -- Failed to get KPMcfg.xml control, return value(0x%08x)", 0);
        return COUNTERS_NOT_LOCKED;
    }
    Log()->Level4W(L"SaveAlertNumIntoLocal -- get the control of KPMcfg.xml.");
    return SaveLocked(pwszDate, nCounter, nCount);
}

} // namespace varnex
