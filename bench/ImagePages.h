#pragma once

#include <windows.h>

#include <cstddef>

namespace varnex::bench
{

// Bytes of the pages of a loaded module that this process has for itself: variables that have been written to, addresses
// that the loader has put right. Its other pages are the file's, shared with every process that has it loaded.
std::size_t OwnBytesOfImage(HMODULE hModule);

} // namespace varnex::bench
