#include "common/LocalTime.h"

#include "common/BoundedText.h"

namespace varnex
{

namespace
{

constexpr std::int64_t TICKS_PER_SECOND = 10'000'000;         // file times count 100 ns
constexpr std::int64_t SECONDS_1601_TO_1970 = 11'644'473'600; // file times begin in 1601

} // namespace

std::int64_t SecondsNow() noexcept
{
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    ULARGE_INTEGER nTicks;
    nTicks.LowPart = time.dwLowDateTime;
    nTicks.HighPart = time.dwHighDateTime;
    return static_cast<std::int64_t>(nTicks.QuadPart) / TICKS_PER_SECOND - SECONDS_1601_TO_1970;
}

std::int32_t AsHappenTime(std::int64_t nSeconds) noexcept
{
    return static_cast<std::int32_t>(nSeconds);
}

std::int64_t MomentOf(std::int32_t nHappenTime, std::int64_t nNear) noexcept
{
    return nNear +
           static_cast<std::int32_t>(static_cast<std::uint32_t>(nHappenTime) - static_cast<std::uint32_t>(nNear));
}

SYSTEMTIME LocalTimeOf(std::int64_t nSeconds) noexcept
{
    ULARGE_INTEGER nTicks;
    nTicks.QuadPart = static_cast<ULONGLONG>((nSeconds + SECONDS_1601_TO_1970) * TICKS_PER_SECOND);
    const FILETIME time{nTicks.LowPart, nTicks.HighPart};
    SYSTEMTIME utc{};
    SYSTEMTIME local{};
    if (!FileTimeToSystemTime(&time, &utc) || !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local))
    {
        return utc;
    }
    return local;
}

void FormatLocalTimeA(std::int64_t nSeconds, char (&szTime)[TIME_CHARS]) noexcept
{
    const SYSTEMTIME time = LocalTimeOf(nSeconds);
    FormatTextA(szTime, "%04d-%02d-%02d %02d:%02d:%02d", time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute,
                time.wSecond);
}

void FormatLocalTimeW(std::int64_t nSeconds, wchar_t (&wszTime)[TIME_CHARS]) noexcept
{
    const SYSTEMTIME time = LocalTimeOf(nSeconds);
    FormatTextW(wszTime, L"%04d-%02d-%02d %02d:%02d:%02d", time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute,
                time.wSecond);
}

void FormatLocalDateW(std::int64_t nSeconds, wchar_t (&wszDate)[DATE_CHARS]) noexcept
{
    const SYSTEMTIME time = LocalTimeOf(nSeconds);
    FormatTextW(wszDate, L"%04d-%02d-%02d", time.wYear, time.wMonth, time.wDay);
}

} // namespace varnex
