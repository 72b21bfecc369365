#include "Commands.h"
#include "ConsoleStream.h"
#include "DefaultConfig.h"
#include "ResourceBytes.h"
#include "Text.h"

namespace varnex::host
{

namespace
{

ExitCode RunPrintConfig()
{
    StandardOutput().Write(
        FromUtf8(ResourceBytes(DEFAULT_CONFIG_RESOURCE))); // the file is UTF-8, and so is what goes to a file or a pipe
    return ExitCode::Done;
}

} // namespace

void AddPrintConfigCommand(CLI::App& app, CommandChoice& choice)
{
    CLI::App* pPrint = app.add_subcommand(
        "print-config", "Print the default KpmCfg.xml, with a comment on each value; to be saved beside Varnex.dll");
    pPrint->callback([&choice] { choice.run = RunPrintConfig; });
}

} // namespace varnex::host
