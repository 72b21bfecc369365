#pragma once

#include <string>

namespace varnex::test
{

// A file's bytes; empty when it cannot be read.
std::string ReadFileBytes(const std::wstring& path);
// Creates or replaces a file; fails the test when that cannot be done.
void WriteFileBytes(const std::wstring& path, const std::string& bytes);
bool FileExists(const std::wstring& path);
// The path of the running test program.
std::wstring OwnProgramPath();
// Its directory, without a backslash at the end.
std::wstring ProgramDirectory();

} // namespace varnex::test
