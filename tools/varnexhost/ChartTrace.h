#pragma once

#include "ChartText.h"

#include <cstdint>

namespace varnex::host
{

enum class ChartResource
{
    Processors,
    Memory,
    Disks,
    Network
};

struct TraceRow
{
    ChartMoment moment;
    std::vector<std::int64_t> values; // in the file's unit; negative for a sample that failed
};

// What one of the module's trace files holds.
struct TraceFile
{
    ChartResource resource;
    std::vector<std::string> columns; // by the header, which may name fewer than there are values
    std::vector<TraceRow> rows;       // as they stand in the file
    std::size_t nUnreadable = 0;      // lines that are no samples
    bool bTorn = false;               // the last line has no end and was left out
};

// Nothing when the text does not begin as a trace file does. Throws HostError (the sentence begins with name) for one
// whose resource cannot be told.
std::optional<TraceFile> ReadTraceFile(const std::string& text, const std::string& name);

} // namespace varnex::host
