#pragma once

#include "ChartText.h"

namespace varnex::host
{

struct ChartAlert
{
    ChartMoment moment;
    unsigned nType = 0; // as the fetch tells it: the paging file has a type of its own
    int nValue = 0;
    int nThreshold = 0;
    std::string detail; // the resource and, from a fetch, the host; may be empty
};

struct ChartAlerts
{
    std::vector<ChartAlert> alerts; // as they stand in the file
    std::size_t nUnreadable = 0;
};

// Alerts out of the module's own store, LocalAlt.dat, or out of the saved output of `varnexhost alerts --json`. Throws
// HostError (the sentence begins with name) when the text is neither.
ChartAlerts ReadAlertFile(const std::string& text, const std::string& name);

// "CPU 93 %, threshold 85 %, 0 C:"
std::string AlertText(const ChartAlert& alert);

} // namespace varnex::host
