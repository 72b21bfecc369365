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

    void Append(const Sample& sample)
    {
        if (m_samples.size() < LIMIT)
        {
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
