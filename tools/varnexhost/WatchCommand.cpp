#include "AlertFetcher.h"
#include "AlertKinds.h"
#include "AlertLines.h"
#include "Commands.h"
#include "ConsoleStatus.h"
#include "HostError.h"
#include "LoadProcess.h"
#include "ModuleFiles.h"
#include "ModuleLibrary.h"
#include "ModuleThreads.h"
#include "MonitorRun.h"
#include "ReportClient.h"
#include "ReportText.h"
#include "ReportingRun.h"
#include "StopSignal.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>

namespace varnex::host
{

namespace
{

constexpr std::uint64_t FETCH_INTERVAL_MS = 1000;
constexpr unsigned REPORT_TIMEOUT_SECONDS = 5; // the answer takes milliseconds, and Ctrl-C waits for it
constexpr unsigned REPORTING_THREADS = 5;      // four samplers and the one that answers requests

struct WatchOptions
{
    std::string moduleFolder;
    std::vector<std::string> monitors = {"cpu"};
    unsigned nSeconds = 0; // 0: until Ctrl-C
    bool bBurn = false;
    bool bReport = false;
    unsigned nReportEverySeconds = 0; // 0: no report is printed
    ReportRequest report;
};

void Warn(const std::wstring& text)
{
    StandardError().TryWrite(L"varnexhost: warning: " + text + L"\n");
}

// One watch from the loading of the module to its unloading. The members' order is the order of their ends: the load
// process and the monitors end before the module goes.
class Watch
{
public:
    explicit Watch(const WatchOptions& options);
    ExitCode Run();

private:
    void WarnOfMissingFiles() const;
    void WatchUntilEnd();
    void PrintAlerts();
    void PrintReportWhenDue();
    void PrintReport();
    void ShowState();
    void WarnOfEndedMonitors(unsigned nRunning);
    ExitCode Finish();
    void PrintSummary();
    std::uint64_t Elapsed() const noexcept { return GetTickCount64() - m_nBegin; }

    const WatchOptions& m_options;
    const std::vector<unsigned> m_selectors;
    const ModuleFiles m_files;
    StopSignal m_stop;
    ModuleLibrary m_library;
    AlertFetcher m_fetcher;
    MonitorRun m_monitors;
    std::optional<ReportingRun> m_reporting;
    std::optional<LoadProcess> m_load;
    ConsoleStatus m_status;
    std::map<unsigned, unsigned> m_countByType;
    unsigned m_nFetched = 0;
    unsigned m_nRunning = 0;
    std::uint64_t m_nBegin = 0;
    std::uint64_t m_nReports = 0; // printed, or tried
};

Watch::Watch(const WatchOptions& options)
    : m_options(options), m_selectors(MonitorSelectors(options.monitors)),
      m_files(LocateModule(FromUtf8(options.moduleFolder))), m_library(m_files), m_fetcher(m_library),
      m_monitors(m_library, m_stop), m_status(StandardOutput())
{
}

ExitCode Watch::Run()
{
    WarnOfMissingFiles();
    if (m_options.bBurn)
    {
        m_load.emplace();
    }
    m_monitors.Start(m_selectors);
    m_nRunning = MonitorCount(m_selectors);
    if (m_options.bReport)
    {
        m_reporting.emplace(m_library);
        m_nRunning += REPORTING_THREADS;
    }
    m_nBegin = GetTickCount64();
    ShowState(); // before the first fetch: an output that cannot be written costs no alert
    WatchUntilEnd();
    return Finish();
}

void Watch::WarnOfMissingFiles() const
{
    if (!FileExists(m_files.config))
    {
        Warn(L"there is no " + m_files.config.wstring() +
             L". The monitors use their defaults, and no daily limit of alerts applies.");
    }
    if (!FileExists(m_files.log)) // the module writes to it while it is loaded
    {
        Warn(L"the module writes no log: " + m_files.log.wstring() +
             L" could not be made. See whether its folder is there and this account may write to it.");
    }
}

void Watch::WatchUntilEnd()
{
    const std::uint64_t nLimit = m_options.nSeconds == 0 ? UINT64_MAX : m_options.nSeconds * 1000ULL;
    for (;;)
    {
        PrintAlerts();
        PrintReportWhenDue();
        ShowState();
        const std::uint64_t nElapsed = Elapsed();
        if (nElapsed >= nLimit || m_stop.WaitFor(static_cast<DWORD>(std::min(FETCH_INTERVAL_MS, nLimit - nElapsed))))
        {
            return;
        }
    }
}

void Watch::PrintAlerts()
{
    // Each batch is printed before the next is taken: should the output fail, the rest is still in the store.
    do
    {
        for (const FetchedAlert& alert : m_fetcher.Fetch())
        {
            m_status.PrintLine(AlertLine(alert));
            ++m_nFetched;
            ++m_countByType[alert.nType];
        }
    } while (m_fetcher.MayHaveMore());
}

void Watch::PrintReportWhenDue()
{
    const std::uint64_t nEvery = m_options.nReportEverySeconds * 1000ULL;
    if (nEvery != 0 && Elapsed() / nEvery > m_nReports)
    {
        m_nReports = Elapsed() / nEvery;
        PrintReport();
    }
}

// By the named objects, as another process would ask.
void Watch::PrintReport()
{
    try
    {
        const std::wstring table = ReportAsTable(AskForReport(m_options.report));
        m_status.PrintLine(table.substr(0, table.find_last_not_of(L'\n') + 1));
    }
    catch (const HostError& error)
    {
        m_status.PrintLine(L"warning: " + FromUtf8(error.what()));
    }
}

void Watch::ShowState()
{
    const ModuleThreads threads = FindModuleThreads(m_library.Handle());
    if (threads.bKnown)
    {
        WarnOfEndedMonitors(threads.nMonitors);
    }
    m_status.Show(DurationText(Elapsed()) + L" | watching " + SelectorNames(m_selectors) +
                  (m_load && m_load->Runs() ? L", load on" : L"") + L" | alerts fetched: " +
                  std::to_wstring(m_nFetched) + L" | Ctrl-C ends");
}

void Watch::WarnOfEndedMonitors(unsigned nRunning)
{
    if (nRunning < m_nRunning)
    {
        m_status.PrintLine(L"warning: " + std::to_wstring(nRunning) + L" of the module's " +
                           std::to_wstring(m_nRunning) + L" threads run. The log tells more: " + m_files.log.wstring());
    }
    m_nRunning = std::min(m_nRunning, nRunning);
}

ExitCode Watch::Finish()
{
    m_load.reset();
    const std::uint64_t nWatched = Elapsed();
    m_status.Clear();
    m_status.PrintLine(L"Watched " + SelectorNames(m_selectors) + L" for " + DurationText(nWatched) + L".");
    m_status.PrintLine(L"Waiting for the monitors to end; Ctrl-C cuts the wait short.");
    m_reporting.reset(); // its threads count as the module's
    const bool bEnded = m_monitors.StopAndWait();
    PrintAlerts(); // what was raised since the last look
    PrintSummary();
    if (!bEnded)
    {
        Warn(L"a thread of the module has not ended; this process ends without unloading it.");
        return ExitCode::Failed;
    }
    const bool bUnloaded = m_library.Unload();
    m_status.PrintLine(bUnloaded ? L"The monitors have ended and the module is unloaded."
                                 : L"The monitors have ended; something else keeps the module loaded.");
    return ExitCode::Done;
}

void Watch::PrintSummary()
{
    std::wstring line = L"Alerts fetched: " + std::to_wstring(m_nFetched);
    for (const auto& [nType, nCount] : m_countByType)
    {
        line += L", " + AlertKindName(nType) + L" " + std::to_wstring(nCount);
    }
    m_status.PrintLine(line);
}

void AddReportOptions(CLI::App& watch, CLI::Option& report, WatchOptions& options)
{
    options.report.nTimeoutSeconds = REPORT_TIMEOUT_SECONDS;
    CLI::Option* pEvery =
        watch.add_option("--report-every", options.nReportEverySeconds, "Print the report here, every S seconds")
            ->check(CLI::Range(1, 86400).description(""))
            ->type_name("S")
            ->needs(&report);
    watch.add_option("--report-span", options.report.nSpan, "Minutes that its averages cover (default: 60)")
        ->check(CLI::Range(1, 1440).description(""))
        ->type_name("N")
        ->needs(pEvery);
    watch
        .add_option("--report-min", options.report.nMinimum,
                    "Valid samples that an average needs, else it is 0 (default: 1)")
        ->check(CLI::Range(1, 1440).description(""))
        ->type_name("M")
        ->needs(pEvery);
}

ExitCode RunWatch(const WatchOptions& options)
{
    Watch watch(options);
    return watch.Run();
}

} // namespace

void AddWatchCommand(CLI::App& app, CommandChoice& choice)
{
    const auto options = std::make_shared<WatchOptions>();
    CLI::App* pWatch = app.add_subcommand(
        "watch", "Start monitors and show each alert as it comes. A shown alert is gone from the module's store");
    pWatch->add_option("--module-dir", options->moduleFolder, "Folder of Varnex.dll (default: that of varnexhost.exe)")
        ->type_name("DIR");
    pWatch
        ->add_option("--alerts", options->monitors,
                     "cpu, memory, disk, network or all; several by commas (default: cpu)")
        ->delimiter(',')
        ->check(CLI::IsMember(MonitorNames(), CLI::ignore_case).description(""))
        ->type_name("LIST");
    pWatch->add_option("--seconds", options->nSeconds, "End after so many seconds (default: at Ctrl-C)")
        ->check(CLI::Range(1, 31536000).description(""))
        ->type_name("N");
    pWatch->add_flag("--burn", options->bBurn, "Keep every processor busy meanwhile, in a process of its own");
    CLI::Option* pReport =
        pWatch->add_flag("--report", options->bReport,
                         "Record utilization too, so that varnexhost report in another console has an answer");
    AddReportOptions(*pWatch, *pReport, *options);
    pWatch->callback([&choice, options] { choice.run = [options] { return RunWatch(*options); }; });
}

} // namespace varnex::host
