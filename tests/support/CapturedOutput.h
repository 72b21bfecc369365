#pragma once

#include <functional>
#include <string>

namespace varnex::test
{

// What the process prints to its standard output while the action runs, byte for byte as it was printed. Assertions
// belong behind the action: a report of theirs would be captured, too.
std::string CaptureOutput(const std::function<void()>& action);

} // namespace varnex::test
