#pragma once

#include "Results.h"
#include "Setting.h"

namespace varnex::bench
{

// Each adds its rows of the table.

void MeasureLog(Setting& setting, Results& results);
void MeasureConfig(Setting& setting, Results& results);
void MeasureAlerts(Setting& setting, Results& results);
void MeasureCycleRows(Setting& setting, Results& results);
void MeasureReports(Setting& setting, Results& results);
void MeasureEntry(Setting& setting, Results& results);
// Bytes, handles, threads, and the processor time of a day.
void MeasureFootprint(Setting& setting, Results& results);

// The floor of the configuration beside the module's own file.
std::wstring FloorConfigFile(Setting& setting);

} // namespace varnex::bench
