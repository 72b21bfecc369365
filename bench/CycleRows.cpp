#include "Rows.h"
#include "Workers.h"

namespace varnex::bench
{

namespace
{

void MeasureOn(const Machine& machine, const WorkerKind& kind, const char* pszWork, double dWork, Setting& setting,
               const FloorConfig& config, Results& results)
{
    SetMachine(machine);
    Row row;
    row.operation = std::string("cycle of the ") + kind.pszName;
    row.work = pszWork;
    row.dWork = dWork;
    row.goal = {GoalKind::Ratio, 1.10};
    Summarise(row, MeasureCycles(kind, config, setting.effort));
    results.Add(row);
}

} // namespace

void MeasureCycleRows(Setting& setting, Results& results)
{
    const ComScope com;
    setting.WriteConfig();
    const FloorConfig config(FloorConfigFile(setting));
    const auto& kinds = WorkerKinds();
    MeasureOn({}, kinds[0], "", 0, setting, config, results);
    MeasureOn({}, kinds[1], "", 0, setting, config, results);
    MeasureOn({8, 4, 4}, kinds[2], "4 disks", 4, setting, config, results);
    MeasureOn({8, 24, 4}, kinds[2], "24 disks", 24, setting, config, results);
    MeasureOn({8, 4, 4}, kinds[3], "4 adapters", 4, setting, config, results);
    MeasureOn({8, 4, 16}, kinds[3], "16 adapters", 16, setting, config, results);
    MeasureOn({8, 4, 4}, kinds[4], "8 processors", 8, setting, config, results);
    MeasureOn({64, 4, 4}, kinds[4], "64 processors", 64, setting, config, results);
    MeasureOn({}, kinds[5], "", 0, setting, config, results);
    MeasureOn({8, 4, 4}, kinds[6], "4 disks", 4, setting, config, results);
    MeasureOn({8, 24, 4}, kinds[6], "24 disks", 24, setting, config, results);
    MeasureOn({8, 4, 4}, kinds[7], "4 adapters", 4, setting, config, results);
    MeasureOn({8, 4, 16}, kinds[7], "16 adapters", 16, setting, config, results);
}

} // namespace varnex::bench
