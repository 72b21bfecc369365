#pragma once

namespace varnex::host
{

// The module's code, as linked into this program, logs as it does in the module. After this it writes no line: there is
// no log of this program's that anybody would look for. At any time, any number of times.
void SilenceModuleLog() noexcept;

} // namespace varnex::host
