#pragma once

#include "Sample.h"

#include <string>

namespace varnex::winepdh
{

// The processors in the text of /proc/stat, "0", "1", ... and then "_Total". Part: busy time, whole: all time, both in
// the kernel's clock ticks. Empty when the text has no processor lines.
InstanceSamples ParseProcStat(const std::string& text);

} // namespace varnex::winepdh
