#pragma once

#include <cstddef>
#include <new>

namespace varnex
{

// A process-wide object that is made at load and never destroyed: at the end of a process its other threads have been
// stopped anywhere, perhaps in the middle of changing it.
template <class T>
class NeverDestroyed
{
public:
    NeverDestroyed() { ::new (static_cast<void*>(m_storage)) T; }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T& Get() noexcept { return *std::launder(reinterpret_cast<T*>(m_storage)); }

private:
    alignas(T) std::byte m_storage[sizeof(T)];
};

} // namespace varnex
