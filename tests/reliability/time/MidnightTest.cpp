#include "AlertSpells.h"

#include "reliability/LongForm.h"

#include "support/LogFile.h"
#include "support/PrivateMutexes.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr int MAX_ALERTS = 2;

constexpr wchar_t COUNTS_MUTEX_NAME[] = L"Global\\{49BCAD94-02E7-4d1d-9CDA-5A7246CDD559}";
constexpr wchar_t DATE[] = L"KPMConfiguration/PkiAlertNum/Date";
constexpr wchar_t CPU_COUNT[] = L"KPMConfiguration/PkiAlertNum/CPU";

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
    const int nKinds = CheckEachKindHas(spells, MAX_ALERTS);
    CHECK(CountResets(machine) == spells.size());
    CheckFiles(machine);
    PrintFigure("time: " + std::to_string(nNights) + " midnights in a storm of alerts: counts begun anew " +
                std::to_string(CountResets(machine)) + " times for " + std::to_string(spells.size()) + " dates, " +
                std::to_string(nKinds) + " kinds of alerts of these dates with " + std::to_string(MAX_ALERTS) +
                " each");
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

TEST_CASE("saves that wait over midnight count for the date of their alerts, and the new date begins once")
{
    ConfigBuilder config = StormConfig(1);
    config.SetCounter("Date", "2026-05-01");
    for (const char* pszCount : {"CPU", "PH", "PF", "Disk", "Network"})
    {
        config.SetCounter(pszCount, "0");
    }
    TimedMachine machine(config);
    machine.zone.SetUtc(LocalTime{2026, 5, 1, 23, 59, 54});
    HeldMutex held(COUNTS_MUTEX_NAME);
    machine.StartMonitors();
    machine.Storm(8);
    REQUIRE(machine.clock.Now().wDay == 2);
    CheckStored(machine, L"2026-05-01", 0); // each monitor waits with its first one
    held.LetGo();
    machine.clock.WaitUntilAllAsleep();
    CheckStored(machine, L"2026-05-01", 1);
    CHECK(CountResets(machine) == 0);

    machine.Storm(16);
    machine.Stop();
    CheckStored(machine, L"2026-05-02", 1);
    CHECK(CountResets(machine) == 1);
    const std::vector<AlertSpell> spells = ReadSpells(machine);
    CHECK(DatesOf(spells) == Dates{"2026-05-01", "2026-05-02"});
    CheckEachKindHas(spells, 1);
    CheckFiles(machine);
}

TEST_CASE("a save that gives up behind midnight leaves the day before uncounted, and the new date has its maximum")
{
    TimedMachine machine(StormConfig(MAX_ALERTS));
    machine.zone.SetUtc(LocalTime{2026, 5, 1, 23, 59, 46});
    machine.module.Export<decltype(::StartWorkingThread)>("StartWorkingThread")(VARNEX_ALERT_CPU);
    machine.Storm(8);
    CHECK(machine.tree.ConfigNode(CPU_COUNT) == L"1");

    HeldMutex held(COUNTS_MUTEX_NAME);
    machine.SetLoad(true);
    machine.clock.Advance(92);
    CHECK(LogFile(machine.tree).CountContaining("Failed to get KPMcfg.xml control") == 1);
    held.LetGo();
    CHECK(machine.tree.ConfigNode(CPU_COUNT) == L"1");
    CHECK(machine.tree.ConfigNode(DATE) == L"2026-05-01");
    CHECK(CountResets(machine) == 1);

    machine.SetLoad(false);
    machine.clock.Advance(2);
    machine.Storm(8 * (MAX_ALERTS + 1));
    machine.Stop();
    CHECK(machine.tree.ConfigNode(CPU_COUNT) == std::to_wstring(MAX_ALERTS));
    CHECK(machine.tree.ConfigNode(DATE) == L"2026-05-02");
    CHECK(CountResets(machine) == 2);
    const std::vector<AlertSpell> spells = ReadSpells(machine);
    REQUIRE(DatesOf(spells) == Dates{"2026-05-01", "2026-05-02"});
    CHECK(spells[0].counts == std::map<AlertKind, int>{{{1, ""}, 2}}); // the one that nobody counted went out, too
    CHECK(spells[1].counts == std::map<AlertKind, int>{{{1, ""}, MAX_ALERTS}});
}

} // namespace varnex::test
