#pragma once

#include "SampleSource.h"

namespace varnex::host
{

// For people: a paragraph for each source.
std::wstring SamplesAsTable(const std::vector<SourceSample>& samples);

// For programs: {"read": ..., "sources": [{"source", "read", "values", "failures", "notes"}]}.
std::wstring SamplesAsJson(const std::vector<SourceSample>& samples);

} // namespace varnex::host
