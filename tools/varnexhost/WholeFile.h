#pragma once

#include <filesystem>
#include <string>

namespace varnex::host
{

// A whole file, in such a way that its owner can go on writing, renaming and deleting it meanwhile. Throws HostError
// with the system's reason.
std::string ReadWholeFile(const std::filesystem::path& file);

// Makes a new file. Throws HostError with the system's reason, also when the file exists; nothing stays of a file that
// could not be written whole.
void WriteWholeFile(const std::filesystem::path& file, const std::string& bytes);

} // namespace varnex::host
