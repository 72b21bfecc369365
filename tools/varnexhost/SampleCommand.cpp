#include "Commands.h"
#include "ConsoleStream.h"
#include "ModuleLog.h"
#include "SampleText.h"
#include "SlowNotice.h"
#include "common/Com.h"

#include <algorithm>
#include <memory>

namespace varnex::host
{

namespace
{

const char* const SAMPLE_EXIT_CODES = "Exit codes:\n"
                                      "  0  all four sources were read\n"
                                      "  1  at least one could not be read; the output says why and what to do\n"
                                      "  2  wrong usage\n";

SourceSample SampleNetworkByCom()
{
    const ThreadApartment apartment(S_OK); // ends with the process
    if (!apartment.Usable())
    {
        return {L"network", {}, {AdapterListFault(L"COM is not available to this process", apartment.Result())}, {}};
    }
    return SampleNetwork();
}

std::vector<SourceSample> SampleAll()
{
    const SlowNotice notice(L"Reading the sources, of which an idle processor or disk takes up to six seconds");
    return {SampleProcessors(), SampleMemory(), SampleDisks(), SampleNetworkByCom()};
}

ExitCode RunSample(bool bJson)
{
    SilenceModuleLog();
    const std::vector<SourceSample> samples = SampleAll();
    StandardOutput().Write(bJson ? SamplesAsJson(samples) : SamplesAsTable(samples));
    const bool bRead =
        std::all_of(samples.begin(), samples.end(), [](const SourceSample& sample) { return sample.WasRead(); });
    return bRead ? ExitCode::Done : ExitCode::Failed;
}

} // namespace

void AddSampleCommand(CLI::App& app, CommandChoice& choice)
{
    const auto json = std::make_shared<bool>(false);
    CLI::App* pSample = app.add_subcommand(
        "sample", "Read all four sources once, as the module does, and say what failed and what to do about it");
    pSample->footer(SAMPLE_EXIT_CODES);
    pSample->add_flag("--json", *json, "As a JSON object");
    pSample->callback([&choice, json] { choice.run = [json] { return RunSample(*json); }; });
}

} // namespace varnex::host
