#pragma once

#include "ModuleFiles.h"

#include <string>

#include <windows.h>

namespace varnex::host
{

// Why the module could not be loaded and where to look, in plain words.
std::wstring LoadErrorText(const ModuleFiles& files, DWORD dwError);

} // namespace varnex::host
