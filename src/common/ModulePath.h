#pragma once

#include <cstddef>

#include <windows.h>

namespace varnex
{

// Where the module's files lie. Every buffer is terminated.

constexpr std::size_t PATH_CHARS = 260;

// The path of a module's file. False, with an empty path, when the system gives none or the buffer cannot hold all of it:
// a path that was cut would lead to a directory further up.
bool ModulePathA(HMODULE hModule, char (&szPath)[PATH_CHARS]) noexcept;
bool ModulePathW(HMODULE hModule, wchar_t (&wszPath)[PATH_CHARS]) noexcept;

// The directory of a module's file with its closing backslash. False, with an empty directory, when there is no path or
// the path holds no backslash.
bool ModuleDirectoryA(HMODULE hModule, char (&szDirectory)[PATH_CHARS]) noexcept;
bool ModuleDirectoryW(HMODULE hModule, wchar_t (&wszDirectory)[PATH_CHARS]) noexcept;

// The directory of the log for a module file: "Logs" beside the module's directory, "c:" when the path has no two
// backslashes. Cut when it does not fit.
void LogDirectoryOf(const char* pszModulePath, char (&szDirectory)[PATH_CHARS]) noexcept;

} // namespace varnex
