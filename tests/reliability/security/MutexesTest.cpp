#include "HostUnderAttack.h"
#include "HostileObject.h"

#include "reliability/LongForm.h"
#include "support/AlertLines.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

// Mutexes that somebody holds, or dies with.

namespace varnex::test
{

namespace
{

constexpr wchar_t TAKE_VARIABLE[] = L"VARNEX_TEST_TAKE";
constexpr DWORD DIED_WITH_IT = 77;
constexpr DWORD LOG_WAIT_MS = 5'000;

UniqueHandle MakeHeldMutex(const std::wstring& name)
{
    UniqueHandle mutex(CreateMutexW(nullptr, FALSE, name.c_str()));
    REQUIRE(mutex);
    REQUIRE(WaitForSingleObject(mutex.Get(), 0) == WAIT_OBJECT_0);
    return mutex;
}

// The log mutex of a host that has begun: one of these names exists.
std::wstring FindLogMutex(const std::vector<std::wstring>& names)
{
    for (const std::wstring& name : names)
    {
        if (UniqueHandle(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str())))
        {
            return name;
        }
    }
    FAIL("the host's log has no mutex");
    return {};
}

} // namespace

TEST_CASE("child: dies with a mutex", "[.]")
{
    wchar_t wszName[128] = L"";
    REQUIRE(GetEnvironmentVariableW(TAKE_VARIABLE, wszName, 128) != 0);
    const UniqueHandle mutex(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, wszName));
    REQUIRE(mutex);
    REQUIRE(WaitForSingleObject(mutex.Get(), INFINITE) == WAIT_OBJECT_0);
    TerminateProcess(GetCurrentProcess(), DIED_WITH_IT);
}

TEST_CASE("the alert file's mutex held for good delays stores and fetches by a minute each, and loses none")
{
    const UniqueHandle held = MakeHeldMutex(ALERT_MUTEX_NAME);
    HostUnderAttack host;
    host.Begin();
    CHECK(host.AwaitAlerts());
    CHECK(host.FetchAll() == 2);
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    CHECK(host.WaitsOf(60'000) == 3); // two stores and a fetch
    host.End();
    CHECK(host.tree.Alerts().empty());
}

TEST_CASE("the counts' mutex held for good delays each count by a minute and a half and keeps it out of the file")
{
    const UniqueHandle held = MakeHeldMutex(COUNTS_MUTEX_NAME);
    HostUnderAttack host;
    host.Begin();
    CHECK(host.AwaitAlerts());
    CHECK(host.WaitsOf(90'000) == 2);
    CHECK(host.FetchAll() == 2);
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    host.End();
    CHECK_THAT(host.Log(), HasLineContaining("SaveAlertNumIntoLocal -- Failed to get KPMcfg.xml control"));
    CHECK(host.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/PH") == L"0");
}

TEST_CASE("the log's mutex held costs each line and five seconds, and no work, and afterwards lines come again")
{
    std::vector<UniqueHandle> held;
    for (const std::wstring& name : LogMutexNames(10))
    {
        held.push_back(MakeHeldMutex(name));
    }
    HostUnderAttack host;
    host.Begin();
    CHECK(host.AwaitAlerts());
    CHECK(host.FetchAll() == 2);
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    CHECK(host.Log().Lines().empty());
    CHECK(host.WaitsOf(5'000) > 10);
    for (const UniqueHandle& mutex : held)
    {
        ReleaseMutex(mutex.Get());
    }
    CHECK(host.CanLog());
    host.End();
}

// The thread that comes next has the mutex then, and never gives it back: that is how it has always been.
TEST_CASE("a process that dies with the log's mutex costs lines and time, and no work")
{
    const std::vector<std::wstring> names = LogMutexNames(10);
    HostUnderAttack host;
    host.Begin();
    ChildOptions options;
    options.environment[TAKE_VARIABLE] = FindLogMutex(names);
    const ChildProcess thief = ChildProcess::OfTestCase("child: dies with a mutex", options);
    REQUIRE(thief.WaitForEnd(HostUnderAttack::PATIENCE_MS));
    REQUIRE(thief.ExitCode() == DIED_WITH_IT);
    CHECK(host.AwaitAlerts());
    CHECK(host.FetchAll() == 2);
    host.StartReports(); // the host's thread has a line for the log here, and the report thread below: only one has it
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    host.End();
    const Waits& waits = host.ResultsOf(LOG_WAIT_MS);
    const LONG nTimedOut = waits.nTimedOut;
    const LONG nLost = waits.nAbandoned + nTimedOut;
    CHECK(waits.nAbandoned > 0);
    CHECK(nTimedOut > 0);
    const std::size_t nWritten = host.Log().Lines().size() - host.LinesOfLoad();
    CHECK(nWritten == static_cast<std::size_t>(waits.nGot));
    PrintFigure("hostile process: one dies with the log's mutex: " + std::to_string(nLost) + " lines lost, " +
                std::to_string(nTimedOut) + " of them after five seconds, " + std::to_string(nWritten) + " written");
}

} // namespace varnex::test
