#include "ChartPanels.h"

#include "AlertKinds.h"
#include "varnex/Varnex.h"

#include <algorithm>
#include <functional>
#include <set>

namespace varnex::host
{

namespace
{

constexpr double BYTES_OF_MEGABYTE = 1048576; // as the disk monitor counts
constexpr double BITS_OF_MEGABIT = 1000000;   // as link speeds are told

using Convert = std::function<double(std::size_t nColumn, std::int64_t nValue)>;

double AsItIs(std::size_t, std::int64_t nValue)
{
    return static_cast<double>(nValue);
}

double BytesToMegabytes(std::size_t, std::int64_t nValue)
{
    return static_cast<double>(nValue) / BYTES_OF_MEGABYTE;
}

// A network sample is what was moved within one second.
double BytesToMegabits(std::size_t, std::int64_t nValue)
{
    return static_cast<double>(nValue) * 8 / BITS_OF_MEGABIT;
}

// Makes the panels of one day.
class DayMaker
{
public:
    DayMaker(const ChartInput& input, const std::string& day, const std::vector<ChartThreshold>& thresholds)
        : m_input(input), m_thresholds(thresholds)
    {
        m_made.day = day;
    }
    ChartDay Make();

private:
    void AddProcessors();
    void AddMemory();
    void AddDisks();
    void AddNetwork();
    void AddNetworkTraces(ChartPanel& use, ChartPanel& throughput);
    void AddTraces(ChartPanel& panel, ChartResource resource, const Convert& convert);
    void AddRows(ChartTable& table, const TraceFile& trace, const Convert& convert);
    static void AddReportRow(ChartPanel& panel, const SavedReport& report, const std::vector<std::string>& names,
                             ChartTable::Cells cells);
    void AddPanel(ChartPanel panel, ChartResource resource, bool bThreshold);
    void ShareOutAlerts();
    std::vector<const SavedReport*> Reports() const;
    std::vector<int> LinkSpeeds(std::size_t nAdapters) const;

    const ChartInput& m_input;
    const std::vector<ChartThreshold>& m_thresholds;
    ChartDay m_made;
};

std::vector<const SavedReport*> DayMaker::Reports() const
{
    std::vector<const SavedReport*> reports;
    for (const SavedReport& report : m_input.reports)
    {
        if (report.moment.day == m_made.day)
        {
            reports.push_back(&report);
        }
    }
    return reports;
}

ChartTable& TableOf(ChartPanel& panel, const std::vector<std::string>& names, bool bLine)
{
    for (ChartTable& table : panel.tables)
    {
        if (table.bLine == bLine && table.names == names)
        {
            return table;
        }
    }
    return panel.tables.emplace_back(ChartTable{names, bLine, {}});
}

// A header has only so much room; the values beyond its names are there all the same.
std::vector<std::string> NamesOfAll(const TraceFile& trace)
{
    std::vector<std::string> names = trace.columns;
    for (const TraceRow& row : trace.rows)
    {
        while (names.size() < row.values.size())
        {
            names.push_back("Column " + std::to_string(names.size() + 1) + " (without a name)");
        }
    }
    return names;
}

void DayMaker::AddRows(ChartTable& table, const TraceFile& trace, const Convert& convert)
{
    int nLast = -1;
    bool bWentBack = false;
    for (const TraceRow& row : trace.rows)
    {
        if (row.moment.day != m_made.day)
        {
            continue;
        }
        if (row.moment.nSecond < nLast && !bWentBack)
        {
            bWentBack = true;
            m_made.notices.push_back("The clock went back from " + ClockText(nLast) + " to " +
                                     ClockText(row.moment.nSecond) +
                                     ": samples of the same time of day are drawn among each other.");
        }
        nLast = row.moment.nSecond;
        ChartTable::Cells cells;
        for (std::size_t i = 0; i < row.values.size(); ++i)
        {
            // -1 marks a sample that failed, and other negative numbers are a failed call's status.
            cells.push_back(row.values[i] < 0 ? std::nullopt : std::optional<double>(convert(i, row.values[i])));
        }
        table.rows[nLast] = std::move(cells);
    }
}

void DayMaker::AddTraces(ChartPanel& panel, ChartResource resource, const Convert& convert)
{
    for (const TraceFile& trace : m_input.traces)
    {
        if (trace.resource == resource)
        {
            AddRows(TableOf(panel, NamesOfAll(trace), true), trace, convert);
        }
    }
}

void DayMaker::AddReportRow(ChartPanel& panel, const SavedReport& report, const std::vector<std::string>& names,
                            ChartTable::Cells cells)
{
    if (!cells.empty())
    {
        std::vector<std::string> shown;
        shown.reserve(names.size());
        for (const std::string& name : names)
        {
            shown.push_back(name + " (report)");
        }
        TableOf(panel, shown, false).rows[report.moment.nSecond] = std::move(cells);
    }
}

bool HasRows(const ChartTable& table)
{
    return !table.rows.empty();
}

void DayMaker::AddPanel(ChartPanel panel, ChartResource resource, bool bThreshold)
{
    panel.tables.erase(std::remove_if(panel.tables.begin(), panel.tables.end(), std::not_fn(HasRows)),
                       panel.tables.end());
    if (panel.tables.empty())
    {
        return;
    }
    if (bThreshold)
    {
        const ChartThreshold& threshold = m_thresholds.at(static_cast<std::size_t>(resource));
        const int nMostDrawn = panel.bPercent ? 100 : 100000;
        const bool bDrawn = threshold.nValue >= 0 && threshold.nValue <= nMostDrawn;
        panel.threshold = bDrawn ? std::optional<int>(threshold.nValue) : std::nullopt;
        panel.thresholdText = "Alert threshold: " + std::to_string(threshold.nValue) + " " + panel.unit + " (" +
                              threshold.origin + ")" + (bDrawn ? "." : "; it lies off the scale and is not drawn.");
    }
    m_made.panels.push_back(std::move(panel));
}

void DayMaker::AddProcessors()
{
    ChartPanel panel{
        "processors", "Processors", "Percent of each processor's time. An alert judges the mean of all processors.",
        "%",          true,         {},
        {},           {},           {}};
    AddTraces(panel, ChartResource::Processors, AsItIs);
    for (const SavedReport* pReport : Reports())
    {
        std::vector<std::string> names;
        for (std::size_t i = 1; i <= pReport->processors.size(); ++i)
        {
            names.push_back("CPU" + std::to_string(i)); // as a trace file counts them
        }
        AddReportRow(panel, *pReport, names, {pReport->processors.begin(), pReport->processors.end()});
    }
    AddPanel(std::move(panel), ChartResource::Processors, true);
}

void DayMaker::AddMemory()
{
    ChartPanel panel{"memory", "Memory", "Percent in use of physical memory and of the paging file.", "%", true, {}, {},
                     {},       {}};
    AddTraces(panel, ChartResource::Memory, AsItIs);
    for (const SavedReport* pReport : Reports())
    {
        AddReportRow(panel, *pReport, {"Physical Mem", "Page File"}, {pReport->memory.begin(), pReport->memory.end()});
    }
    AddPanel(std::move(panel), ChartResource::Memory, true);
}

void DayMaker::AddDisks()
{
    ChartPanel panel{
        "disks",
        "Disks",
        "Throughput of each disk in megabytes (1048576 bytes) a second. All disks share one alert state: a "
        "busy one may alert again and again, or not at all.",
        "MB/s",
        false,
        {},
        {},
        {},
        {}};
    AddTraces(panel, ChartResource::Disks, BytesToMegabytes);
    for (const SavedReport* pReport : Reports())
    {
        std::vector<std::string> names;
        ChartTable::Cells cells;
        for (std::size_t i = 0; i < pReport->disks.size(); ++i)
        {
            names.push_back("Disk" + pReport->diskNames[i]);
            cells.emplace_back(BytesToMegabytes(i, pReport->disks[i]));
        }
        AddReportRow(panel, *pReport, names, std::move(cells));
    }
    AddPanel(std::move(panel), ChartResource::Disks, true);
}

// The speeds of as many adapters out of a report, which lists them in the trace file's order; empty when there is no
// such report or one of the speeds is unknown.
std::vector<int> DayMaker::LinkSpeeds(std::size_t nAdapters) const
{
    for (const SavedReport* pReport : Reports())
    {
        std::vector<int> speeds;
        for (const ReportedAdapter& adapter : pReport->adapters)
        {
            speeds.push_back(adapter.nLinkSpeed);
        }
        if (speeds.size() == nAdapters && std::all_of(speeds.begin(), speeds.end(), [](int n) { return n > 0; }))
        {
            return speeds;
        }
    }
    return {};
}

// A trace becomes a percentage where the link speeds are known.
void DayMaker::AddNetworkTraces(ChartPanel& use, ChartPanel& throughput)
{
    for (const TraceFile& trace : m_input.traces)
    {
        if (trace.resource != ChartResource::Network)
        {
            continue;
        }
        const std::vector<std::string> names = NamesOfAll(trace);
        const std::vector<int> speeds = LinkSpeeds(names.size());
        const Convert percent = [&speeds](std::size_t nColumn, std::int64_t nValue)
        { return std::min(BytesToMegabits(nColumn, nValue) / speeds[nColumn] * 100, 100.0); };
        AddRows(TableOf(speeds.empty() ? throughput : use, names, true), trace,
                speeds.empty() ? BytesToMegabits : percent);
    }
}

void DayMaker::AddNetwork()
{
    ChartPanel use{
        "network",
        "Network",
        "Percent of each adapter's link speed. All adapters share one alert state: a busy one may alert again "
        "and again, or not at all.",
        "%",
        true,
        {},
        {},
        {},
        {}};
    ChartPanel throughput{"network-throughput",
                          "Network throughput",
                          "What each adapter sent and received, in megabits a second. No threshold is drawn: it is a "
                          "percentage of the link speed, which only a saved report of the same day and adapters tells.",
                          "Mbit/s",
                          false,
                          {},
                          {},
                          {},
                          {}};
    AddNetworkTraces(use, throughput);
    for (const SavedReport* pReport : Reports())
    {
        std::vector<std::string> names;
        ChartTable::Cells cells;
        for (const ReportedAdapter& adapter : pReport->adapters)
        {
            names.push_back(adapter.name);
            cells.emplace_back(adapter.nPercent);
        }
        AddReportRow(use, *pReport, names, std::move(cells));
    }
    AddPanel(std::move(use), ChartResource::Network, true);
    AddPanel(std::move(throughput), ChartResource::Network, false);
}

std::string PanelOf(unsigned nAlertType)
{
    switch (nAlertType)
    {
    case VARNEX_ALERT_CPU:
        return "processors";
    case VARNEX_ALERT_MEMORY:
    case VARNEX_ALERT_PAGING_FILE:
        return "memory";
    case VARNEX_ALERT_DISK:
        return "disks";
    case VARNEX_ALERT_NETWORK:
        return "network"; // and its throughput, where that is all there is
    default:
        return "";
    }
}

void DayMaker::ShareOutAlerts()
{
    std::size_t nOtherDays = 0;
    for (const ChartAlert& alert : m_input.alerts)
    {
        if (alert.moment.day != m_made.day)
        {
            ++nOtherDays;
            continue;
        }
        const std::string id = PanelOf(alert.nType);
        const auto panel = std::find_if(m_made.panels.begin(), m_made.panels.end(),
                                        [&id](const ChartPanel& candidate)
                                        { return !id.empty() && candidate.id.substr(0, id.size()) == id; });
        (panel == m_made.panels.end() ? m_made.otherAlerts : panel->alerts).push_back(alert);
    }
    if (nOtherDays != 0)
    {
        m_made.notices.push_back(CountText(nOtherDays, "alert") + " of other days left out.");
    }
}

ChartDay DayMaker::Make()
{
    AddProcessors();
    AddMemory();
    AddDisks();
    AddNetwork();
    ShareOutAlerts();
    m_made.bReports = !Reports().empty();
    return std::move(m_made);
}

} // namespace

std::vector<std::string> DaysOf(const ChartInput& input)
{
    std::set<std::string> days;
    for (const TraceFile& trace : input.traces)
    {
        for (const TraceRow& row : trace.rows)
        {
            days.insert(row.moment.day);
        }
    }
    for (const SavedReport& report : input.reports)
    {
        days.insert(report.moment.day);
    }
    return {days.begin(), days.end()};
}

ChartDay MakeChartDay(const ChartInput& input, const std::string& day, const std::vector<ChartThreshold>& thresholds)
{
    return DayMaker(input, day, thresholds).Make();
}

} // namespace varnex::host
