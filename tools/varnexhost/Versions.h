#pragma once

#include <filesystem>
#include <string>

namespace varnex::host
{

// What a support case has to know first: the versions of the module, of this program and of Windows, a line each.
std::wstring VersionLines(const std::filesystem::path& module);

} // namespace varnex::host
