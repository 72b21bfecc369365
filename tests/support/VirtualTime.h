#pragma once

#include <windows.h>

namespace varnex::test
{

// The arithmetic of a clock that is moved by hand: elapsed milliseconds, and what the wall clock and the tick counter
// show for them. Knows no threads; its owner locks.
class VirtualTime
{
public:
    VirtualTime();

    ULONGLONG ElapsedMs() const noexcept { return m_ullElapsedMs; }
    // Only forwards.
    void MoveTo(ULONGLONG ullElapsedMs) noexcept { m_ullElapsedMs = ullElapsedMs; }

    ULONGLONG Tick() const noexcept { return m_ullTickAtStart + m_ullElapsedMs; }
    void SetTick(ULONGLONG ullTick) noexcept { m_ullTickAtStart = ullTick - m_ullElapsedMs; }

    FILETIME Utc() const noexcept;
    long long UnixSeconds() const noexcept;
    SYSTEMTIME Local() const noexcept;
    void SetLocal(const SYSTEMTIME& local) noexcept;

private:
    ULONGLONG m_ullElapsedMs = 0;
    ULONGLONG m_ullTickAtStart;
    ULONGLONG m_ullUtcAtStart = 0; // in the 100 ns units of a FILETIME
};

} // namespace varnex::test
