#pragma once

namespace varnex::bench
{

// A call with a format's arguments that does nothing, out of the optimiser's sight.
void EmptyCall(const char* pszFormat, ...) noexcept;

} // namespace varnex::bench
