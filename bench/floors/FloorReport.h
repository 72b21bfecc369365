#pragma once

#include <windows.h>

#include <oleauto.h>

namespace varnex::bench
{

// The report's document of so many entries, built by bare calls with texts made beforehand, and its text taken; the
// memory sizes asked for as well. Returns the text's length. The thread has initialised COM.
// bTextsAnew: with every text made for its call, and the attributes' map asked for at each attribute.
unsigned BuildReportFloor(unsigned nProcessors, unsigned nDisks, unsigned nCards, bool bTextsAnew = false) noexcept;

} // namespace varnex::bench
