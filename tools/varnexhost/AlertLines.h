#pragma once

#include "AlertFetcher.h"

#include <string>

namespace varnex::host
{

// "2026-01-31 23:59:59, HOST01, 0 C: | disk 72 MB/s, threshold 50 MB/s". The store is a text file that others can write
// to: nothing in it steers the terminal.
std::wstring AlertLine(const FetchedAlert& alert);

} // namespace varnex::host
