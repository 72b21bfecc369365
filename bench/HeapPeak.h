#pragma once

#include <cstddef>

namespace varnex::bench
{

// What this program's heap held at most, over what it held at the beginning of the scope. One at a time, and only for
// code of one thread.
class HeapPeak
{
public:
    HeapPeak();
    ~HeapPeak();
    HeapPeak(const HeapPeak&) = delete;
    HeapPeak& operator=(const HeapPeak&) = delete;

    std::size_t Bytes() const noexcept;
};

} // namespace varnex::bench
