#include "ChartTable.h"

#include <algorithm>

namespace varnex::host
{

namespace
{

constexpr std::size_t MOST_DRAWN = 8; // as many colours as the page has

// Seconds from one sample to the next.
int UsualDistance(const ChartTable& table)
{
    constexpr std::size_t FEWEST_ROWS = 5;
    constexpr int CYCLE_SECONDS = 60;
    if (table.rows.size() < FEWEST_ROWS)
    {
        return CYCLE_SECONDS;
    }
    std::vector<int> distances;
    for (auto row = table.rows.begin(), next = std::next(row); next != table.rows.end(); ++row, ++next)
    {
        distances.push_back(next->first - row->first);
    }
    const auto middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
    std::nth_element(distances.begin(), middle, distances.end());
    return *middle;
}

bool HasFailed(const ChartTable::Cells& cells)
{
    return std::find(cells.begin(), cells.end(), std::nullopt) != cells.end();
}

// The mean and the highest of those that did not fail.
ChartTable::Cells MeanAndHighest(const ChartTable::Cells& cells)
{
    double dSum = 0;
    double dMost = 0;
    std::size_t nValid = 0;
    for (const std::optional<double>& cell : cells)
    {
        if (cell)
        {
            dSum += *cell;
            dMost = std::max(dMost, *cell);
            ++nValid;
        }
    }
    if (nValid == 0)
    {
        return {std::nullopt, std::nullopt};
    }
    return {dSum / static_cast<double>(nValid), dMost};
}

} // namespace

SeriesSummary Summarize(const ChartTable& table, std::size_t nSeries)
{
    SeriesSummary summary;
    double dSum = 0;
    for (const auto& [nSecond, cells] : table.rows)
    {
        if (nSeries >= cells.size())
        {
            continue;
        }
        if (!cells[nSeries])
        {
            ++summary.nFailed;
            continue;
        }
        const double dValue = *cells[nSeries];
        summary.dLeast = summary.nSamples == 0 ? dValue : std::min(summary.dLeast, dValue);
        summary.dMost = std::max(summary.dMost, dValue);
        dSum += dValue;
        ++summary.nSamples;
    }
    summary.dMean = summary.nSamples == 0 ? 0 : dSum / static_cast<double>(summary.nSamples);
    return summary;
}

std::vector<ChartSpan> FindMissing(const ChartTable& table)
{
    std::vector<ChartSpan> missing;
    if (!table.bLine || table.rows.empty())
    {
        return missing;
    }
    const int nLongest = UsualDistance(table) * 7 / 4;
    for (auto row = table.rows.begin(), next = std::next(row); next != table.rows.end(); ++row, ++next)
    {
        if (next->first - row->first > nLongest)
        {
            missing.emplace_back(row->first, next->first);
        }
    }
    return missing;
}

std::vector<ChartSpan> FindFailed(const ChartTable& table)
{
    constexpr int DAY_SECONDS = 86400;
    const int nHalf = UsualDistance(table) / 2;
    std::vector<ChartSpan> failed;
    for (const auto& [nSecond, cells] : table.rows)
    {
        if (!HasFailed(cells))
        {
            continue;
        }
        const ChartSpan span(std::max(nSecond - nHalf, 0), std::min(nSecond + nHalf, DAY_SECONDS));
        if (!failed.empty() && span.first <= failed.back().second + nHalf / 2)
        {
            failed.back().second = span.second;
            continue;
        }
        failed.push_back(span);
    }
    return failed;
}

ChartTable DrawnTable(const ChartTable& table)
{
    if (table.names.size() <= MOST_DRAWN)
    {
        return table;
    }
    const std::string all = std::to_string(table.names.size());
    ChartTable drawn{{"Mean of " + all, "Highest of " + all}, table.bLine, {}};
    for (const auto& [nSecond, cells] : table.rows)
    {
        drawn.rows[nSecond] = MeanAndHighest(cells);
    }
    return drawn;
}

} // namespace varnex::host
