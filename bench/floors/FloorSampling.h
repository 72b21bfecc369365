#pragma once

namespace varnex::bench
{

// The samples as bare calls of their sources.

void SampleCpuTimes() noexcept;
void SampleMemory() noexcept;
void SampleProcessor() noexcept; // by its counter, whose two names are looked up and converted afresh
void SampleDisk() noexcept;      // the same for narrow names; its 16 bytes stay allocated, as the module's do
void ConvertDiskName() noexcept; // what a sampler does before
// The adapters' list: connection, query, and four properties of each.
void ListAdapters() noexcept;
// Two readings of the interface table a second apart.
void SampleTraffic() noexcept;
// Is tracing on?
void LookAtTraceSwitch() noexcept;

} // namespace varnex::bench
