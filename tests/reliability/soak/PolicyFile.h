#pragma once

#include <string>

namespace varnex::test
{

class ModuleTree;

// Gives the four thresholds of the tree's KpmCfg.xml another value, as an operator's editor does: everything else of the
// file stays, the day's counts too, and whoever reads it meanwhile sees the old file or the new one.
void ChangeThresholds(const ModuleTree& tree, int nThreshold);
// The same for the four intervals.
void ChangeIntervals(const ModuleTree& tree, int nSeconds);

} // namespace varnex::test
