#pragma once

#include <windows.h>

#include <pdh.h>
#include <pdhmsg.h>

#include <string>
#include <vector>

namespace varnex::winepdh
{

// One reading of a rate counter: the value is the growth of the part over the growth of the whole.
struct Sample
{
    LONGLONG llPart;
    LONGLONG llWhole;
};

struct InstanceSample
{
    std::wstring name;
    Sample sample;
};
using InstanceSamples = std::vector<InstanceSample>;

// How a counter's samples become a number.
struct CounterScale
{
    double dFactor;    // the value when part and whole have grown alike
    bool bCapAtFactor; // percentages stop at 100 unless PDH_FMT_NOCAP100 is asked for
};

// One of PDH_FMT_LONG, PDH_FMT_LARGE and PDH_FMT_DOUBLE, with or without the modifiers of a number.
bool IsNumberFormat(DWORD dwFormat) noexcept;

// The rate between two samples, 0 when the whole has not grown. Returns PDH_CSTATUS_VALID_DATA, or
// PDH_CALC_NEGATIVE_VALUE when the part has shrunk; the value is also set in `value.CStatus`.
DWORD FormatRate(const Sample& previous, const Sample& latest, const CounterScale& scale, DWORD dwFormat,
                 PDH_FMT_COUNTERVALUE& value) noexcept;

} // namespace varnex::winepdh
