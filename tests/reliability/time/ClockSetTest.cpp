#include "AlertSpells.h"

#include "reliability/LongForm.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr int MAX_ALERTS = 2;
constexpr unsigned ENOUGH = 24; // seconds of storm for everybody's maximum

using Dates = std::vector<std::string>;

// Everything runs, and the counts are used up.
void UseUp(TimedMachine& machine, const LocalTime& utc)
{
    machine.zone.SetUtc(utc);
    machine.StartMonitors();
    machine.StartReporting();
    machine.Storm(ENOUGH);
}

void PrintSpells(const TimedMachine& machine, const std::string& what)
{
    const std::vector<AlertSpell> spells = ReadSpells(machine);
    int nAlerts = 0;
    for (const AlertSpell& spell : spells)
    {
        for (const auto& [kind, nCount] : spell.counts)
        {
            nAlerts += nCount;
        }
    }
    PrintFigure("time: a clock set " + what + ": counts begun anew " + std::to_string(CountResets(machine)) +
                " times, " + std::to_string(nAlerts) + " alerts in " + std::to_string(spells.size()) + " spells");
}

// The dates in the order in which the clock came to them: each began its counts anew, and has every kind's maximum.
void CheckDates(TimedMachine& machine, const std::string& what, const Dates& dates)
{
    const std::vector<AlertSpell> spells = ReadSpells(machine);
    CHECK(DatesOf(spells) == dates);
    CheckEachKindHas(spells, MAX_ALERTS);
    CHECK(CountResets(machine) == dates.size());
    PrintSpells(machine, what);
}

} // namespace

TEST_CASE("a clock set back an hour gives the date no second maximum")
{
    TimedMachine machine(StormConfig(MAX_ALERTS));
    UseUp(machine, LocalTime{2026, 6, 10, 12});
    machine.zone.SetUtc(LocalTime{2026, 6, 10, 11});
    machine.StormAtPace();
    CHECK(machine.AskForReport());
    machine.Stop();
    CheckEachKindHas(ReadSpells(machine), MAX_ALERTS);
    CheckStored(machine, L"2026-06-10", MAX_ALERTS);
    CHECK(CountResets(machine) == 1);
    CheckFiles(machine);
    PrintSpells(machine, "back an hour");
}

TEST_CASE("a clock set back an hour before any count was saved changes nothing")
{
    TimedMachine machine(StormConfig(MAX_ALERTS));
    machine.zone.SetUtc(LocalTime{2026, 6, 10, 12});
    machine.StartMonitors();
    machine.clock.Advance(30);
    machine.zone.SetUtc(LocalTime{2026, 6, 10, 11});
    machine.Storm(ENOUGH);
    CheckEachKindHas(ReadSpells(machine), MAX_ALERTS);
    CHECK(CountResets(machine) == 1);
    PrintSpells(machine, "back an hour before any count was saved");
}

TEST_CASE("a clock set back an hour over midnight begins a date's counts with each change of the date")
{
    TimedMachine machine(StormConfig(MAX_ALERTS));
    UseUp(machine, LocalTime{2026, 6, 10, 0, 30});
    machine.zone.SetUtc(LocalTime{2026, 6, 9, 23, 30});
    machine.StormAtPace();
    machine.Stop();
    CheckDates(machine, "back an hour over midnight", Dates{"2026-06-10", "2026-06-09"});
    CheckFiles(machine);
}

TEST_CASE("a clock set back a day gives that day its maximum, and the day after it once more when it comes again")
{
    TimedMachine machine(StormConfig(MAX_ALERTS));
    UseUp(machine, LocalTime{2026, 6, 10, 23, 59});
    machine.zone.SetUtc(LocalTime{2026, 6, 9, 23, 59});
    machine.StormAtPace();
    CHECK(machine.AskForReport());
    CheckStored(machine, L"2026-06-09", MAX_ALERTS);
    machine.Storm(60); // over midnight
    machine.Stop();
    CheckDates(machine, "back a day, until that day has passed", Dates{"2026-06-10", "2026-06-09", "2026-06-10"});
    CheckFiles(machine);
}

TEST_CASE("a clock set back a day before any count was saved begins that day's counts only")
{
    TimedMachine machine(StormConfig(MAX_ALERTS));
    machine.zone.SetUtc(LocalTime{2026, 6, 10, 12});
    machine.StartMonitors();
    machine.clock.Advance(30);
    machine.zone.SetUtc(LocalTime{2026, 6, 9, 12});
    machine.Storm(ENOUGH);
    CheckDates(machine, "back a day before any count was saved", Dates{"2026-06-09"});
}

TEST_CASE("a clock set forward a day gives the new date its maximum at once, and no worker waits for it")
{
    TimedMachine machine(StormConfig(MAX_ALERTS));
    UseUp(machine, LocalTime{2026, 6, 10, 12});
    machine.zone.SetUtc(LocalTime{2026, 6, 11, 12});
    machine.StormAtPace();
    CHECK(machine.AskForReport());
    machine.Stop();
    CheckDates(machine, "forward a day", Dates{"2026-06-10", "2026-06-11"});
    CheckFiles(machine);
}

} // namespace varnex::test
