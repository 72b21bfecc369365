#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace varnex
{

// The trace files: one line a cycle with each history's newest value, while the registry switch is on, which each cycle
// reads. ANSI text, fields separated by tabs, lines ended by CR LF. A header is written once per load of the module, and
// begins the file anew; it stays pending until it was written whole. A line that was not is lost, and a torn one is ended
// before the next one. Problems are logged and never touch a history; std::bad_alloc is thrown. Each operation is called
// by its own sampler's thread only, with that cycle's time stamp; a null one does nothing.
void OutputCurrentCPUUtil(const wchar_t* pwszTime, std::size_t nProcessors);
void OutputCurrentMemUtil(const wchar_t* pwszTime);
void OutputCurrentDiskUtil(const wchar_t* pwszTime);
// The caller holds the network store's lock.
void OutputCurrentNetworkUtil(const wchar_t* pwszTime);

constexpr std::size_t TRACE_PATH_CHARS = 260;

// The path of a file in "Logs" beside the module's directory, or in the root that the module itself lies in. False
// (logged) when there is none or it does not fit. Throws std::bad_alloc.
bool GetFileFullPath(const wchar_t* pwszFileName, wchar_t (&wszPath)[TRACE_PATH_CHARS]);

// Appends one line; a file that cannot be opened or written is logged. Nothing happens for a null path or time and for
// no values. bTorn tells, and is told, whether the file ends in a part of a line: the caller keeps it with the file.
// Any thread, but one at a time for each file. Throws std::bad_alloc.
void WriteUtilToFile(const wchar_t* pwszPath, const wchar_t* pwszTime, const std::vector<std::int64_t>& values,
                     bool& bTorn);

} // namespace varnex
