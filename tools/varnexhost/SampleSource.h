#pragma once

#include "SampleFault.h"

#include <cstdint>
#include <string>
#include <vector>

namespace varnex::host
{

struct SampleValue
{
    std::wstring name;     // whose: "processor 0"
    std::wstring quantity; // of which: "utilization"
    std::int64_t nValue;
    std::wstring unit;
};

// One reading of one of the module's sources.
struct SourceSample
{
    std::wstring name; // "cpu"
    std::vector<SampleValue> values;
    std::vector<SampleFault> faults;
    std::vector<std::wstring> notes; // good to know; no failure

    bool WasRead() const noexcept { return faults.empty(); }
};

// Each reads a source once with the module's own code, which is silent meanwhile. The network needs COM on the thread.
// Throw std::bad_alloc.
SourceSample SampleProcessors();
SourceSample SampleMemory();
SourceSample SampleDisks();
SourceSample SampleNetwork();

} // namespace varnex::host
