#pragma once

#include "ChartText.h"

#include <cstdint>

namespace varnex::host
{

struct ReportedAdapter
{
    std::string name;   // its MAC address
    int nLinkSpeed = 0; // Mbit/s; 0 when unknown
    int nPercent = 0;
};

// A utilization report that somebody saved: averages up to its time.
struct SavedReport
{
    ChartMoment moment;
    std::vector<int> processors; // percent
    std::vector<int> memory;     // percent, of physical memory and of the paging file
    std::vector<std::string> diskNames;
    std::vector<std::int64_t> disks; // bytes per second
    std::vector<ReportedAdapter> adapters;
};

// Nothing when the text is not XML of a report. Throws HostError (the sentence begins with name) for a report that is
// not complete and for the configuration file, which is another option's.
std::optional<SavedReport> ReadSavedReport(std::string text, const std::string& name);

} // namespace varnex::host
