#pragma once

#include <string>
#include <vector>

namespace varnex::host
{

// The alert types in an operator's words.

// "CPU", "memory", ...; "type 9" for one that this tool does not know.
std::wstring AlertKindName(unsigned nAlertType);

// The number with its unit: "93 %" or "72 MB/s".
std::wstring AlertAmount(unsigned nAlertType, int nAmount);

// "%" or "MB/s"; empty for a type that this tool does not know.
std::wstring AlertUnit(unsigned nAlertType);

// The names that --alerts takes.
std::vector<std::string> MonitorNames();

// The selectors of the start and stop exports for names out of MonitorNames, each once, "all" alone.
std::vector<unsigned> MonitorSelectors(const std::vector<std::string>& names);

// How many monitors a list of selectors starts.
unsigned MonitorCount(const std::vector<unsigned>& selectors);

// "CPU, memory"
std::wstring SelectorNames(const std::vector<unsigned>& selectors);

} // namespace varnex::host
