#pragma once

#include "ChartPanels.h"

namespace varnex::host
{

// The row of an alert in its panel's table; numbered from 1.
std::string AlertRowId(const ChartPanel& panel, std::size_t nAlert);

// What the page's script draws, as JSON that is safe within a script element.
std::string ChartJson(const ChartDay& day);

} // namespace varnex::host
