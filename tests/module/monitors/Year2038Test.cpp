// Alerts of the shipped DLL around and after 2038-01-19 03:14:08 UTC, when their 32-bit times begin anew.

#include "MonitoredModule.h"

#include <catch2/catch.hpp>

#include <cstdint>

namespace varnex::test
{

namespace
{

constexpr long long WRAP = 1LL << 31;
constexpr long long THREE_DAYS = 259'200;
constexpr long long YEAR = 31'556'952;

// A stored alert of that moment, as its 32-bit time has it.
std::string LineOf(int nValue, long long llMoment)
{
    const auto nHappenTime = static_cast<std::int32_t>(static_cast<std::uint32_t>(llMoment));
    return "1;85;" + std::to_string(nValue) + ";" + std::to_string(nHappenTime) + "(x);;\r\n";
}

// Sets the clock to the moment that lies that many seconds from another.
void SetClock(MonitoredModule& host, long long llMoment)
{
    host.clock.Set({2038, 1, 1});
    host.clock.AdvanceMs(static_cast<ULONGLONG>(llMoment - host.clock.UnixNow()) * 1000);
}

} // namespace

TEST_CASE("before, on and after the day on which 32-bit times begin anew, alerts are dropped at three days")
{
    const long long llNow =
        GENERATE(WRAP - 86'400, WRAP - 1, WRAP, WRAP + 86'400, WRAP + THREE_DAYS, WRAP + YEAR, WRAP + 60 * YEAR);
    CAPTURE(llNow - WRAP);
    MonitoredModule host({});
    SetClock(host, llNow);
    REQUIRE(host.clock.UnixNow() == llNow);
    host.tree.WriteAlerts(LineOf(1, llNow) + LineOf(2, llNow - THREE_DAYS + 1) + LineOf(3, llNow - THREE_DAYS) +
                          LineOf(4, llNow - YEAR) + LineOf(5, llNow - 60 * YEAR) + LineOf(6, llNow + 86'400) +
                          "1;85;7;soon(x);;\r\n");
    std::vector<int> values;
    for (const FetchedAlert& alert : FetchAlerts(host))
    {
        values.push_back(alert.nValue);
    }
    CHECK(values == std::vector<int>{1, 2, 6});
}

TEST_CASE("an alert of 2039 is stored and fetched with the time of its day")
{
    MonitoredModule host(ConfigBuilder().SetPolicy("Memory", 1, 50, 1, 5));
    host.clock.Set({2039, 6, 1, 12, 0, 0});
    host.memory.SetUtilization(90, 10);
    host.StartAndRun(VARNEX_ALERT_MEMORY);
    host.StopAndEnd(VARNEX_ALERT_MEMORY);

    CHECK(host.tree.Alerts().find("(2039-06-01 12:00:00);PH;") != std::string::npos);
    const std::vector<FetchedAlert> alerts = FetchAlerts(host);
    REQUIRE(alerts.size() == 1);
    CHECK(alerts[0].nType == VARNEX_ALERT_MEMORY);
    CHECK(alerts[0].text.substr(0, 21) == L"2039-06-01 12:00:00, ");
}

} // namespace varnex::test
