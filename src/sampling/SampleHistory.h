#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace varnex
{

// The newest samples of one resource, oldest first. An amount comes from the configuration as it stands there, so a
// negative one is possible; a length is compared with it as unsigned, which no history ever reaches.
class SampleHistory
{
public:
    // The marker of a missing value: counts in a length, adds nothing to a sum that leaves missing values out.
    static constexpr std::uint32_t MISSING = 0xFFFFFFFF;

    // Makes room for one sample, so that the next Append does not throw. Throws std::bad_alloc.
    void MakeRoom()
    {
        if (m_samples.size() == m_samples.capacity()) // doubled: any amount may be asked for, and each growth is a copy
        {
            m_samples.reserve(m_samples.empty() ? 1 : 2 * m_samples.size());
        }
    }
    // Throws std::bad_alloc, and then nothing has changed.
    void Append(std::uint32_t nSample) { m_samples.push_back(nSample); }
    // Drops the oldest samples until at most nAmount are left.
    void TrimTo(int nAmount) noexcept
    {
        const auto nKept = std::size_t{static_cast<std::uint32_t>(nAmount)};
        if (m_samples.size() > nKept)
        {
            m_samples.erase(m_samples.begin(), m_samples.end() - static_cast<std::ptrdiff_t>(nKept));
        }
    }
    bool HoldsAtLeast(int nAmount) const noexcept { return m_samples.size() >= static_cast<std::uint32_t>(nAmount); }
    void DropOldest() noexcept
    {
        if (!m_samples.empty())
        {
            m_samples.erase(m_samples.begin());
        }
    }
    const std::vector<std::uint32_t>& Samples() const noexcept { return m_samples; }

    // The sum as a signed 32-bit number, which wraps, divided by nAmount towards zero; 0 for an amount of 0.
    int Average(int nAmount) const noexcept { return Quotient(Sum(false), nAmount); }
    // The same without the missing values, which still count in nAmount.
    int AverageOfPresent(int nAmount) const noexcept { return Quotient(Sum(true), nAmount); }

private:
    std::uint32_t Sum(bool bWithoutMissing) const noexcept
    {
        std::uint32_t nSum = 0;
        for (const std::uint32_t nSample : m_samples)
        {
            if (!bWithoutMissing || nSample != MISSING)
            {
                nSum += nSample;
            }
        }
        return nSum;
    }
    static int Quotient(std::uint32_t nSum, int nAmount) noexcept
    {
        // In 64 bits: the smallest number divided by -1 has no place in 32.
        return nAmount == 0 ? 0 : static_cast<int>(std::int64_t{static_cast<std::int32_t>(nSum)} / nAmount);
    }

    std::vector<std::uint32_t> m_samples;
};

} // namespace varnex
