#include "AlertSpells.h"

#include "reliability/LongForm.h"

#include "common/Handles.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr int MAX_ALERTS = 50;
constexpr ULONGLONG WRAP_OF_32_BITS = 1ULL << 32;

struct StormResult
{
    std::string alerts;
    Measurements measured;
};

// A minute of storm; the tick count stands ullMsBefore milliseconds before ullWrap when it begins.
StormResult StormOver(ULONGLONG ullWrap, ULONGLONG ullMsBefore)
{
    TimedMachine machine(StormConfig(MAX_ALERTS));
    machine.zone.SetUtc(LocalTime{2026, 6, 10, 12});
    machine.clock.SetTickCount(ullWrap - ullMsBefore);
    machine.StartMonitors();
    machine.Storm(60);
    CHECK(machine.clock.TickCount() == ullWrap - ullMsBefore + 60'000);
    CheckFiles(machine);
    return {machine.tree.Alerts(), machine.Measured()};
}

// The configuration is in other hands for ten seconds, and free again. How many pauses of 50 ms the monitors made to wait
// for it.
ULONGLONG PausesWhileHeld(ULONGLONG ullTickAtBegin)
{
    TimedMachine machine(StormConfig(MAX_ALERTS));
    machine.clock.SetTickCount(ullTickAtBegin);
    machine.StartMonitors();
    machine.clock.Advance(1);
    {
        const UnscriptedScope unscripted;
        const UniqueFile held(CreateFileW(machine.tree.InBin(L"KpmCfg.xml").c_str(), GENERIC_READ, 0, nullptr,
                                          OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        REQUIRE(held);
        machine.clock.Advance(10);
    }
    const ULONGLONG ullPauses = machine.clock.SleepCount(50);
    // It is free again. Whoever could not read his interval waits by the default one, of 90 seconds at most.
    machine.clock.Advance(91);
    machine.StormAtPace();
    CHECK(machine.clock.SleepCount(50) == ullPauses);
    return ullPauses;
}

} // namespace

TEST_CASE("a tick count that wraps at 32 bits changes no alert and no measurement")
{
    const StormResult plain = StormOver(WRAP_OF_32_BITS, 600'000);
    const StormResult wrapped = StormOver(WRAP_OF_32_BITS, 30'000);
    CHECK(wrapped.alerts == plain.alerts);
    CHECK(wrapped.measured.ullCpu == plain.measured.ullCpu);
    CHECK(wrapped.measured.ullMemory == plain.measured.ullMemory);
    CHECK(wrapped.measured.ullDisk == plain.measured.ullDisk);
    CHECK(wrapped.measured.ullNetwork == plain.measured.ullNetwork);
    CHECK(plain.alerts.size() > 1000);
    PrintFigure("time: a tick count that wraps in a storm: the same " + std::to_string(plain.alerts.size()) +
                " bytes of alerts and the same measurements as without");
}

TEST_CASE("the second of patience with a file in other hands ends, whatever bit of the tick count wraps in it")
{
    const ULONGLONG ullPlain = PausesWhileHeld(WRAP_OF_32_BITS - 600'000);
    CHECK(ullPlain > 100);
    CHECK(PausesWhileHeld(WRAP_OF_32_BITS - 1500) == ullPlain);
    CHECK(PausesWhileHeld(0ULL - 1500) == ullPlain);
}

} // namespace varnex::test
