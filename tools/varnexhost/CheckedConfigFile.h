#pragma once

#include <string>

namespace varnex::host
{

// Names the file that the module's reading code, as linked into this program, takes for KpmCfg.xml; in the module it is
// the one beside the module. Once, before the first reading.
void SetCheckedConfigFile(std::wstring path);

} // namespace varnex::host
