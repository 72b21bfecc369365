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

// Puts a file in place of the one that may be there, whole or not at all: whoever reads the folder sees the old bytes
// or the new ones. A reader that has the old one open is waited for, two seconds at most. Throws HostError with the
// system's reason, and then the old file is as it was.
void ReplaceWholeFile(const std::filesystem::path& file, const std::string& bytes);

} // namespace varnex::host
