#include "Query.h"

#include <algorithm>

namespace varnex::winepdh
{

namespace
{

const InstanceSample* FindInstance(const InstanceSamples& samples, const std::wstring& name) noexcept
{
    const auto found =
        std::find_if(samples.begin(), samples.end(),
                     [&name](const InstanceSample& instance) { return EqualNames(instance.name, name); });
    return found == samples.end() ? nullptr : &*found;
}

} // namespace

CCounter::CCounter(const PerfObject& object, std::wstring instance) : m_object(object), m_instance(std::move(instance))
{
}

bool CCounter::Collect(const std::optional<InstanceSamples>& samples)
{
    const InstanceSample* pInstance = samples ? FindInstance(*samples, m_instance) : nullptr;
    m_previous = m_latest;
    m_latest = pInstance ? std::optional<Sample>(pInstance->sample) : std::nullopt;
    if (m_previous && m_latest)
    {
        m_dwStatus = PDH_CSTATUS_VALID_DATA;
    }
    else if (m_latest)
    {
        m_dwStatus = PDH_CSTATUS_INVALID_DATA;
    }
    else
    {
        m_dwStatus = samples ? PDH_CSTATUS_NO_INSTANCE : PDH_CSTATUS_NO_OBJECT;
    }
    return pInstance != nullptr;
}

DWORD CCounter::Format(DWORD dwFormat, PDH_FMT_COUNTERVALUE& value) const noexcept
{
    if (m_dwStatus != PDH_CSTATUS_VALID_DATA)
    {
        value.CStatus = m_dwStatus;
        return PDH_INVALID_DATA;
    }
    return FormatRate(*m_previous, *m_latest, m_object.scale, dwFormat, value);
}

DWORD FindCounter(const CounterPath& path, std::optional<CCounter>& counter)
{
    if (!IsThisMachine(path.machine))
    {
        return PDH_CSTATUS_NO_MACHINE;
    }
    const PerfObject* pObject = FindPerfObject(path.object);
    const auto samples = pObject ? pObject->pfnRead() : std::nullopt;
    if (!samples)
    {
        return PDH_CSTATUS_NO_OBJECT;
    }
    if (!EqualNames(path.counter, pObject->Names().pwszCounter))
    {
        return PDH_CSTATUS_NO_COUNTER;
    }
    if (path.instance.empty())
    {
        return PDH_CSTATUS_NO_INSTANCE;
    }
    counter.emplace(*pObject, path.instance);
    return ERROR_SUCCESS;
}

DWORD CollectCounters(QueryCounters& counters)
{
    std::map<const PerfObject*, std::optional<InstanceSamples>> readings;
    bool bData = false;
    for (auto& [hCounter, counter] : counters)
    {
        const auto [reading, bNew] = readings.try_emplace(&counter.Object());
        if (bNew)
        {
            reading->second = counter.Object().pfnRead();
        }
        bData = counter.Collect(reading->second) || bData;
    }
    return bData ? ERROR_SUCCESS : PDH_NO_DATA;
}

HANDLE CQueryTable::NextHandle() noexcept
{
    return reinterpret_cast<HANDLE>(++m_uLastHandle);
}

HANDLE CQueryTable::OpenQuery()
{
    const HANDLE hQuery = NextHandle();
    m_queries.try_emplace(hQuery);
    return hQuery;
}

bool CQueryTable::CloseQuery(HANDLE hQuery)
{
    return m_queries.erase(hQuery) != 0;
}

QueryCounters* CQueryTable::FindQuery(HANDLE hQuery)
{
    const auto found = m_queries.find(hQuery);
    return found == m_queries.end() ? nullptr : &found->second;
}

HANDLE CQueryTable::AddCounter(QueryCounters& query, CCounter&& counter)
{
    const HANDLE hCounter = NextHandle();
    query.try_emplace(hCounter, std::move(counter));
    return hCounter;
}

bool CQueryTable::RemoveCounter(HANDLE hCounter)
{
    return std::any_of(m_queries.begin(), m_queries.end(),
                       [hCounter](auto& query) { return query.second.erase(hCounter) != 0; });
}

CCounter* CQueryTable::FindCounter(HANDLE hCounter)
{
    for (auto& [hQuery, counters] : m_queries)
    {
        const auto found = counters.find(hCounter);
        if (found != counters.end())
        {
            return &found->second;
        }
    }
    return nullptr;
}

} // namespace varnex::winepdh
