#pragma once

#include "common/Pdh.h"
#include "sampling/CounterNames.h"
#include "sampling/InstanceNames.h"

#include <type_traits>

namespace varnex
{

enum class EnumerationEnd
{
    NoObjectName,
    NoTotalName,
    Failed,
    NoInstances,
    Listed,
};

// How an enumeration ended, for its caller to say in words of its own.
template <class Character>
struct InstanceEnumeration
{
    EnumerationEnd end;
    int nStatus;                    // of the step that failed; 0 without instances
    InstanceNames<Character> names; // without the aggregate instance
};

template <class Character>
PDH_STATUS EnumerateItems(const Character* pszObject, Character* pszCounters, DWORD* pcchCounters,
                          Character* pszInstances, DWORD* pcchInstances) noexcept
{
    if constexpr (std::is_same_v<Character, char>)
    {
        return PdhEnumObjectItemsA(nullptr, nullptr, pszObject, pszCounters, pcchCounters, pszInstances, pcchInstances,
                                   PERF_DETAIL_ADVANCED, 0);
    }
    else
    {
        return PdhEnumObjectItemsW(nullptr, nullptr, pszObject, pszCounters, pcchCounters, pszInstances, pcchInstances,
                                   PERF_DETAIL_ADVANCED, 0);
    }
}

// Lists the instances of an object of this machine, in the width of Character. Any thread. Throws std::bad_alloc.
template <class Character>
InstanceEnumeration<Character> EnumerateInstances(CounterRole object)
{
    constexpr DWORD LIST_CHARS = 2048; // a list that does not fit is a failure
    Character szObject[OBJECT_NAME_CHARS];
    int nStatus = ReadCounterName(object, szObject);
    if (nStatus != 0)
    {
        return {EnumerationEnd::NoObjectName, nStatus, {}};
    }
    Character szTotal[SHORT_NAME_CHARS];
    nStatus = ReadCounterName(IDS_TOTAL_INSTANCE, szTotal);
    if (nStatus != 0)
    {
        return {EnumerationEnd::NoTotalName, nStatus, {}};
    }
    Character szCounters[LIST_CHARS] = {};
    Character szInstances[LIST_CHARS] = {};
    DWORD cchCounters = LIST_CHARS;
    DWORD cchInstances = LIST_CHARS;
    nStatus = EnumerateItems<Character>(szObject, szCounters, &cchCounters, szInstances, &cchInstances);
    if (nStatus != ERROR_SUCCESS)
    {
        return {EnumerationEnd::Failed, nStatus, {}};
    }
    if (szInstances[0] == Character{})
    {
        return {EnumerationEnd::NoInstances, 0, {}};
    }
    return {EnumerationEnd::Listed, 0, CopyInstanceNames<Character>(szInstances, szTotal)};
}

} // namespace varnex
