#pragma once

#include "ChartAssetNumbers.h"

#include <cstdint>
#include <string>

namespace varnex::host
{

// One of the page's parts, with plain line feeds: that is what a browser makes of it before it takes the hash. Throws
// HostError when this program has been damaged.
std::string ChartAsset(std::uintptr_t nResource);

// What a page's policy calls a script or a style by: "'sha256-...'". Throws HostError.
std::string PolicyHash(const std::string& content);

} // namespace varnex::host
