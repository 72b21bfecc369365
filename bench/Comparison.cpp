#include "Comparison.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <cmath>

namespace varnex::bench
{

namespace
{

// The value below which that part of the values lies.
template <class ValueOf>
double Quantile(const std::vector<Pair>& pairs, double dPart, ValueOf valueOf)
{
    std::vector<double> values;
    for (const Pair& pair : pairs)
    {
        values.push_back(valueOf(pair));
    }
    const auto nAt = static_cast<std::ptrdiff_t>(dPart * static_cast<double>(values.size() - 1) + 0.5);
    std::nth_element(values.begin(), values.begin() + nAt, values.end());
    return values[static_cast<std::size_t>(nAt)];
}

double RatioOf(const Pair& pair)
{
    return pair.dModuleNs / pair.dFloorNs;
}

} // namespace

void Summarise(Row& row, const std::vector<Pair>& pairs)
{
    INFO(row.operation << ", " << row.work);
    REQUIRE_FALSE(pairs.empty());
    row.nPairs = pairs.size();
    row.dModuleNs = Quantile(pairs, 0.5, [](const Pair& pair) { return pair.dModuleNs; });
    row.dFloorNs = Quantile(pairs, 0.5, [](const Pair& pair) { return pair.dFloorNs; });
    row.dRatio = Quantile(pairs, 0.5, RatioOf);
    row.dRatioLow = Quantile(pairs, 0.25, RatioOf);
    row.dRatioHigh = Quantile(pairs, 0.75, RatioOf);
    row.dOverNs = Quantile(pairs, 0.5, [](const Pair& pair) { return pair.dModuleNs - pair.dFloorNs; });
    REQUIRE((row.dModuleNs > 0 && row.dFloorNs > 0 && std::isfinite(row.dRatio)));
}

bool MeetsGoal(const Row& row)
{
    switch (row.goal.kind)
    {
    case GoalKind::Ratio:
        return row.dRatio <= row.goal.dLimit;
    case GoalKind::NanosecondsOver:
        return row.dOverNs <= row.goal.dLimit;
    default:
        return true;
    }
}

} // namespace varnex::bench
