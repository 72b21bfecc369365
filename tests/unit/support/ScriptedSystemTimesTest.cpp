#include "support/ScriptedSystemTimes.h"

#include <catch2/catch.hpp>

#include <windows.h>

namespace varnex::test
{

namespace
{

ULONGLONG Units(const FILETIME& time)
{
    return (static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

struct Times
{
    ULONGLONG ullIdle = 0;
    ULONGLONG ullKernel = 0;
    ULONGLONG ullUser = 0;
};

Times ReadTimes()
{
    const FARPROC pfnFound = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetSystemTimes");
    auto* pfnGetSystemTimes = reinterpret_cast<decltype(::GetSystemTimes)*>(reinterpret_cast<void*>(pfnFound));
    FILETIME idle{};
    FILETIME kernel{};
    FILETIME user{};
    pfnGetSystemTimes(&idle, &kernel, &user);
    return {Units(idle), Units(kernel), Units(user)};
}

int Utilization(const Times& earlier, const Times& later)
{
    const ULONGLONG ullTotal = later.ullKernel + later.ullUser - earlier.ullKernel - earlier.ullUser;
    const ULONGLONG ullBusy = ullTotal - (later.ullIdle - earlier.ullIdle);
    return static_cast<int>(ullBusy * 100 / ullTotal);
}

} // namespace

TEST_CASE("consecutive readings show exactly the utilization that was set")
{
    ImportRedirector redirector;
    ScriptedExports exports(redirector);
    ScriptedSystemTimes cpu(exports);
    for (int nPercent = 0; nPercent <= 100; ++nPercent)
    {
        const Times earlier = ReadTimes();
        cpu.SetUtilization(nPercent);
        CHECK(Utilization(earlier, ReadTimes()) == nPercent);
    }
}

TEST_CASE("a sequence of utilizations is read in order and its last one stays")
{
    ImportRedirector redirector;
    ScriptedExports exports(redirector);
    ScriptedSystemTimes cpu(exports);
    Times last = ReadTimes();
    cpu.SetUtilizations({90, 84, 85});
    for (const int nExpected : {90, 84, 85, 85})
    {
        const Times next = ReadTimes();
        CHECK(Utilization(last, next) == nExpected);
        last = next;
    }
    CHECK(cpu.Reads() == 5);
}

TEST_CASE("the first reading after a restart is exact against zero times")
{
    ImportRedirector redirector;
    ScriptedExports exports(redirector);
    ScriptedSystemTimes cpu(exports);
    cpu.SetUtilization(10);
    ReadTimes();
    cpu.Restart();
    cpu.SetUtilization(73);
    CHECK(Utilization({}, ReadTimes()) == 73);
}

TEST_CASE("times can be given as they are, stand still, and fail")
{
    ImportRedirector redirector;
    ScriptedExports exports(redirector);
    ScriptedSystemTimes cpu(exports);
    cpu.SetTimes(1, 2, 3);
    for (int nRead = 0; nRead < 2; ++nRead)
    {
        const Times times = ReadTimes();
        CHECK(times.ullIdle == 1);
        CHECK(times.ullKernel == 2);
        CHECK(times.ullUser == 3);
    }
    cpu.Fail(ERROR_ACCESS_DENIED);
    CHECK(ReadTimes().ullKernel == 0);
    CHECK(GetLastError() == ERROR_ACCESS_DENIED);
}

} // namespace varnex::test
