#include "LocalZone.h"

#include "support/ScriptScope.h"

namespace varnex::test
{

namespace
{

SYSTEMTIME YearlyRule(WORD wMonth, WORD wWeek, WORD wHour)
{
    SYSTEMTIME rule{};
    rule.wMonth = wMonth;
    rule.wDay = wWeek; // 5 is the last one; the day of the week stays 0, a Sunday
    rule.wHour = wHour;
    return rule;
}

SYSTEMTIME LocalOf(long long llUnix, const TIME_ZONE_INFORMATION& zone)
{
    constexpr long long SECONDS_1601_TO_1970 = 11'644'473'600;
    const auto ullUnits = static_cast<ULONGLONG>((llUnix + SECONDS_1601_TO_1970) * 10'000'000);
    const FILETIME time{static_cast<DWORD>(ullUnits), static_cast<DWORD>(ullUnits >> 32)};
    SYSTEMTIME utc{};
    SYSTEMTIME local{};
    FileTimeToSystemTime(&time, &utc);
    SystemTimeToTzSpecificLocalTime(&zone, &utc, &local);
    return local;
}

LocalTime ToLocalTime(const SYSTEMTIME& time)
{
    return {time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond};
}

} // namespace

TIME_ZONE_INFORMATION Utc()
{
    return {};
}

TIME_ZONE_INFORMATION CentralEurope()
{
    TIME_ZONE_INFORMATION zone{};
    zone.Bias = -60;
    zone.DaylightBias = -60;
    zone.DaylightDate = YearlyRule(3, 5, 2);
    zone.StandardDate = YearlyRule(10, 5, 3);
    return zone;
}

TIME_ZONE_INFORMATION JumpsAtMidnight()
{
    TIME_ZONE_INFORMATION zone{};
    zone.Bias = 180;
    zone.DaylightBias = -60;
    zone.DaylightDate = YearlyRule(10, 3, 0);
    zone.StandardDate = YearlyRule(2, 3, 0);
    return zone;
}

LocalZone::LocalZone(ImportRedirector& redirector, VirtualClock& clock, const TIME_ZONE_INFORMATION& zone)
    : m_clock(clock), m_zone(zone), m_imports(redirector)
{
    m_imports.Replace<decltype(::SystemTimeToTzSpecificLocalTime)>(
        "SystemTimeToTzSpecificLocalTime",
        [zone](const TIME_ZONE_INFORMATION*, const SYSTEMTIME* pUtc, SYSTEMTIME* pLocal)
        { return SystemTimeToTzSpecificLocalTime(&zone, pUtc, pLocal); });
    m_imports.Replace<decltype(::GetLocalTime)>("GetLocalTime", [&clock, zone](LPSYSTEMTIME pTime)
                                                { *pTime = LocalOf(clock.UnixNow(), zone); });
}

void LocalZone::SetUtc(const LocalTime& utc)
{
    const UnscriptedScope unscripted;
    const SYSTEMTIME system{utc.wYear, utc.wMonth, 0, utc.wDay, utc.wHour, utc.wMinute, utc.wSecond, 0};
    SYSTEMTIME ofMachine{};
    SystemTimeToTzSpecificLocalTime(nullptr, &system, &ofMachine);
    m_clock.Set(ToLocalTime(ofMachine));
}

LocalTime LocalZone::Now() const
{
    const UnscriptedScope unscripted;
    return ToLocalTime(LocalOf(m_clock.UnixNow(), m_zone));
}

} // namespace varnex::test
