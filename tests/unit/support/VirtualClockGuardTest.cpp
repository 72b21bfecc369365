#include "support/ChildProcess.h"
#include "support/VirtualClock.h"

#include <catch2/catch.hpp>

#include <windows.h>

namespace varnex::test
{

TEST_CASE("child: a worker never gets on", "[.]")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    clock.SetGuard(500);
    volatile LONG bStop = 0;
    clock.RunOnOtherThread(
        [&]
        {
            while (bStop == 0)
            {
                SwitchToThread();
            }
        });
    try
    {
        clock.Advance(1);
    }
    catch (...)
    {
        bStop = 1;
        throw;
    }
}

TEST_CASE("child: a worker does not end", "[.]")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    volatile LONG bStop = 0;
    clock.RunOnOtherThread(
        [&]
        {
            while (bStop == 0)
            {
                Sleep(1000);
            }
        });
    try
    {
        clock.AdvanceUntilWorkersEnd(5);
    }
    catch (...)
    {
        bStop = 1;
        clock.Advance(1);
        throw;
    }
}

TEST_CASE("child: waits for what nobody brings", "[.]")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    clock.SetGuard(500);
    const HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    WaitForSingleObject(hEvent, INFINITE); // returns without it, and the clock tells at its end
    CloseHandle(hEvent);
}

TEST_CASE("a worker that never sleeps fails the test instead of hanging it")
{
    const ChildProcess child = ChildProcess::OfTestCase("child: a worker never gets on");
    REQUIRE(child.WaitForEnd(20000));
    CHECK(child.ExitCode() == 1);
    CHECK_THAT(child.Output(), Catch::Contains("The virtual clock gave up"));
    CHECK_THAT(child.Output(), Catch::Contains("is running and has the turn"));
}

TEST_CASE("a worker that does not end fails the test")
{
    const ChildProcess child = ChildProcess::OfTestCase("child: a worker does not end");
    REQUIRE(child.WaitForEnd(20000));
    CHECK(child.ExitCode() == 1);
    CHECK_THAT(child.Output(), Catch::Contains("1 workers still live after 5 s"));
}

TEST_CASE("a wait of the test's own thread for nothing fails the test")
{
    const ChildProcess child = ChildProcess::OfTestCase("child: waits for what nobody brings");
    REQUIRE(child.WaitForEnd(20000));
    CHECK(child.ExitCode() == 1);
    CHECK_THAT(child.Output(), Catch::Contains("The virtual clock gave up"));
}

} // namespace varnex::test
