#pragma once

#include "diag/SPLogger.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <vector>

namespace varnex
{

// The newest samples of one instance, a day of them at one a minute. Appending to a full history replaces the oldest
// sample; nothing is moved. So does a history that has no memory to grow: it always ends with the newest sample, and
// positions in time, which are counted from there, stay regular.
template <class Sample>
class BoundedHistory
{
public:
    static constexpr std::size_t LIMIT = 1440;

    // Makes room for one sample. False for a full history and, logged, without memory.
    bool MakeRoom() noexcept
    {
        const std::size_t nSize = m_samples.size();
        if (nSize == LIMIT)
        {
            return false;
        }
        if (nSize < m_samples.capacity())
        {
            return true;
        }
        try
        {
            // Doubled, but to no more than a history can hold: a vector's own growth would end at room for 2048.
            m_samples.reserve(nSize == 0 ? 1 : std::min(2 * nSize, LIMIT));
            return true;
        }
        catch (const std::bad_alloc&)
        {
            Log()->Level1A("BoundedHistory -- no memory for one more sample, the oldest one makes room.");
            return false;
        }
    }

    // The sample is none of this history's own. One that finds no memory for the first sample stays empty.
    void Append(const Sample& sample) noexcept { Append(sample, MakeRoom()); }
    // For who has asked for room: without it, the oldest sample is replaced.
    void Append(const Sample& sample, bool bHasRoom) noexcept
    {
        if (bHasRoom)
        {
            PutInOrder();
            m_samples.push_back(sample);
        }
        else if (!m_samples.empty())
        {
            m_samples[m_nOldest] = sample;
            m_nOldest = (m_nOldest + 1) % m_samples.size();
        }
    }

    // Drops the oldest samples until at most nCount are left.
    void CutTo(std::size_t nCount)
    {
        if (m_samples.size() > nCount)
        {
            PutInOrder();
            m_samples.erase(m_samples.begin(), m_samples.end() - static_cast<std::ptrdiff_t>(nCount));
        }
    }

    std::size_t Size() const noexcept { return m_samples.size(); }
    // The sample that many places before the newest one; nBack is below Size().
    const Sample& FromNewest(std::size_t nBack) const noexcept
    {
        const std::size_t nPlace = m_nOldest + m_samples.size() - 1 - nBack;
        // Not by a remainder: a report reads every sample of the day, and a division would be most of its averages' cost.
        return m_samples[nPlace < m_samples.size() ? nPlace : nPlace - m_samples.size()];
    }
    // Only of a history that is not empty.
    const Sample& Newest() const noexcept { return FromNewest(0); }
    // Only of a history that is not empty.
    const Sample& Oldest() const noexcept { return m_samples[m_nOldest]; }

private:
    void PutInOrder() noexcept
    {
        std::rotate(m_samples.begin(), m_samples.begin() + static_cast<std::ptrdiff_t>(m_nOldest), m_samples.end());
        m_nOldest = 0;
    }

    std::vector<Sample> m_samples; // in order while it grows, a ring while it does not
    std::size_t m_nOldest = 0;
};

} // namespace varnex
