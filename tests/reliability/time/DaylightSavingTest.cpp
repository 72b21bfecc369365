#include "AlertSpells.h"

#include "support/AlertLines.h"
#include "support/LogFile.h"

#include <catch2/catch.hpp>

#include <algorithm>

namespace varnex::test
{

namespace
{

// Half a minute of storm gives each kind three or four.
constexpr int MAX_ALERTS = 5;

using Dates = std::vector<std::string>;

// Half a minute of storm up to the jump, with everything running.
void StormUpTo(TimedMachine& machine, const LocalTime& utcOfJump)
{
    LocalTime utc = utcOfJump;
    utc.wHour = static_cast<WORD>(utc.wHour - 1);
    utc.wMinute = 59;
    utc.wSecond = 30;
    machine.zone.SetUtc(utc);
    machine.StartMonitors();
    machine.StartReporting();
    machine.Storm(30);
}

// Whether each kind has alerts on both sides of that moment.
bool HasAlertsAround(const TimedMachine& machine, long long llUnix)
{
    std::map<AlertKind, int> before;
    std::map<AlertKind, int> after;
    for (const AlertLine& line : ReadAlertLines(machine.tree))
    {
        ++(line.llHappenTime < llUnix ? before : after)[{line.nType, line.resource}];
    }
    return before.size() == ALERT_KINDS && after.size() == ALERT_KINDS;
}

bool MomentsGrow(const TimedMachine& machine)
{
    const std::vector<AlertLine> lines = ReadAlertLines(machine.tree);
    return std::is_sorted(lines.begin(), lines.end(),
                          [](const AlertLine& first, const AlertLine& second)
                          { return first.llHappenTime < second.llHappenTime; });
}

// After the jump: the hour shown, every worker at its pace, one date with its maximum, and one beginning of it.
void CheckHourJump(TimedMachine& machine, const TIME_ZONE_INFORMATION& zone, WORD wHourAfter, const std::wstring& date)
{
    const long long llJump = machine.clock.UnixNow();
    CHECK(machine.zone.Now().wHour == wHourAfter);
    machine.StormAtPace();
    CHECK(machine.AskForReport());
    machine.Stop();

    const std::vector<AlertSpell> spells = ReadSpells(machine, zone);
    CHECK(spells.size() == 1);
    CheckEachKindHas(spells, MAX_ALERTS);
    CHECK(HasAlertsAround(machine, llJump));
    CHECK(MomentsGrow(machine));
    CheckStored(machine, date, MAX_ALERTS);
    CHECK(CountResets(machine) == 1);
    CheckFiles(machine);
}

} // namespace

TEST_CASE("summer time that begins leaves the date's counts alone and every worker at its pace")
{
    TimedMachine machine(StormConfig(MAX_ALERTS), CentralEurope());
    StormUpTo(machine, LocalTime{2026, 3, 29, 1});
    CheckHourJump(machine, CentralEurope(), 3, L"2026-03-29");
}

TEST_CASE("summer time that ends leaves the date's counts alone and every worker at its pace")
{
    TimedMachine machine(StormConfig(MAX_ALERTS), CentralEurope());
    StormUpTo(machine, LocalTime{2026, 10, 25, 1});
    CheckHourJump(machine, CentralEurope(), 2, L"2026-10-25");
}

TEST_CASE("summer time that ends at midnight gives the old date its last hour once more, and no second maximum")
{
    TimedMachine machine(StormConfig(MAX_ALERTS), JumpsAtMidnight());
    StormUpTo(machine, LocalTime{2026, 2, 15, 2});
    CheckHourJump(machine, JumpsAtMidnight(), 23, L"2026-02-14");
}

TEST_CASE("summer time that begins at midnight begins the new date's counts once")
{
    TimedMachine machine(StormConfig(MAX_ALERTS), JumpsAtMidnight());
    StormUpTo(machine, LocalTime{2026, 10, 18, 3});
    const LocalTime now = machine.zone.Now();
    CHECK(now.wDay == 18);
    CHECK(now.wHour == 1);
    machine.Storm(60);
    machine.Stop();
    const std::vector<AlertSpell> spells = ReadSpells(machine, JumpsAtMidnight());
    CHECK(DatesOf(spells) == Dates{"2026-10-17", "2026-10-18"});
    CheckEachKindHas({spells.back()}, MAX_ALERTS);
    CheckStored(machine, L"2026-10-18", MAX_ALERTS);
    CHECK(CountResets(machine) == 2);
    CheckFiles(machine);
}

} // namespace varnex::test
