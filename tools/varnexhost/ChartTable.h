#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace varnex::host
{

// Series over one day with common times.
struct ChartTable
{
    using Cells = std::vector<std::optional<double>>; // nothing for a sample that failed; may be shorter than names

    std::vector<std::string> names;
    bool bLine = true;         // else single points
    std::map<int, Cells> rows; // by seconds since midnight
};

struct SeriesSummary
{
    std::size_t nSamples = 0; // that did not fail
    std::size_t nFailed = 0;
    double dLeast = 0;
    double dMean = 0;
    double dMost = 0;
};

SeriesSummary Summarize(const ChartTable& table, std::size_t nSeries);

// From and to, in seconds since midnight.
using ChartSpan = std::pair<int, int>;

// Between which samples lines are missing. The module samples once a minute and takes some seconds for it, so that the
// usual distance is the table's own; no gap in a table of single points.
std::vector<ChartSpan> FindMissing(const ChartTable& table);

// Around which samples of at least one series failed.
std::vector<ChartSpan> FindFailed(const ChartTable& table);

// The table as it is drawn: of many series only their mean and their highest value, or nobody could read it.
ChartTable DrawnTable(const ChartTable& table);

} // namespace varnex::host
