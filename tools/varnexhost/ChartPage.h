#pragma once

#include "ChartPanels.h"

namespace varnex::host
{

// The whole page in UTF-8: charts, tables, styles, scripts and data, without a need for any other file. Its policy
// forbids every connection and every script but its own. Whatever is text here comes from files and is escaped.
std::string MakeChartPage(const ChartDay& day, const std::string& title, const std::vector<std::string>& fileNames);

} // namespace varnex::host
