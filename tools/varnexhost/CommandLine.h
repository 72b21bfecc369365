#pragma once

#include <string>
#include <vector>

namespace varnex::host
{

// This process's arguments without the program's name, in UTF-8: the narrow argv of main() has already lost every
// character outside the code page.
std::vector<std::string> CommandLineArguments();

} // namespace varnex::host
