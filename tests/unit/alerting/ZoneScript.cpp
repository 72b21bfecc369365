#include "ZoneScript.h"

namespace varnex::test
{

namespace
{

void UseZone(ImportRedirector& imports, const TIME_ZONE_INFORMATION& zone)
{
    imports.Replace<decltype(::SystemTimeToTzSpecificLocalTime)>(
        "SystemTimeToTzSpecificLocalTime",
        [zone](const TIME_ZONE_INFORMATION*, const SYSTEMTIME* pUtc, SYSTEMTIME* pLocal)
        { return SystemTimeToTzSpecificLocalTime(&zone, pUtc, pLocal); });
}

constexpr WORD g_wLastInMonth = 5;

SYSTEMTIME LastSundayOf(WORD wMonth, WORD wHour)
{
    SYSTEMTIME rule{};
    rule.wMonth = wMonth;
    rule.wDay = g_wLastInMonth;
    rule.wHour = wHour;
    return rule;
}

} // namespace

void UseUtc(ImportRedirector& imports)
{
    UseZone(imports, TIME_ZONE_INFORMATION{});
}

void UseCentralEurope(ImportRedirector& imports)
{
    TIME_ZONE_INFORMATION zone{};
    zone.Bias = -60;
    zone.DaylightBias = -60;
    zone.DaylightDate = LastSundayOf(3, 2);
    zone.StandardDate = LastSundayOf(10, 3);
    UseZone(imports, zone);
}

} // namespace varnex::test
