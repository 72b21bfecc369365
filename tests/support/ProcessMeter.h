#pragma once

#include <cstddef>

namespace varnex::test
{

// What this process holds right now, for tests that compare before and after.

// Open handles, from the system's own table: GetProcessHandleCount always says 0 under Wine.
std::size_t CountHandles();
std::size_t CountThreads();
// Blocks that are in use in all of this process's heaps, and their bytes.
struct HeapUse
{
    std::size_t nBlocks = 0;
    std::size_t cbBlocks = 0;
};
HeapUse CountHeapBlocks();
// Private bytes (committed memory that no other process shares).
std::size_t PrivateBytes();

} // namespace varnex::test
