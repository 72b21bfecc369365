#include "HostUnderAttack.h"
#include "HostileObject.h"
#include "LostName.h"

#include "support/TestText.h"

#include <catch2/catch.hpp>

// Names of the module that something else has already.

namespace varnex::test
{

namespace
{

using Kind = HostileObject::Kind;

constexpr char TAKEN[] = "(6"; // ERROR_INVALID_HANDLE: an object of another kind has the name

void CheckLifeBeside(Kind kind, const LostName& name)
{
    if (kind == name.own)
    {
        return;
    }
    CAPTURE(Utf8FromWide(name.pwszName), TextOf(kind));
    const HostileObject taken(kind, name.pwszName);
    CheckLifeWithout(name, TAKEN);
}

} // namespace

TEST_CASE("an event's or the section's name that an object of another kind has takes reports away, and nothing else")
{
    const std::size_t nName = GENERATE(0, 1, 2);
    const Kind kind = GENERATE(from_range(std::begin(HostileObject::KINDS), std::end(HostileObject::KINDS)));
    CheckLifeBeside(kind, LOST_NAMES[nName]);
}

TEST_CASE("a mutex's name that an object of another kind has takes that mutex away, and nothing else of the host's")
{
    const std::size_t nName = GENERATE(3, 4);
    const Kind kind = GENERATE(from_range(std::begin(HostileObject::KINDS), std::end(HostileObject::KINDS)));
    CheckLifeBeside(kind, LOST_NAMES[nName]);
}

TEST_CASE("a host whose log's name an object of another kind has writes no line and does all its work")
{
    const Kind kind = GENERATE(Kind::Event, Kind::Semaphore, Kind::Timer, Kind::Section); // all but its own
    CheckLifeWithoutLog(kind, nullptr);
}

TEST_CASE("a host beside which nobody does anything has all of it")
{
    HostUnderAttack host;
    host.Begin();
    CHECK(host.AwaitAlerts());
    CHECK(host.FetchAll() == 2);
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    CHECK(host.CanLog());
    host.End();
    CHECK(host.WrittenPaths() == std::set<std::wstring>{L"A\\B\\Logs", L"A\\B\\Logs\\Varnex.log",
                                                        L"A\\B\\bin\\KpmCfg.xml", L"A\\B\\bin\\KpmCfg.xml.tmp",
                                                        L"A\\B\\bin\\LocalAlt.dat", L"A\\B\\bin\\LocalAlt_Backup.dat"});
    CHECK(host.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/PH") == L"1");
    CHECK(host.LongestWaitMs() >= 60'000); // the waits are the module's own
    CHECK(host.Log().CountContaining("PrepareSendingMMFAndEvent") == 0);
}

} // namespace varnex::test
