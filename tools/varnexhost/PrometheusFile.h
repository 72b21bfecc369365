#pragma once

#include <filesystem>
#include <string>

namespace varnex::host
{

// Puts a file in place of the one that may be there, whole or not at all: whoever reads the folder sees the old bytes
// or the new ones. A reader that has the old one open is waited for, two seconds at most. Throws HostError with the
// system's reason, and then the old file is as it was.
void ReplaceExposition(const std::filesystem::path& file, const std::string& bytes);

} // namespace varnex::host
