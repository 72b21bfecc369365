#include "Sample.h"

#include <algorithm>
#include <limits>

namespace varnex::winepdh
{

namespace
{

constexpr DWORD dwNumberFormats = PDH_FMT_LONG | PDH_FMT_LARGE | PDH_FMT_DOUBLE;
constexpr DWORD dwModifiers = PDH_FMT_NOSCALE | PDH_FMT_1000 | PDH_FMT_NOCAP100;

// A double outside the integer's range gives anything when it is cast.
template <class Integer>
Integer TruncateWithin(double dValue) noexcept
{
    // The largest 64-bit value has no double of its own; the next one up is out of range.
    if (dValue >= static_cast<double>((std::numeric_limits<Integer>::max)()))
    {
        return (std::numeric_limits<Integer>::max)();
    }
    return static_cast<Integer>(dValue);
}

double ScaleRate(const Sample& previous, const Sample& latest, const CounterScale& scale, DWORD dwFormat) noexcept
{
    const LONGLONG llWhole = latest.llWhole - previous.llWhole;
    if (llWhole <= 0)
    {
        return 0.0;
    }
    const LONGLONG llPart = latest.llPart - previous.llPart;
    double dValue = static_cast<double>(llPart) / static_cast<double>(llWhole) * scale.dFactor;
    // Idle times of the kernel may run backwards a little; the busy part then outgrows the whole.
    if (scale.bCapAtFactor && (dwFormat & PDH_FMT_NOCAP100) == 0)
    {
        dValue = (std::min)(dValue, scale.dFactor);
    }
    return (dwFormat & PDH_FMT_1000) != 0 ? dValue * 1000.0 : dValue;
}

} // namespace

bool IsNumberFormat(DWORD dwFormat) noexcept
{
    const DWORD dwNumber = dwFormat & dwNumberFormats;
    const bool bOne = dwNumber == PDH_FMT_LONG || dwNumber == PDH_FMT_LARGE || dwNumber == PDH_FMT_DOUBLE;
    return bOne && (dwFormat & ~(dwNumberFormats | dwModifiers)) == 0;
}

DWORD FormatRate(const Sample& previous, const Sample& latest, const CounterScale& scale, DWORD dwFormat,
                 PDH_FMT_COUNTERVALUE& value) noexcept
{
    if (latest.llPart < previous.llPart)
    {
        value.CStatus = PDH_CALC_NEGATIVE_VALUE;
        return value.CStatus;
    }
    const double dValue = ScaleRate(previous, latest, scale, dwFormat);
    switch (dwFormat & dwNumberFormats)
    {
    case PDH_FMT_LONG:
        value.longValue = TruncateWithin<LONG>(dValue);
        break;
    case PDH_FMT_LARGE:
        value.largeValue = TruncateWithin<LONGLONG>(dValue);
        break;
    default:
        value.doubleValue = dValue;
        break;
    }
    value.CStatus = PDH_CSTATUS_VALID_DATA;
    return value.CStatus;
}

} // namespace varnex::winepdh
