#include "Commands.h"
#include "ConfigText.h"
#include "ConsoleStream.h"
#include "HostError.h"
#include "ModuleFiles.h"
#include "SlowNotice.h"
#include "common/Com.h"

#include <memory>

namespace varnex::host
{

namespace
{

const char* const CHECK_EXIT_CODES = "Exit codes:\n"
                                     "  0  every value does what its writer meant\n"
                                     "  1  something will not do what its writer meant, or could not be checked\n"
                                     "  2  wrong usage\n";

struct CheckOptions
{
    std::string file;
    bool bJson = false;
};

std::wstring FullPath(const std::string& file)
{
    std::error_code error;
    const std::filesystem::path full = std::filesystem::absolute(FromUtf8(file), error);
    if (error || !FileExists(full))
    {
        throw HostError(L"There is no file " + FromUtf8(file) + L".");
    }
    return full.lexically_normal().wstring();
}

ConfigFinding FindingOf(const XmlFault& fault)
{
    const std::wstring reason = fault.reason.substr(0, fault.reason.find_last_not_of(L'.') + 1);
    return {true, fault.nLine,
            L"The file is no XML: " + reason +
                (fault.nColumn != 0 ? L" (column " + std::to_wstring(fault.nColumn) + L")" : L"") +
                L". The module cannot load it: all values are defaults, and no daily limit of alerts applies."};
}

ConfigReport Check(const std::wstring& path)
{
    const SlowNotice notice(L"Waiting for the file, which another process may hold");
    ConfigReport report;
    report.file = path;
    report.tree = ReadConfigTree(path);
    if (!report.tree.fault)
    {
        if (std::optional<ConfigReading> reading = ReadConfig(path, report.tree.root.name))
        {
            report.reading = *std::move(reading);
            report.findings = AdviseOn(report.tree, report.reading);
            return report;
        }
        report.tree.fault = XmlFault{L"the system's document object does not take it", 0, 0};
    }
    report.findings.push_back(FindingOf(*report.tree.fault));
    return report;
}

ExitCode RunCheckConfig(const CheckOptions& options)
{
    const ThreadApartment apartment(S_OK); // ends with the process
    if (!apartment.Usable())
    {
        throw HostError(L"COM is not available to this process: " +
                        SystemErrorText(static_cast<DWORD>(apartment.Result())));
    }
    const ConfigReport report = Check(FullPath(options.file));
    StandardOutput().Write(options.bJson ? ConfigReportAsJson(report) : ConfigReportAsTable(report));
    return report.HasProblems() ? ExitCode::Failed : ExitCode::Done;
}

} // namespace

void AddCheckConfigCommand(CLI::App& app, CommandChoice& choice)
{
    const auto options = std::make_shared<CheckOptions>();
    CLI::App* pCheck = app.add_subcommand(
        "check-config", "Show what the module makes of a KpmCfg.xml, and point at what will not work as meant");
    pCheck->footer(CHECK_EXIT_CODES);
    pCheck->add_option("FILE", options->file, "The configuration file; it is read only")->required()->type_name("");
    pCheck->add_flag("--json", options->bJson, "As a JSON object");
    pCheck->callback([&choice, options] { choice.run = [options] { return RunCheckConfig(*options); }; });
}

} // namespace varnex::host
