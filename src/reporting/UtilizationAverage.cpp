#include "reporting/UtilizationAverage.h"

#include "diag/SPLogger.h"

#include <algorithm>
#include <type_traits>

namespace varnex
{

namespace
{

struct AverageTexts
{
    const char* pszNoneValid;
    const char* pszTooFewValid;
};

constexpr AverageTexts TEXTS = {
    "GetSinglePKIAverageValue -- PKI valid item amount is zero, return average value is 0.",
    "GetSinglePKIAverageValue -- PKI valid Item amount is less than input minimum sampling amount,valid item "
    "amount:%d, nMinSampleNum:%d, return average value is 0.",
};

constexpr AverageTexts TEXTS_64 = {
    "GetSinglePKIAverageValue64 -- PKI valid item amount is zero, return average value is 0.",
    "GetSinglePKIAverageValue64 -- PKI valid Item amount is less than input minimum sampling amount,valid item "
    "amount:%d, nMinSampleNum:%d, return average value is 0.",
};

// The rule itself. Value: the signed width in which sums wrap.
template <class Value>
Value AverageNewest(const BoundedHistory<Value>& history, std::uint32_t nSpan, std::int32_t nMinimum,
                    const AverageTexts& texts) noexcept
{
    using Unsigned = std::make_unsigned_t<Value>;
    const std::size_t nConsidered = std::min(history.Size(), std::size_t{nSpan});
    Unsigned nSum = 0;
    std::int32_t nValid = 0;
    for (std::size_t nBack = 0; nBack < nConsidered; ++nBack)
    {
        const Value nValue = history.FromNewest(nBack);
        if (nValue != -1)
        {
            nSum += static_cast<Unsigned>(nValue);
            ++nValid;
        }
    }
    if (nValid == 0)
    {
        Log()->Level4A(texts.pszNoneValid);
        return 0;
    }
    if (nValid < nMinimum)
    {
        Log()->Level4A(texts.pszTooFewValid, nValid, nMinimum);
        return 0;
    }
    return static_cast<Value>(nSum) / nValid;
}

} // namespace

int GetSinglePKIAverageValue(const BoundedHistory<int>* pHistory, std::uint32_t nSpan, std::int32_t nMinimum,
                             std::int32_t* pnAverage) noexcept
{
    if (pHistory == nullptr || pnAverage == nullptr)
    {
        Log()->Level1A("GetSinglePKIAverageValue -- checking parameter fail, pPKIIntList(%p), pnAverageValue(%p)",
                       pHistory, pnAverage);
        return 0;
    }
    *pnAverage = AverageNewest<std::int32_t>(*pHistory, nSpan, nMinimum, TEXTS);
    return 1;
}

std::int64_t GetSinglePKIAverageValue64(const BoundedHistory<std::int64_t>& history, std::uint32_t nSpan,
                                        std::int32_t nMinimum) noexcept
{
    return AverageNewest<std::int64_t>(history, nSpan, nMinimum, TEXTS_64);
}

} // namespace varnex
