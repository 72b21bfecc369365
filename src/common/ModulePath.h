#pragma once

#include <cstddef>

#include <windows.h>

namespace varnex
{

// Where the module's files lie. Paths that do not fit are cut; every buffer is terminated.

constexpr std::size_t PATH_CHARS = 260;

// The directory of a module's file with its closing backslash. False, with an empty directory, when the path holds no
// backslash.
bool ModuleDirectoryA(HMODULE hModule, char (&szDirectory)[PATH_CHARS]) noexcept;
bool ModuleDirectoryW(HMODULE hModule, wchar_t (&wszDirectory)[PATH_CHARS]) noexcept;

// The directory of the log for a module file: "Logs" beside the module's directory, "c:" when the path has no two
// backslashes.
void LogDirectoryOf(const char* pszModulePath, char (&szDirectory)[PATH_CHARS]) noexcept;

} // namespace varnex
