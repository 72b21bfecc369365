#include "CommandLine.h"
#include "Commands.h"
#include "ConsoleStream.h"
#include "ExitCode.h"
#include "Text.h"

#include <algorithm>
#include <exception>
#include <sstream>

namespace varnex::host
{

namespace
{

const char* const EXIT_CODE_HELP = "Exit codes:\n"
                                   "  0  done\n"
                                   "  1  could not start, or could not go on; the reason is on standard error\n"
                                   "  2  wrong usage\n";

// The parser has its own set of exit codes; callers of this tool see two of them.
ExitCode ReportParseEnd(const CLI::App& app, const CLI::ParseError& end)
{
    std::ostringstream output;
    std::ostringstream errors;
    const int nParserCode = app.exit(end, output, errors);
    StandardOutput().Write(FromUtf8(output.str()));
    StandardError().TryWrite(FromUtf8(errors.str()));
    return nParserCode == 0 ? ExitCode::Done : ExitCode::WrongUsage;
}

ExitCode RunCommandLine()
{
    CLI::App app("Loads Varnex.dll as a host agent does and shows what it reports.", "varnexhost");
    app.allow_windows_style_options(false); // a value may begin with a slash
    app.set_version_flag("--version", std::string("varnexhost " VARNEX_VERSION));
    app.require_subcommand(1);
    app.footer(EXIT_CODE_HELP);
    CommandChoice choice;
    AddCommands(app, choice);

    std::vector<std::string> arguments = CommandLineArguments();
    std::reverse(arguments.begin(), arguments.end()); // the parser takes them from the back
    try
    {
        app.parse(arguments);
    }
    catch (const CLI::ParseError& end)
    {
        return ReportParseEnd(app, end);
    }
    return choice.run();
}

ExitCode RunGuarded()
{
    try
    {
        return RunCommandLine();
    }
    catch (const std::exception& error)
    {
        StandardError().TryWrite(L"varnexhost: " + FromUtf8(error.what()) + L"\n");
        return ExitCode::Failed;
    }
}

} // namespace

} // namespace varnex::host

int main()
{
    return static_cast<int>(varnex::host::RunGuarded());
}
