#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace varnex
{

// The newest samples of one instance, a day of them at one a minute. Appending to a full history replaces the oldest
// sample; nothing is moved.
template <class Sample>
class BoundedHistory
{
public:
    static constexpr std::size_t LIMIT = 1440;

    // Makes room for one sample, so that the next Append does not throw. Throws std::bad_alloc.
    void MakeRoom()
    {
        // Doubled, but to no more than a history can hold: a vector's own growth would end at room for 2048.
        const std::size_t nSize = m_samples.size();
        if (nSize == m_samples.capacity() && nSize < LIMIT)
        {
            m_samples.reserve(nSize == 0 ? 1 : std::min(2 * nSize, LIMIT));
        }
    }

    // Throws std::bad_alloc, and then nothing has changed. The sample is none of this history's own.
    void Append(const Sample& sample)
    {
        if (m_samples.size() < LIMIT)
        {
            MakeRoom();
            m_samples.push_back(sample);
            return;
        }
        m_samples[m_nOldest] = sample;
        m_nOldest = (m_nOldest + 1) % LIMIT;
    }

    // Drops the oldest samples until at most nCount are left.
    void CutTo(std::size_t nCount)
    {
        if (m_samples.size() > nCount)
        {
            std::rotate(m_samples.begin(), m_samples.begin() + static_cast<std::ptrdiff_t>(m_nOldest), m_samples.end());
            m_nOldest = 0;
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
    std::vector<Sample> m_samples; // in order while it grows, then a ring
    std::size_t m_nOldest = 0;
};

} // namespace varnex
