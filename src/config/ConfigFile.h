#pragma once

#include <windows.h>

namespace varnex
{

// KpmCfg.xml, beside the module. The path is worked out at the first need and kept; it stays empty, and the file then
// does not exist, while the module's path has no backslash. The text lives as long as the process.
const wchar_t* ConfigFilePath() noexcept;

// Whether there is anything of that name now; looked up anew at each call.
bool ConfigFileExists() noexcept;

} // namespace varnex
