#include "ChartPage.h"

#include "ChartAssets.h"
#include "ChartJson.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace varnex::host
{

namespace
{

std::string Element(const char* pszTag, const std::string& text)
{
    return "<" + std::string(pszTag) + ">" + EscapeHtml(text) + "</" + pszTag + ">\n";
}

std::string AboutPage(const ChartDay& day, const std::vector<std::string>& fileNames)
{
    std::string files;
    for (const std::string& name : fileNames)
    {
        files += (files.empty() ? "" : ", ") + name;
    }
    std::string html = Element("p", "Day " + day.day + ", local time of the machine. Made from " + files + ".");
    html += day.bReports
                ? Element("p", "Points named (report) are averages over the minutes before them, as the report "
                               "gave them: 0 also stands for too few valid samples.")
                : "";
    for (const std::string& notice : day.notices)
    {
        html += "<p class=\"note\">" + EscapeHtml(notice) + "</p>\n";
    }
    return html;
}

// With as many decimals as the values have use for.
std::string Shown(double dValue)
{
    constexpr double BEYOND_ALL_SENSE = 1e15; // a number in a file may be any
    const long long nTenths = std::llround(std::min(dValue, BEYOND_ALL_SENSE) * 10);
    return std::to_string(nTenths / 10) + (nTenths % 10 == 0 ? "" : "." + std::to_string(nTenths % 10));
}

std::string SummaryRow(const ChartTable& table, std::size_t nSeries)
{
    const SeriesSummary summary = Summarize(table, nSeries);
    const bool bAny = summary.nSamples != 0;
    std::string html = "<tr><th scope=\"row\">" + EscapeHtml(table.names[nSeries]) + "</th>";
    for (const double dValue : {summary.dLeast, summary.dMean, summary.dMost})
    {
        html += "<td>" + (bAny ? Shown(dValue) : "–") + "</td>";
    }
    return html + "<td>" + std::to_string(summary.nSamples) + "</td><td>" + std::to_string(summary.nFailed) +
           "</td></tr>\n";
}

std::string SummaryTable(const ChartPanel& panel)
{
    std::string html = "<div class=\"scroll\"><table class=\"data summary\"><caption>" + EscapeHtml(panel.title) +
                       " in " + panel.unit +
                       "</caption><thead><tr><th scope=\"col\">Name</th><th scope=\"col\">Min</th>"
                       "<th scope=\"col\">Mean</th><th scope=\"col\">Max</th><th scope=\"col\">Samples</th>"
                       "<th scope=\"col\">Failed</th></tr></thead><tbody>\n";
    for (const ChartTable& table : panel.tables)
    {
        for (std::size_t i = 0; i < table.names.size(); ++i)
        {
            html += SummaryRow(table, i);
        }
    }
    return html + "</tbody></table></div>\n";
}

std::string MissingText(const ChartPanel& panel)
{
    constexpr std::size_t MOST_TOLD = 10;
    std::string spans;
    std::size_t nFound = 0;
    for (const ChartTable& table : panel.tables)
    {
        for (const ChartSpan& missing : FindMissing(table))
        {
            if (++nFound <= MOST_TOLD)
            {
                spans += (spans.empty() ? "" : ", ") + ClockText(missing.first) + " to " + ClockText(missing.second);
            }
        }
    }
    const std::string more = nFound > MOST_TOLD ? " and " + std::to_string(nFound - MOST_TOLD) + " times more" : "";
    return nFound == 0 ? "" : Element("p", "Nothing was recorded from " + spans + more + ".");
}

std::string AlertTable(const std::vector<ChartAlert>& alerts, const ChartPanel* pPanel)
{
    if (alerts.empty())
    {
        return "";
    }
    std::string html = "<div class=\"scroll\"><table class=\"data alerts\"><caption>Alerts</caption><thead><tr>"
                       "<th scope=\"col\">No.</th><th scope=\"col\" class=\"words\">Time</th>"
                       "<th scope=\"col\" class=\"words\">Alert</th></tr></thead><tbody>\n";
    for (std::size_t i = 0; i < alerts.size(); ++i)
    {
        const std::string id = pPanel != nullptr ? " id=\"" + AlertRowId(*pPanel, i) + "\"" : "";
        html += "<tr" + id + "><th scope=\"row\">" + std::to_string(i + 1) + "</th><td class=\"words\">" +
                ClockText(alerts[i].moment.nSecond) + "</td><td class=\"words\">" + EscapeHtml(AlertText(alerts[i])) +
                "</td></tr>\n";
    }
    return html + "</tbody></table></div>\n";
}

bool IsReduced(const ChartPanel& panel)
{
    for (const ChartTable& table : panel.tables)
    {
        if (DrawnTable(table).names.size() != table.names.size())
        {
            return true;
        }
    }
    return false;
}

std::string PanelSection(const ChartPanel& panel)
{
    std::string html = "<section aria-labelledby=\"" + panel.id + "-title\">\n<h2 id=\"" + panel.id + "-title\">" +
                       EscapeHtml(panel.title) + "</h2>\n" + Element("p", panel.about);
    html += panel.thresholdText.empty() ? "" : Element("p", panel.thresholdText);
    html += IsReduced(panel)
                ? Element("p", "Of so many series, their mean and the highest one are drawn; the table has "
                               "each.")
                : "";
    html += "<figure aria-labelledby=\"" + panel.id + "-title\">\n<div class=\"chart\" id=\"" + panel.id +
            "\"></div>\n<figcaption>Drag across the chart to look closer, double-click to go back; a click on a name "
            "hides it. <span class=\"swatch\"></span> Samples failed or are missing." +
            (panel.alerts.empty() ? "" : " Numbers mark alerts.") + "</figcaption>\n</figure>\n";
    return html + SummaryTable(panel) + MissingText(panel) + AlertTable(panel.alerts, &panel) + "</section>\n";
}

std::string PanelSections(const ChartDay& day)
{
    std::string html;
    for (const ChartPanel& panel : day.panels)
    {
        html += PanelSection(panel);
    }
    if (!day.otherAlerts.empty())
    {
        html += "<section>\n<h2>Alerts of what has no samples here</h2>\n" + AlertTable(day.otherAlerts, nullptr) +
                "</section>\n";
    }
    return html;
}

// In one pass: what is put in is never looked at again.
std::string FillIn(const std::string& page, const std::map<std::string, std::string>& parts)
{
    std::string filled;
    std::size_t nDone = 0;
    for (std::size_t nOpen = page.find("{{"); nOpen != std::string::npos; nOpen = page.find("{{", nDone))
    {
        const std::size_t nClose = page.find("}}", nOpen);
        filled += page.substr(nDone, nOpen - nDone) + parts.at(page.substr(nOpen + 2, nClose - nOpen - 2));
        nDone = nClose + 2;
    }
    return filled + page.substr(nDone);
}

} // namespace

std::string MakeChartPage(const ChartDay& day, const std::string& title, const std::vector<std::string>& fileNames)
{
    const std::string style = ChartAsset(CHART_LIBRARY_STYLE_RESOURCE) + "\n" + ChartAsset(CHART_STYLE_RESOURCE);
    const std::string library = ChartAsset(CHART_LIBRARY_RESOURCE);
    const std::string script = ChartAsset(CHART_SCRIPT_RESOURCE);
    const std::string policy = "default-src 'none'; script-src " + PolicyHash(library) + " " + PolicyHash(script) +
                               "; style-src " + PolicyHash(style) + "; base-uri 'none'; form-action 'none'";
    return FillIn(ChartAsset(CHART_PAGE_RESOURCE), {{"POLICY", policy},
                                                    {"TITLE", EscapeHtml(title)},
                                                    {"STYLE", style},
                                                    {"ABOUT", AboutPage(day, fileNames)},
                                                    {"PANELS", PanelSections(day)},
                                                    {"VERSION", VARNEX_VERSION},
                                                    {"LICENCE", EscapeHtml(ChartAsset(CHART_LIBRARY_LICENCE_RESOURCE))},
                                                    {"DATA", ChartJson(day)},
                                                    {"LIBRARY", library},
                                                    {"SCRIPT", script}});
}

} // namespace varnex::host
