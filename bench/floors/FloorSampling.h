#pragma once

namespace varnex::bench
{

// The samples as bare calls of their sources.

void SampleCpuTimes() noexcept;
void SampleMemory() noexcept;
void SampleProcessor() noexcept; // by its counter
void SampleDisk() noexcept;      // its 16 bytes stay allocated, as the module's do
// The adapters' list: connection, query, and four properties of each.
void ListAdapters() noexcept;
// Two readings of the interface table a second apart.
void SampleTraffic() noexcept;
// Is tracing on?
void LookAtTraceSwitch() noexcept;

} // namespace varnex::bench
