#pragma once

#include <optional>
#include <string>

namespace varnex::winepdh
{

// The whole text of a file, or nothing when it cannot be opened or read to its end.
std::optional<std::string> ReadTextFile(const wchar_t* pwszPath);

// The same for a source that the environment variable may put elsewhere; the variable is looked up at every call.
std::optional<std::string> ReadSource(const wchar_t* pwszVariable, const wchar_t* pwszDefaultPath);

} // namespace varnex::winepdh
