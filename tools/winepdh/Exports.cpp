#include "CounterPath.h"
#include "PerfObject.h"
#include "Query.h"
#include "StringList.h"

#include "common/Locks.h"

#include <exception>

using namespace varnex;
using namespace varnex::winepdh;

namespace
{

SlimLock g_tableLock; // guards g_table
CQueryTable g_table;

// Runs a call's body; no exception leaves the library. Memory is all that can run out in here.
template <class Body>
PDH_STATUS RunCall(Body&& body) noexcept
{
    try
    {
        return static_cast<PDH_STATUS>(body());
    }
    catch (const std::exception&)
    {
        return static_cast<PDH_STATUS>(PDH_MEMORY_ALLOCATION_FAILURE);
    }
}

template <class Character>
PDH_STATUS EnumObjectItems(const Character* pszDataSource, const Character* pszMachine, const Character* pszObject,
                           const ListBuffer<Character>& counters, const ListBuffer<Character>& instances,
                           DWORD dwFlags) noexcept
{
    return RunCall(
        [&]() -> DWORD
        {
            if (pszObject == nullptr || *pszObject == 0 || dwFlags != 0 || !IsUsable(counters) || !IsUsable(instances))
            {
                return PDH_INVALID_ARGUMENT;
            }
            if (pszDataSource != nullptr)
            {
                return PDH_NOT_IMPLEMENTED; // no log files
            }
            if (pszMachine != nullptr && !IsThisMachine(WideFromText(pszMachine)))
            {
                return PDH_CSTATUS_NO_MACHINE;
            }
            const PerfObject* pObject = FindPerfObject(WideFromText(pszObject));
            const auto samples = pObject ? pObject->pfnRead() : std::nullopt;
            if (!samples)
            {
                return PDH_CSTATUS_NO_OBJECT;
            }
            const bool bCountersFit = StoreList(CounterList(*pObject), counters);
            const bool bInstancesFit = StoreList(InstanceList(*samples), instances);
            return bCountersFit && bInstancesFit ? ERROR_SUCCESS : PDH_MORE_DATA;
        });
}

template <class Character>
PDH_STATUS OpenQuery(const Character* pszDataSource, PDH_HQUERY* phQuery) noexcept
{
    return RunCall(
        [&]() -> DWORD
        {
            if (phQuery == nullptr)
            {
                return PDH_INVALID_ARGUMENT;
            }
            *phQuery = nullptr;
            if (pszDataSource != nullptr)
            {
                return PDH_NOT_IMPLEMENTED; // no log files
            }
            const SlimLockHold hold(g_tableLock);
            *phQuery = g_table.OpenQuery();
            return ERROR_SUCCESS;
        });
}

template <class Character>
PDH_STATUS AddCounter(PDH_HQUERY hQuery, const Character* pszPath, PDH_HCOUNTER* phCounter) noexcept
{
    return RunCall(
        [&]() -> DWORD
        {
            if (pszPath == nullptr || phCounter == nullptr)
            {
                return PDH_INVALID_ARGUMENT;
            }
            *phCounter = nullptr;
            const SlimLockHold hold(g_tableLock);
            QueryCounters* pQuery = g_table.FindQuery(hQuery);
            if (pQuery == nullptr)
            {
                return PDH_INVALID_HANDLE;
            }
            if (*pszPath == 0)
            {
                return PDH_CSTATUS_NO_COUNTERNAME;
            }
            const auto path = ParseCounterPath(WideFromText(pszPath));
            if (!path)
            {
                return PDH_CSTATUS_BAD_COUNTERNAME;
            }
            std::optional<CCounter> counter;
            const DWORD dwStatus = FindCounter(*path, counter);
            if (counter)
            {
                *phCounter = g_table.AddCounter(*pQuery, std::move(*counter));
            }
            return dwStatus;
        });
}

} // namespace

PDH_FUNCTION PdhEnumObjectItemsA(LPCSTR pszDataSource, LPCSTR pszMachine, LPCSTR pszObject, LPSTR pszCounters,
                                 LPDWORD pcchCounters, LPSTR pszInstances, LPDWORD pcchInstances, DWORD, DWORD dwFlags)
{
    return EnumObjectItems<char>(pszDataSource, pszMachine, pszObject, {pszCounters, pcchCounters},
                                 {pszInstances, pcchInstances}, dwFlags);
}

PDH_FUNCTION PdhEnumObjectItemsW(LPCWSTR pwszDataSource, LPCWSTR pwszMachine, LPCWSTR pwszObject, LPWSTR pwszCounters,
                                 LPDWORD pcchCounters, LPWSTR pwszInstances, LPDWORD pcchInstances, DWORD,
                                 DWORD dwFlags)
{
    return EnumObjectItems<wchar_t>(pwszDataSource, pwszMachine, pwszObject, {pwszCounters, pcchCounters},
                                    {pwszInstances, pcchInstances}, dwFlags);
}

PDH_FUNCTION PdhOpenQueryA(LPCSTR pszDataSource, DWORD_PTR, PDH_HQUERY* phQuery)
{
    return OpenQuery(pszDataSource, phQuery);
}

PDH_FUNCTION PdhOpenQueryW(LPCWSTR pwszDataSource, DWORD_PTR, PDH_HQUERY* phQuery)
{
    return OpenQuery(pwszDataSource, phQuery);
}

PDH_FUNCTION PdhAddCounterA(PDH_HQUERY hQuery, LPCSTR pszPath, DWORD_PTR, PDH_HCOUNTER* phCounter)
{
    return AddCounter(hQuery, pszPath, phCounter);
}

PDH_FUNCTION PdhAddCounterW(PDH_HQUERY hQuery, LPCWSTR pwszPath, DWORD_PTR, PDH_HCOUNTER* phCounter)
{
    return AddCounter(hQuery, pwszPath, phCounter);
}

PDH_FUNCTION PdhCollectQueryData(PDH_HQUERY hQuery)
{
    return RunCall(
        [&]() -> DWORD
        {
            const SlimLockHold hold(g_tableLock);
            QueryCounters* pQuery = g_table.FindQuery(hQuery);
            return pQuery ? CollectCounters(*pQuery) : PDH_INVALID_HANDLE;
        });
}

PDH_FUNCTION PdhGetFormattedCounterValue(PDH_HCOUNTER hCounter, DWORD dwFormat, LPDWORD pdwType,
                                         PPDH_FMT_COUNTERVALUE pValue)
{
    return RunCall(
        [&]() -> DWORD
        {
            if (pValue == nullptr || !IsNumberFormat(dwFormat))
            {
                return PDH_INVALID_ARGUMENT;
            }
            const SlimLockHold hold(g_tableLock);
            const CCounter* pCounter = g_table.FindCounter(hCounter);
            if (pCounter == nullptr)
            {
                return PDH_INVALID_HANDLE;
            }
            if (pdwType != nullptr)
            {
                *pdwType = pCounter->Object().dwCounterType;
            }
            return pCounter->Format(dwFormat, *pValue);
        });
}

PDH_FUNCTION PdhRemoveCounter(PDH_HCOUNTER hCounter)
{
    return RunCall(
        [&]() -> DWORD
        {
            const SlimLockHold hold(g_tableLock);
            return g_table.RemoveCounter(hCounter) ? ERROR_SUCCESS : PDH_INVALID_HANDLE;
        });
}

PDH_FUNCTION PdhCloseQuery(PDH_HQUERY hQuery)
{
    return RunCall(
        [&]() -> DWORD
        {
            const SlimLockHold hold(g_tableLock);
            return g_table.CloseQuery(hQuery) ? ERROR_SUCCESS : PDH_INVALID_HANDLE;
        });
}
