#include "ChartJson.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace varnex::host
{

namespace
{

using Json = nlohmann::ordered_json;

constexpr int DAY_SECONDS = 86400;

// A thousandth is finer than a pixel.
Json NumberOf(const std::optional<double>& cell)
{
    if (!cell)
    {
        return nullptr;
    }
    const double dRounded = std::round(*cell * 1000) / 1000;
    constexpr double BEYOND_ALL_SENSE = 1e15; // a number in a file may be any
    return dRounded == std::floor(dRounded) && dRounded < BEYOND_ALL_SENSE ? Json(static_cast<std::int64_t>(dRounded))
                                                                           : Json(dRounded);
}

// A moment without values between two samples breaks the line.
void InsertBreaks(ChartTable& table)
{
    for (const ChartSpan& missing : FindMissing(table))
    {
        table.rows[(missing.first + missing.second) / 2] = ChartTable::Cells(table.names.size());
    }
}

Json TableJson(ChartTable table)
{
    InsertBreaks(table);
    const ChartTable drawn = DrawnTable(table);
    Json times = Json::array();
    std::vector<Json> values(drawn.names.size(), Json::array());
    for (const auto& [nSecond, cells] : drawn.rows)
    {
        times.push_back(nSecond);
        for (std::size_t i = 0; i < values.size(); ++i)
        {
            values[i].push_back(i < cells.size() ? NumberOf(cells[i]) : Json());
        }
    }
    Json series = Json::array();
    for (std::size_t i = 0; i < values.size(); ++i)
    {
        series.push_back({{"name", drawn.names[i]}, {"values", std::move(values[i])}});
    }
    return {{"line", drawn.bLine}, {"times", std::move(times)}, {"series", std::move(series)}};
}

// Ascending, with those that touch made one.
std::vector<ChartSpan> GapsOf(const ChartPanel& panel)
{
    std::vector<ChartSpan> spans;
    for (const ChartTable& table : panel.tables)
    {
        for (const std::vector<ChartSpan>& found : {FindMissing(table), FindFailed(table)})
        {
            spans.insert(spans.end(), found.begin(), found.end());
        }
    }
    std::sort(spans.begin(), spans.end());
    std::vector<ChartSpan> gaps;
    for (const ChartSpan& span : spans)
    {
        if (gaps.empty() || span.first > gaps.back().second)
        {
            gaps.push_back(span);
        }
        gaps.back().second = std::max(gaps.back().second, span.second);
    }
    return gaps;
}

Json AlertsJson(const ChartPanel& panel)
{
    Json alerts = Json::array();
    for (std::size_t i = 0; i < panel.alerts.size(); ++i)
    {
        const ChartAlert& alert = panel.alerts[i];
        alerts.push_back({{"time", alert.moment.nSecond},
                          {"number", i + 1},
                          {"row", AlertRowId(panel, i)},
                          {"text", ClockText(alert.moment.nSecond) + ", " + AlertText(alert)}});
    }
    return alerts;
}

// The scale reaches at least this far.
double TopOf(const ChartPanel& panel)
{
    return panel.bPercent ? 100 : std::max(1.0, panel.threshold.value_or(0) * 1.2);
}

Json PanelJson(const ChartPanel& panel)
{
    Json tables = Json::array();
    for (const ChartTable& table : panel.tables)
    {
        tables.push_back(TableJson(table));
    }
    return {{"id", panel.id},
            {"unit", panel.unit},
            {"top", NumberOf(TopOf(panel))},
            {"threshold", panel.threshold ? Json(*panel.threshold) : Json()},
            {"tables", std::move(tables)},
            {"gaps", GapsOf(panel)},
            {"alerts", AlertsJson(panel)}};
}

// Whole hours around everything that is drawn.
ChartSpan RangeOf(const ChartDay& day)
{
    constexpr int HOUR_SECONDS = 3600;
    ChartSpan range(DAY_SECONDS, 0);
    const auto include = [&range](int nSecond)
    {
        range.first = std::min(range.first, nSecond / HOUR_SECONDS * HOUR_SECONDS);
        range.second = std::max(range.second, nSecond / HOUR_SECONDS * HOUR_SECONDS + HOUR_SECONDS);
    };
    for (const ChartPanel& panel : day.panels)
    {
        for (const ChartTable& table : panel.tables)
        {
            include(table.rows.begin()->first);
            include(table.rows.rbegin()->first);
        }
        std::for_each(panel.alerts.begin(), panel.alerts.end(),
                      [&include](const ChartAlert& alert) { include(alert.moment.nSecond); });
    }
    return range;
}

// Nothing in a name can end the script element or begin a comment in it. Only texts have these characters in JSON.
std::string SafeInScript(const std::string& json)
{
    std::string safe;
    for (const char ch : json)
    {
        safe += ch == '<' ? "\\u003c" : ch == '>' ? "\\u003e" : ch == '&' ? "\\u0026" : std::string(1, ch);
    }
    return safe;
}

} // namespace

std::string AlertRowId(const ChartPanel& panel, std::size_t nAlert)
{
    return panel.id + "-alert-" + std::to_string(nAlert + 1);
}

std::string ChartJson(const ChartDay& day)
{
    const ChartSpan range = RangeOf(day);
    Json panels = Json::array();
    for (const ChartPanel& panel : day.panels)
    {
        panels.push_back(PanelJson(panel));
    }
    const Json page = {{"from", range.first}, {"to", range.second}, {"panels", std::move(panels)}};
    return SafeInScript(page.dump(-1, ' ', true, Json::error_handler_t::replace));
}

} // namespace varnex::host
