#pragma once

#include "CounterPath.h"
#include "PerfObject.h"

#include <map>
#include <optional>
#include <string>

namespace varnex::winepdh
{

// One counter of a query, with its two latest samples. Not synchronized.
class CCounter
{
public:
    CCounter(const PerfObject& object, std::wstring instance);

    const PerfObject& Object() const noexcept { return m_object; }
    // Takes this counter's sample from those of its object. False when its instance, or the object, is gone.
    bool Collect(const std::optional<InstanceSamples>& samples);
    // PDH_INVALID_DATA until the two latest collections both gave a sample.
    DWORD Format(DWORD dwFormat, PDH_FMT_COUNTERVALUE& value) const noexcept;

private:
    const PerfObject& m_object;
    std::wstring m_instance;
    std::optional<Sample> m_previous;
    std::optional<Sample> m_latest;
    DWORD m_dwStatus = PDH_CSTATUS_INVALID_DATA;
};

// The counter that a path names, checked against the machine as it is now, but for its instance, which may come later.
DWORD FindCounter(const CounterPath& path, std::optional<CCounter>& counter);

using QueryCounters = std::map<HANDLE, CCounter>;

// Takes one sample of every counter, all those of one object from the same reading. PDH_NO_DATA when no counter gets
// any, as when there is none.
DWORD CollectCounters(QueryCounters& counters);

// All open queries with their counters. A handle is never given out twice, so a stale one is always recognised, and
// queries and counters draw from the same numbers, so neither is taken for the other. Not synchronized.
class CQueryTable
{
public:
    HANDLE OpenQuery();
    bool CloseQuery(HANDLE hQuery);
    // Null when no such query is open.
    QueryCounters* FindQuery(HANDLE hQuery);

    HANDLE AddCounter(QueryCounters& query, CCounter&& counter);
    bool RemoveCounter(HANDLE hCounter);
    // Null when no open query has it.
    CCounter* FindCounter(HANDLE hCounter);

private:
    HANDLE NextHandle() noexcept;

    std::map<HANDLE, QueryCounters> m_queries;
    UINT_PTR m_uLastHandle = 0;
};

} // namespace varnex::winepdh
