#include "support/VirtualTime.h"

namespace varnex::test
{

namespace
{

constexpr ULONGLONG UNITS_PER_MS = 10000;
constexpr ULONGLONG UNITS_PER_SECOND = 10000000;
constexpr ULONGLONG YEAR_1970 = 116444736000000000; // 1970-01-01 as a FILETIME

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
    return ToFileTime(m_ullUtcAtStart + m_ullElapsedMs * UNITS_PER_MS);
}

long long VirtualTime::UnixSeconds() const noexcept
{
    return static_cast<long long>((FromFileTime(Utc()) - YEAR_1970) / UNITS_PER_SECOND);
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
    m_ullUtcAtStart = FromFileTime(utc) - m_ullElapsedMs * UNITS_PER_MS;
}

} // namespace varnex::test
