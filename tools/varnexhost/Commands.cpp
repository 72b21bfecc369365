#include "Commands.h"

namespace varnex::host
{

void AddCommands(CLI::App& app, CommandChoice& choice)
{
    AddWatchCommand(app, choice);
    AddAlertsCommand(app, choice);
    AddReportCommand(app, choice);
    AddCheckConfigCommand(app, choice);
    AddPrintConfigCommand(app, choice);
    AddCollectCommand(app, choice);
    AddSampleCommand(app, choice);
    AddChartCommand(app, choice);
    AddBurnCommand(app, choice);
}

} // namespace varnex::host
