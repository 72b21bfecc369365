#include "ChartPage.h"
#include "Commands.h"
#include "ConsoleStream.h"
#include "HostError.h"
#include "ModuleFiles.h"
#include "SlowNotice.h"
#include "WholeFile.h"

#include <algorithm>
#include <memory>

namespace varnex::host
{

namespace
{

const char* const CHART_EXIT_CODES = "Exit codes:\n"
                                     "  0  the page is there\n"
                                     "  1  there is no page, or the one of before; the reason is on standard error\n"
                                     "  2  wrong usage\n";

struct ChartOptions
{
    std::vector<std::string> files;
    std::string output; // empty: a name with the day, in the current folder
    std::string config;
    std::string alerts;
    std::string title;
    std::string day;
};

std::filesystem::path PathOf(const std::string& name)
{
    return FromUtf8(name);
}

std::string FileNameOf(const std::string& name)
{
    return ToUtf8(Printable(PathOf(name).filename().wstring()));
}

// What was left out of a trace file.
void NoteTrace(const TraceFile& trace, const std::string& name, std::vector<std::string>& notices)
{
    if (trace.rows.empty())
    {
        notices.push_back(name + " has no samples yet.");
    }
    if (trace.nUnreadable != 0)
    {
        notices.push_back(CountText(trace.nUnreadable, "line") + " of " + name +
                          " that no sample can be read from left "
                          "out.");
    }
    if (trace.bTorn)
    {
        notices.push_back("The last line of " + name + " is torn and was left out.");
    }
}

void AddFile(const std::string& file, ChartInput& input, std::vector<std::string>& notices)
{
    const std::string name = FileNameOf(file);
    const std::string text = ReadTextFile(PathOf(file));
    if (text.empty())
    {
        throw HostError(FromUtf8(name) + L" is empty: the module has not written its header yet.");
    }
    if (std::optional<TraceFile> trace = ReadTraceFile(text, name))
    {
        NoteTrace(*trace, name, notices);
        input.traces.push_back(*std::move(trace));
        return;
    }
    if (std::optional<SavedReport> report = ReadSavedReport(text, name))
    {
        input.reports.push_back(*std::move(report));
        return;
    }
    throw HostError(FromUtf8(name) + L" is neither one of the module's trace files nor a saved report.");
}

ChartInput ReadInput(const ChartOptions& options, std::vector<std::string>& notices)
{
    ChartInput input;
    for (const std::string& file : options.files)
    {
        AddFile(file, input, notices);
    }
    if (!options.alerts.empty())
    {
        const std::string name = FileNameOf(options.alerts);
        ChartAlerts found = ReadAlertFile(ReadTextFile(PathOf(options.alerts)), name);
        if (found.nUnreadable != 0)
        {
            notices.push_back(CountText(found.nUnreadable, "entry") + " of " + name + " that is no alert left out.");
        }
        input.alerts = std::move(found.alerts);
    }
    return input;
}

std::string ChooseDay(const ChartInput& input, const std::string& wanted)
{
    const std::vector<std::string> days = DaysOf(input);
    if (days.empty())
    {
        throw HostError(L"There are no samples in these files yet; a chart needs some.");
    }
    if (wanted.empty() && days.size() > 1)
    {
        throw HostError(L"The files hold " + std::to_wstring(days.size()) + L" days, " + FromUtf8(days.front()) +
                        L" to " + FromUtf8(days.back()) + L", and a chart shows one: choose it, as in --day " +
                        FromUtf8(days.back()) + L".");
    }
    if (!wanted.empty() && std::find(days.begin(), days.end(), wanted) == days.end())
    {
        throw HostError(L"The files hold nothing of " + FromUtf8(wanted) + L"; they begin on " +
                        FromUtf8(days.front()) + L" and end on " + FromUtf8(days.back()) + L".");
    }
    return wanted.empty() ? days.front() : wanted;
}

// A page is never written over what it is made from.
void RefuseInputAsOutput(const ChartOptions& options, const std::filesystem::path& output)
{
    std::vector<std::string> sources = options.files;
    sources.insert(sources.end(), {options.config, options.alerts});
    for (const std::string& source : sources)
    {
        std::error_code error;
        if (!source.empty() && std::filesystem::equivalent(PathOf(source), output, error))
        {
            throw HostError(L"The page cannot go to " + output.wstring() + L": it is one of the files to be read.");
        }
    }
}

std::vector<std::string> FileNamesOf(const ChartOptions& options)
{
    std::vector<std::string> names;
    for (const std::string& file : options.files)
    {
        names.push_back(FileNameOf(file));
    }
    return names;
}

ExitCode RunChart(const ChartOptions& options)
{
    const SlowNotice notice(L"Making the chart");
    std::vector<std::string> notices;
    const ChartInput input = ReadInput(options, notices);
    ChartDay day = MakeChartDay(input, ChooseDay(input, options.day), ReadThresholds(options.config));
    day.notices.insert(day.notices.begin(), notices.begin(), notices.end());
    const std::filesystem::path output =
        PathOf(options.output.empty() ? "varnex-chart-" + day.day + ".html" : options.output);
    RefuseInputAsOutput(options, output);
    const std::string title = options.title.empty() ? "Utilization on " + day.day : options.title;
    ReplaceWholeFile(output, MakeChartPage(day, title, FileNamesOf(options)));
    for (const std::string& sentence : day.notices)
    {
        StandardError().TryWrite(FromUtf8(sentence) + L"\n");
    }
    StandardOutput().Write(L"Wrote " + output.wstring() + L".\n");
    return ExitCode::Done;
}

// Whether the parser takes the text as a day; a sentence when it does not.
std::string CheckDay(const std::string& text)
{
    return IsDay(text) ? "" : "'" + text + "' is not a day such as 2026-01-31";
}

} // namespace

void AddChartCommand(CLI::App& app, CommandChoice& choice)
{
    const auto options = std::make_shared<ChartOptions>();
    CLI::App* pChart = app.add_subcommand(
        "chart", "Turn trace files and saved reports into one HTML page with a day's charts, which opens offline");
    pChart->footer(CHART_EXIT_CODES);
    pChart
        ->add_option("FILE", options->files,
                     "CPUUtil.log, MemoryUtil.log, DiskUtil.log, NetworkUtil.log, or what report --xml printed; "
                     "recognised by their content")
        ->required()
        ->type_name("");
    pChart
        ->add_option("-o,--output", options->output, "The page (default: varnex-chart-DAY.html); replaced if it exists")
        ->type_name("OUT.html");
    pChart->add_option("--config", options->config, "The KpmCfg.xml whose thresholds are drawn (default: the defaults)")
        ->type_name("KpmCfg.xml");
    pChart->add_option("--alerts", options->alerts, "Alerts to mark: LocalAlt.dat, or what alerts --json printed")
        ->type_name("FILE");
    pChart->add_option("--day", options->day, "The day to draw, where the files hold several")
        ->check(CLI::Validator(CheckDay, ""))
        ->type_name("YYYY-MM-DD");
    pChart->add_option("--title", options->title, "The page's title (default: names the day)")->type_name("T");
    pChart->callback([&choice, options] { choice.run = [options] { return RunChart(*options); }; });
}

} // namespace varnex::host
