#include "common/LocalTime.h"

#include "support/ImportRedirector.h"

#include <catch2/catch.hpp>

#include <ctime>
#include <string>

using namespace varnex;
using namespace varnex::test;

namespace
{

// The zone of Central Europe: UTC+1, in summer UTC+2 from the last Sunday of March to that of October, 01:00 UTC.
void SetCentralEurope(ImportRedirector& redirector)
{
    redirector.Replace<decltype(::SystemTimeToTzSpecificLocalTime)>(
        "SystemTimeToTzSpecificLocalTime",
        [](const TIME_ZONE_INFORMATION*, const SYSTEMTIME* pUtc, LPSYSTEMTIME pLocal)
        {
            TIME_ZONE_INFORMATION zone = {};
            zone.Bias = -60;
            zone.DaylightBias = -60;
            zone.DaylightDate = {0, 3, 0, 5, 2, 0, 0, 0};
            zone.StandardDate = {0, 10, 0, 5, 3, 0, 0, 0};
            return SystemTimeToTzSpecificLocalTime(&zone, pUtc, pLocal);
        });
}

std::string TimeText(std::int64_t nSeconds)
{
    char szTime[TIME_CHARS];
    FormatLocalTimeA(nSeconds, szTime);
    wchar_t wszTime[TIME_CHARS];
    FormatLocalTimeW(nSeconds, wszTime);
    CHECK(std::wstring(wszTime) == std::wstring(szTime, szTime + std::char_traits<char>::length(szTime)));
    return szTime;
}

} // namespace

TEST_CASE("the present moment is the run-time library's")
{
    const std::int64_t nBefore = _time64(nullptr);
    const std::int64_t nNow = SecondsNow();
    const std::int64_t nAfter = _time64(nullptr);
    CHECK(nBefore <= nNow + 1); // the two clocks may tick at different instants
    CHECK(nNow <= nAfter + 1);
}

TEST_CASE("local time follows the daylight saving in force at the moment it shows")
{
    ImportRedirector redirector;
    SetCentralEurope(redirector);
    struct Row
    {
        std::int64_t nSeconds;
        const char* pszText;
    };
    const Row rows[] = {
        {0, "1970-01-01 01:00:00"},          {1706745599, "2024-02-01 00:59:59"},
        {1711846799, "2024-03-31 01:59:59"}, // the hour from 2 to 3 does not exist
        {1711846800, "2024-03-31 03:00:00"}, {1729987199, "2024-10-27 01:59:59"},
        {1729990799, "2024-10-27 02:59:59"}, // the hour from 2 to 3 comes twice
        {1729990800, "2024-10-27 02:00:00"}, {1729994400, "2024-10-27 03:00:00"},
        {2147483647, "2038-01-19 04:14:07"}, {4102444799, "2100-01-01 00:59:59"},
    };
    for (const Row& row : rows)
    {
        CAPTURE(row.nSeconds);
        CHECK(TimeText(row.nSeconds) == row.pszText);
    }
}

TEST_CASE("a date is the local one")
{
    ImportRedirector redirector;
    SetCentralEurope(redirector);
    wchar_t wszDate[DATE_CHARS];
    FormatLocalDateW(1706741999, wszDate); // 2024-01-31 22:59:59 UTC
    CHECK(std::wstring(wszDate) == L"2024-01-31");
    FormatLocalDateW(1706742000, wszDate);
    CHECK(std::wstring(wszDate) == L"2024-02-01");
}

TEST_CASE("without a zone the time is UTC")
{
    ImportRedirector redirector;
    redirector.FailCall("SystemTimeToTzSpecificLocalTime", 1, FailMode::FromThereOn, ERROR_INVALID_PARAMETER);
    CHECK(TimeText(1706745599) == "2024-01-31 23:59:59");
    CHECK(redirector.Failures("SystemTimeToTzSpecificLocalTime") == 2);
}

TEST_CASE("a moment before 1601 is no time, and no crash")
{
    CHECK(TimeText(-20'000'000'000) == "0000-00-00 00:00:00");
}

TEST_CASE("of the moments with the same low 32 bits the nearest one is meant")
{
    constexpr std::int64_t WRAP = std::int64_t{1} << 31;
    struct Row
    {
        std::int64_t nNear;
        std::int64_t nMoment;
    };
    const Row rows[] = {
        {1706745599, 1706745599},
        {1706745599, 0},
        {1706745599, -1},
        {1706745599, WRAP - 1},
        {1706745599, WRAP + 5}, // not 1901
        {WRAP - 1, WRAP},
        {WRAP, WRAP - 1},
        {WRAP, WRAP},
        {WRAP + 86400, WRAP - 1},
        {4102444799, 4102444799}, // 2100
        {4102444799, 2 * WRAP + 5},
        {4102444799, 4102444799 - WRAP},
        {4102444799, 4102444799 + WRAP - 1},
    };
    for (const Row& row : rows)
    {
        CAPTURE(row.nNear, row.nMoment);
        CHECK(MomentOf(AsHappenTime(row.nMoment), row.nNear) == row.nMoment);
    }
}

TEST_CASE("alert records carry the low 32 bits of a moment")
{
    CHECK(AsHappenTime(1706745599) == 1706745599);
    CHECK(AsHappenTime(2147483647) == 2147483647);
    CHECK(AsHappenTime(2147483648) == -2147483647 - 1);
}
