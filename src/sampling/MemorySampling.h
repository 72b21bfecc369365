#pragma once

namespace varnex
{

// Memory status, from GlobalMemoryStatusEx. Sizes are counted in whole megabytes (1048576 bytes) before any arithmetic.
// Nothing is kept between calls; any thread.
// Both return 0, -1 for a null pointer, or the system error (logged) when the function cannot be found. A status call
// that fails is no error.

// Utilization in percent, truncated: physical memory, and the paging file (the commit limit). 0 and 0 when the status
// call fails.
int GetAvaMemoryUtilization(unsigned* pnPhysicalPercent, unsigned* pnPagingFilePercent) noexcept;

// Total sizes in megabytes; left alone when the status call fails.
int GetTotalMemorySize(unsigned* pnPhysicalMB, unsigned* pnPagingFileMB) noexcept;

} // namespace varnex
