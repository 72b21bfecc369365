#include "AlertSpells.h"

#include "reliability/LongForm.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr int MAX_ALERTS = 2;

using Dates = std::vector<std::string>;

} // namespace

TEST_CASE("midnight in a storm of alerts begins the counts anew, once, and each date has its maximum")
{
    const unsigned nNights = IsLongForm() ? 40 : 2;
    TimedMachine machine(StormConfig(MAX_ALERTS));
    machine.StartMonitors();
    for (unsigned nNight = 0; nNight < nNights; ++nNight)
    {
        const auto wDay = static_cast<WORD>(1 + nNight % 28);
        machine.zone.SetUtc(LocalTime{static_cast<WORD>(2026 + nNight / 28), 5, wDay, 23, 59, 36});
        machine.Storm(48);
    }
    machine.Stop();

    const std::vector<AlertSpell> spells = ReadSpells(machine);
    CHECK(spells.size() >= nNights + 1);
    CheckEachKindHas(spells, MAX_ALERTS);
    CHECK(CountResets(machine) == spells.size());
    CheckFiles(machine);
    PrintFigure("time: " + std::to_string(nNights) + " midnights in a storm of alerts: counts begun anew " +
                std::to_string(CountResets(machine)) + " times for " + std::to_string(spells.size()) +
                " dates, each with " + std::to_string(MAX_ALERTS) + " alerts of each of five kinds");
}

TEST_CASE("the counts of the new date stand in the configuration before midnight is half a minute old")
{
    TimedMachine machine(StormConfig(MAX_ALERTS));
    machine.zone.SetUtc(LocalTime{2026, 12, 31, 23, 59, 30});
    machine.StartMonitors();
    machine.Storm(29);
    CheckStored(machine, L"2026-12-31", MAX_ALERTS);
    machine.Storm(25);
    CheckStored(machine, L"2027-01-01", MAX_ALERTS);
    CHECK(DatesOf(ReadSpells(machine)) == Dates{"2026-12-31", "2027-01-01"});
}

} // namespace varnex::test
