#pragma once

#include <windows.h>

#include <oleauto.h>

namespace varnex::bench
{

// The report's document of so many entries, built by bare calls with texts made beforehand, and its text taken; the
// memory sizes asked for as well. Returns the text's length. The thread has initialised COM.
unsigned BuildReportFloor(unsigned nProcessors, unsigned nDisks, unsigned nCards) noexcept;

} // namespace varnex::bench
