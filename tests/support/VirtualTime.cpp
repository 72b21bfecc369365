#include "support/VirtualTime.h"

namespace varnex::test
{

namespace
{

constexpr ULONGLONG g_ullUnitsPerMs = 10000;
constexpr ULONGLONG g_ullUnitsPerSecond = 10000000;
constexpr ULONGLONG g_ullUnix1970 = 116444736000000000; // 1970-01-01 as a FILETIME

FILETIME ToFileTime(ULONGLONG ullUnits) noexcept
{
    return {static_cast<DWORD>(ullUnits), static_cast<DWORD>(ullUnits >> 32)};
}

ULONGLONG FromFileTime(const FILETIME& time) noexcept
{
    return (static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

} // namespace

VirtualTime::VirtualTime() : m_ullTickAtStart(24 * 60 * 60 * 1000)
{
    SYSTEMTIME noon{};
    noon.wYear = 2026;
    noon.wMonth = 1;
    noon.wDay = 31;
    noon.wHour = 12;
    SetLocal(noon);
}

FILETIME VirtualTime::Utc() const noexcept
{
    return ToFileTime(m_ullUtcAtStart + m_ullElapsedMs * g_ullUnitsPerMs);
}

long long VirtualTime::UnixSeconds() const noexcept
{
    return static_cast<long long>((FromFileTime(Utc()) - g_ullUnix1970) / g_ullUnitsPerSecond);
}

SYSTEMTIME VirtualTime::Local() const noexcept
{
    const FILETIME utc = Utc();
    SYSTEMTIME system{};
    SYSTEMTIME local{};
    FileTimeToSystemTime(&utc, &system);
    SystemTimeToTzSpecificLocalTime(nullptr, &system, &local);
    return local;
}

void VirtualTime::SetLocal(const SYSTEMTIME& local) noexcept
{
    SYSTEMTIME system{};
    FILETIME utc{};
    TzSpecificLocalTimeToSystemTime(nullptr, &local, &system);
    SystemTimeToFileTime(&system, &utc);
    m_ullUtcAtStart = FromFileTime(utc) - m_ullElapsedMs * g_ullUnitsPerMs;
}

} // namespace varnex::test
