#include "AlertFetcher.h"
#include "AlertKinds.h"
#include "AlertLines.h"
#include "Commands.h"
#include "ConsoleStream.h"
#include "HostError.h"

#include <memory>
#include <nlohmann/json.hpp>

namespace varnex::host
{

namespace
{

struct AlertsOptions
{
    std::string moduleFolder;
    int nMost = 0; // 0: all that are stored
    bool bJson = false;
};

// Writes the alerts as they come. Begin writes something in every form: an output that cannot be written is found out
// before an alert is taken from the store.
class AlertPrinter
{
public:
    AlertPrinter(const ModuleFiles& files, bool bJson) : m_files(files), m_bJson(bJson) {}

    void Begin() const;
    void Print(const FetchedAlert& alert);
    // bWhole: nothing was held back by a failure.
    void End(bool bWhole) const;

private:
    const ModuleFiles& m_files;
    const bool m_bJson;
    unsigned m_nPrinted = 0;
};

std::wstring AlertAsJson(const FetchedAlert& alert)
{
    nlohmann::ordered_json object;
    object["type"] = alert.nType;
    object["kind"] = ToUtf8(AlertKindName(alert.nType));
    object["value"] = alert.nValue;
    object["threshold"] = alert.nThreshold;
    object["unit"] = ToUtf8(AlertUnit(alert.nType));
    object["text"] = ToUtf8(alert.text);
    return FromUtf8(object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

void AlertPrinter::Begin() const
{
    StandardOutput().Write(m_bJson ? L"[" : L"Alerts from " + m_files.store.wstring() + L":\n");
}

void AlertPrinter::Print(const FetchedAlert& alert)
{
    StandardOutput().Write(m_bJson ? (m_nPrinted == 0 ? L"\n  " : L",\n  ") + AlertAsJson(alert)
                                   : AlertLine(alert) + L"\n");
    ++m_nPrinted;
}

void AlertPrinter::End(bool bWhole) const
{
    if (m_bJson)
    {
        StandardOutput().Write(m_nPrinted == 0 ? L"]\n" : L"\n]\n");
    }
    else if (m_nPrinted != 0)
    {
        StandardOutput().Write(L"Fetched: " + std::to_wstring(m_nPrinted) + L". They are gone from the store.\n");
    }
    else if (bWhole)
    {
        StandardOutput().Write(L"None is stored.\n");
    }
}

// A fetch says nothing about its failures, but one that brings nothing has dropped whatever was in the file.
bool IsStoreEmpty(const ModuleFiles& files)
{
    std::error_code error;
    const std::uintmax_t cbStore = std::filesystem::file_size(files.store, error);
    return static_cast<bool>(error) || cbStore == 0;
}

[[noreturn]] void ThrowNotTaken(const ModuleFiles& files)
{
    throw HostError(L"The module could not take the alerts from " + files.store.wstring() +
                    L"; they are still there. See whether this account may write to that folder, and what the log "
                    L"says: " +
                    files.log.wstring());
}

ExitCode RunAlerts(const AlertsOptions& options)
{
    const ModuleFiles files = LocateModule(FromUtf8(options.moduleFolder));
    const ModuleLibrary library(files);
    AlertFetcher fetcher(library, options.nMost == 0 ? AlertFetcher::USUAL_BATCH : options.nMost);
    AlertPrinter printer(files, options.bJson);
    printer.Begin();
    do
    {
        for (const FetchedAlert& alert : fetcher.Fetch())
        {
            printer.Print(alert);
        }
    } while (options.nMost == 0 && fetcher.MayHaveMore());
    const bool bWhole = !fetcher.CameBackEmpty() || IsStoreEmpty(files);
    printer.End(bWhole);
    if (!bWhole)
    {
        ThrowNotTaken(files);
    }
    return ExitCode::Done;
}

} // namespace

void AddAlertsCommand(CLI::App& app, CommandChoice& choice)
{
    const auto options = std::make_shared<AlertsOptions>();
    CLI::App* pAlerts = app.add_subcommand(
        "alerts", "Fetch the stored alerts, oldest first, and print them. A printed alert is gone from the store");
    pAlerts->add_option("--module-dir", options->moduleFolder, "Folder of Varnex.dll (default: that of varnexhost.exe)")
        ->type_name("DIR");
    pAlerts
        ->add_option("--max", options->nMost,
                     "Ask for so many; the module may hand out one more (default: all that are stored)")
        ->check(CLI::Range(1, 10000).description(""))
        ->type_name("N");
    pAlerts->add_flag("--json", options->bJson, "As a JSON array");
    pAlerts->callback([&choice, options] { choice.run = [options] { return RunAlerts(*options); }; });
}

} // namespace varnex::host
