#pragma once

namespace varnex
{

// Whether trace files are written, as the registry says now: "OutputUtilToFile" greater than 0. Failures are logged and
// mean no.
bool NeedToOutputCurrentUtil() noexcept;

} // namespace varnex
