#pragma once

#include "ChartTrace.h"

namespace varnex::host
{

struct ChartThreshold
{
    int nValue = 0;     // percent, or MB/s for disks
    std::string origin; // where the value comes from, for people
};

// The thresholds that the module's monitors go by, in the order of the resources. configFile: empty for the defaults.
// Throws HostError when the module could not load the file. Once in a process.
std::vector<ChartThreshold> ReadThresholds(const std::string& configFile);

} // namespace varnex::host
