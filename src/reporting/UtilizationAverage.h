#pragma once

#include "reporting/BoundedHistory.h"

#include <cstdint>

namespace varnex
{

// The average of the newest nSpan samples of a history, failed ones (-1) left out, in signed arithmetic of the sample's
// width, truncated towards zero. 0, with a level 4 line, when no sample counts or fewer than nMinimum do: too few give
// no partial average. The caller holds the history's lock.

// Returns 1, or 0 (logged at level 1) for a null pointer.
int GetSinglePKIAverageValue(const BoundedHistory<int>* pHistory, std::uint32_t nSpan, std::int32_t nMinimum,
                             std::int32_t* pnAverage) noexcept;

std::int64_t GetSinglePKIAverageValue64(const BoundedHistory<std::int64_t>& history, std::uint32_t nSpan,
                                        std::int32_t nMinimum) noexcept;

} // namespace varnex
