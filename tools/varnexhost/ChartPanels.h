#pragma once

#include "ChartAlerts.h"
#include "ChartReport.h"
#include "ChartTable.h"
#include "ChartThresholds.h"

namespace varnex::host
{

// All that the files hold.
struct ChartInput
{
    std::vector<TraceFile> traces;
    std::vector<SavedReport> reports;
    std::vector<ChartAlert> alerts;
};

// One resource of the chart.
struct ChartPanel
{
    std::string id; // fit for an attribute
    std::string title;
    std::string about; // whole sentences on what is shown
    std::string unit;
    bool bPercent = true;
    std::optional<int> threshold; // nothing when there is no line to draw
    std::string thresholdText;
    std::vector<ChartTable> tables;
    std::vector<ChartAlert> alerts;
};

struct ChartDay
{
    std::string day;
    std::vector<ChartPanel> panels;      // those that have samples
    std::vector<ChartAlert> otherAlerts; // of the day, but of resources without samples
    std::vector<std::string> notices;    // what a reader should know about the input, in whole sentences
    bool bReports = false;               // some of the points are from reports
};

// The days of which there are samples or reports, ascending.
std::vector<std::string> DaysOf(const ChartInput& input);

// Puts one day together. thresholds: in the order of the resources.
ChartDay MakeChartDay(const ChartInput& input, const std::string& day, const std::vector<ChartThreshold>& thresholds);

} // namespace varnex::host
