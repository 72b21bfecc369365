#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace varnex
{

// The trace files: one line a cycle with each history's newest value, while the registry switch is on. ANSI text, fields
// separated by tabs, lines ended by CR LF; a header is written once per load of the module. Problems are logged and
// never touch a history. Each operation is called by its own sampler, with that cycle's time stamp; a null one does
// nothing.
void OutputCurrentCPUUtil(const wchar_t* pwszTime, std::size_t nProcessors);
void OutputCurrentMemUtil(const wchar_t* pwszTime);
void OutputCurrentDiskUtil(const wchar_t* pwszTime);
// The caller holds the network store's lock.
void OutputCurrentNetworkUtil(const wchar_t* pwszTime);

constexpr std::size_t TRACE_PATH_CHARS = 260;

// The path of a file in "Logs" beside the module's directory. False (logged) when there is none or it does not fit.
bool GetFileFullPath(const wchar_t* pwszFileName, wchar_t (&wszPath)[TRACE_PATH_CHARS]) noexcept;

// Appends one line. Nothing happens for a null path or time and for no values.
void WriteUtilToFile(const wchar_t* pwszPath, const wchar_t* pwszTime, const std::vector<std::int64_t>& values);

} // namespace varnex
