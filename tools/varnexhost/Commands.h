#pragma once

#include "ExitCode.h"

#include <CLI/CLI.hpp>
#include <functional>

namespace varnex::host
{

// What the command line asked for; set by the callback of the command that was named and run after the parsing, so
// that a command's failures are never taken for the parser's.
struct CommandChoice
{
    std::function<ExitCode()> run;
};

// Each command is one file that adds itself to the command line.
void AddWatchCommand(CLI::App& app, CommandChoice& choice);
void AddAlertsCommand(CLI::App& app, CommandChoice& choice);
void AddReportCommand(CLI::App& app, CommandChoice& choice);
void AddCheckConfigCommand(CLI::App& app, CommandChoice& choice);
void AddPrintConfigCommand(CLI::App& app, CommandChoice& choice);
void AddCollectCommand(CLI::App& app, CommandChoice& choice);
void AddSampleCommand(CLI::App& app, CommandChoice& choice);
void AddChartCommand(CLI::App& app, CommandChoice& choice);
void AddBurnCommand(CLI::App& app, CommandChoice& choice);

void AddCommands(CLI::App& app, CommandChoice& choice);

} // namespace varnex::host
