#pragma once

#include "reporting/BoundedHistory.h"
#include "sampling/NetworkUtilizationCollector.h"

#include <cstddef>
#include <cstdint>

namespace varnex
{

// The newest records of one adapter, and their utilizations once more by themselves. An average that walked over a day
// of whole records would take a megabyte of each adapter through the processor's caches, which whoever runs next pays
// for: half as much again as the rest of a report.
class CardHistory
{
public:
    // Without memory for either of the two, the oldest record is replaced in both; an empty history stays empty.
    void Append(const NetworkCard& card) noexcept
    {
        const bool bHasRoom = m_utilizations.MakeRoom() && m_records.MakeRoom();
        m_records.Append(card, bHasRoom);
        m_utilizations.Append(static_cast<std::int32_t>(card.Utilization), bHasRoom);
    }
    // Drops the oldest records until at most nCount are left.
    void CutTo(std::size_t nCount)
    {
        m_records.CutTo(nCount);
        m_utilizations.CutTo(nCount);
    }

    std::size_t Size() const noexcept { return m_records.Size(); }
    // Only of a history that is not empty.
    const NetworkCard& Newest() const noexcept { return m_records.Newest(); }
    // Only of a history that is not empty.
    const NetworkCard& Oldest() const noexcept { return m_records.Oldest(); }
    // A missing utilization is a failed sample.
    const BoundedHistory<std::int32_t>& Utilizations() const noexcept { return m_utilizations; }

private:
    BoundedHistory<NetworkCard> m_records;
    BoundedHistory<std::int32_t> m_utilizations; // of the same records
};

} // namespace varnex
