#include "Commands.h"
#include "ConsoleStream.h"
#include "PrometheusText.h"
#include "ReportClient.h"
#include "ReportText.h"
#include "SlowNotice.h"
#include "Text.h"
#include "WholeFile.h"

#include <ctime>
#include <memory>

namespace varnex::host
{

namespace
{

struct ReportOptions
{
    ReportRequest request;
    bool bXml = false;
    bool bJson = false;
    std::string exposition; // empty: the report is printed
};

std::wstring AskPatiently(const ReportRequest& request)
{
    const SlowNotice notice(L"Waiting for the answer");
    return AskForReport(request);
}

// Nothing is printed: a scheduled task has nobody to read it.
void WriteExposition(const std::wstring& xml, const ReportOptions& options)
{
    const ReportCircumstances circumstances{std::time(nullptr), options.request.nSpan * 60};
    ReplaceWholeFile(FromUtf8(options.exposition), ReportAsPrometheus(xml, circumstances));
}

ExitCode RunReport(const ReportOptions& options)
{
    const std::wstring xml = AskPatiently(options.request);
    if (!options.exposition.empty())
    {
        WriteExposition(xml, options);
        return ExitCode::Done;
    }
    StandardOutput().Write(options.bXml ? xml + L"\n" : options.bJson ? ReportAsJson(xml) : ReportAsTable(xml));
    return ExitCode::Done;
}

// An empty name would be taken for none.
CLI::Validator CheckFileName()
{
    return {[](const std::string& name) { return name.empty() ? "a file's name is wanted" : ""; }, ""};
}

} // namespace

void AddReportCommand(CLI::App& app, CommandChoice& choice)
{
    const auto options = std::make_shared<ReportOptions>();
    CLI::App* pReport =
        app.add_subcommand("report", "Ask the process that has the module loaded for its utilization report");
    pReport->add_option("--span", options->request.nSpan, "Minutes that each average covers (default: 60)")
        ->check(CLI::Range(1, 1440).description(""))
        ->type_name("N");
    pReport
        ->add_option("--min", options->request.nMinimum,
                     "Valid samples that an average needs, else it is 0 (default: 1)")
        ->check(CLI::Range(1, 1440).description(""))
        ->type_name("M");
    pReport->add_option("--timeout", options->request.nTimeoutSeconds, "Seconds to wait for the answer (default: 30)")
        ->check(CLI::Range(1, 3600).description(""))
        ->type_name("S");
    CLI::Option* pXml = pReport->add_flag("--xml", options->bXml, "The report as the module wrote it");
    CLI::Option* pJson = pReport->add_flag("--json", options->bJson, "The report as JSON")->excludes(pXml);
    pReport
        ->add_option("--prometheus", options->exposition,
                     "Write the report as Prometheus metrics to FILE, for a textfile collector; the file is replaced "
                     "whole, and left as it is when no report comes")
        ->check(CheckFileName())
        ->excludes(pXml)
        ->excludes(pJson)
        ->type_name("FILE");
    pReport->callback([&choice, options] { choice.run = [options] { return RunReport(*options); }; });
}

} // namespace varnex::host
