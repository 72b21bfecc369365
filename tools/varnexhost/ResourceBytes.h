#pragma once

#include <cstdint>
#include <string_view>

namespace varnex::host
{

// The raw data of that number among this program's resources; it lives as long as the program. Throws HostError when
// the program has been damaged.
std::string_view ResourceBytes(std::uintptr_t nNumber);

} // namespace varnex::host
