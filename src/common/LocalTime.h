#pragma once

#include <cstddef>
#include <cstdint>

#include <windows.h>

namespace varnex
{

// Moments are seconds since 1970-01-01 UTC; local time follows the system's zone, with the daylight saving in force at
// the moment it shows.

std::int64_t SecondsNow() noexcept;

// A moment as the 32-bit value that alert records carry. The values begin anew in 2038.
std::int32_t AsHappenTime(std::int64_t nSeconds) noexcept;
// The moment that such a value stands for: the one nearest to nNear, within 68 years.
std::int64_t MomentOf(std::int32_t nHappenTime, std::int64_t nNear) noexcept;

SYSTEMTIME LocalTimeOf(std::int64_t nSeconds) noexcept;

// "2026-01-31 23:59:59"
constexpr std::size_t TIME_CHARS = 32;
void FormatLocalTimeA(std::int64_t nSeconds, char (&szTime)[TIME_CHARS]) noexcept;
void FormatLocalTimeW(std::int64_t nSeconds, wchar_t (&wszTime)[TIME_CHARS]) noexcept;

// "2026-01-31", the key of the daily counts
constexpr std::size_t DATE_CHARS = 16;
void FormatLocalDateW(std::int64_t nSeconds, wchar_t (&wszDate)[DATE_CHARS]) noexcept;

} // namespace varnex
