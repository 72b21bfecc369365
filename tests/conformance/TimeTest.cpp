// Clocks, time zones, processor times, memory and handles.

#include "Codes.h"
#include "Conformance.h"

#include "common/Handles.h"
#include "reliability/time/LocalZone.h"
#include "support/ScriptedMemoryStatus.h"
#include "support/ScriptedSystemTimes.h"
#include "support/VirtualClock.h"

#include <catch2/catch.hpp>

#include <psapi.h>

#include <cstdlib>
#include <ctime>

namespace varnex::test
{

namespace
{

constexpr ULONGLONG UNITS_PER_SECOND = 10'000'000;
constexpr ULONGLONG SECONDS_1601_TO_1970 = 11'644'473'600;

struct ZonedClock
{
    explicit ZonedClock(ImportRedirector& redirector) : clock(redirector), zone(redirector, clock, CentralEurope()) {}
    VirtualClock clock;
    LocalZone zone;
};

Fakes ClockFakes()
{
    return {FakeOf<VirtualClock>("virtual clock"), FakeOf<ZonedClock>("local zone")};
}

// A stand-in of functions that are looked up.
template <class StandIn>
Fake ExportFake(const char* pszName)
{
    struct Machine
    {
        ImportRedirector redirector;
        ScriptedExports exports{redirector};
        StandIn standIn{exports};
    };
    return {pszName,
            []
            {
                auto machine = std::make_shared<Machine>();
                if constexpr (std::is_same_v<StandIn, ScriptedSystemTimes>)
                {
                    machine->standIn.SetUtilization(60);
                }
                else
                {
                    machine->standIn.SetUtilization(75, 40);
                }
                return machine;
            },
            false};
}

ULONGLONG Units(const FILETIME& time)
{
    return static_cast<ULONGLONG>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

ULONGLONG Units(const SYSTEMTIME& time)
{
    FILETIME fileTime{};
    SystemTimeToFileTime(&time, &fileTime);
    return Units(fileTime);
}

bool IsNear(ULONGLONG ullFirst, ULONGLONG ullSecond)
{
    const ULONGLONG ullDistance = ullFirst > ullSecond ? ullFirst - ullSecond : ullSecond - ullFirst;
    return ullDistance <= 5 * UNITS_PER_SECOND;
}

std::string LocalHour(WORD wMonth, WORD wDay, WORD wHour)
{
    const TIME_ZONE_INFORMATION zone = CentralEurope();
    const SYSTEMTIME utc{2026, wMonth, 0, wDay, wHour, 0, 0, 0};
    SYSTEMTIME local{};
    SystemTimeToTzSpecificLocalTime(&zone, &utc, &local);
    return std::to_string(local.wHour);
}

struct Times
{
    BOOL bRead;
    ULONGLONG ullIdle;
    ULONGLONG ullKernel;
    ULONGLONG ullUser;
};

Times ReadTimes()
{
    using Function = BOOL(WINAPI*)(LPFILETIME, LPFILETIME, LPFILETIME);
    const auto pfnRead = reinterpret_cast<Function>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetSystemTimes")));
    FILETIME idle{};
    FILETIME kernel{};
    FILETIME user{};
    const BOOL bRead = pfnRead(&idle, &kernel, &user);
    return {bRead, Units(idle), Units(kernel), Units(user)};
}

BOOL ReadMemory(MEMORYSTATUSEX& status)
{
    using Function = BOOL(WINAPI*)(LPMEMORYSTATUSEX);
    const auto pfnRead = reinterpret_cast<Function>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GlobalMemoryStatusEx")));
    return pfnRead(&status);
}

MEMORYSTATUSEX ReadWholeMemory()
{
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof status;
    ReadMemory(status);
    return status;
}

const std::string TICK_PAGE = "windows/win32/api/sysinfoapi/nf-sysinfoapi-gettickcount";
const std::string LONG_TICK_PAGE = "windows/win32/api/sysinfoapi/nf-sysinfoapi-gettickcount64";
const std::string FILE_TIME_PAGE = "windows/win32/sysinfo/file-times";
const std::string LOCAL_TIME_PAGE = "windows/win32/api/sysinfoapi/nf-sysinfoapi-getlocaltime";
const std::string ZONE_PAGE = "windows/win32/api/timezoneapi/nf-timezoneapi-systemtimetotzspecificlocaltime";
const std::string CONVERT_PAGE = "windows/win32/api/timezoneapi/nf-timezoneapi-filetimetosystemtime";
const std::string SYSTEM_TIMES_PAGE = "windows/win32/api/processthreadsapi/nf-processthreadsapi-getsystemtimes";
const std::string MEMORY_PAGE = "windows/win32/api/sysinfoapi/ns-sysinfoapi-memorystatusex";
const std::string MEMORY_CALL_PAGE = "windows/win32/api/sysinfoapi/nf-sysinfoapi-globalmemorystatusex";

} // namespace

// --- clocks ---------------------------------------------------------------------------------------------------------

TEST_CASE("time: the short tick count is the low half of the long one")
{
    Verify(
        Documented("the low half", TICK_PAGE),
        []
        {
            const DWORD dwShort = GetTickCount();
            const auto dwLow = static_cast<DWORD>(GetTickCount64());
            return std::string(dwLow - dwShort < 5000 ? "the low half" : "something else");
        },
        ClockFakes());
}

TEST_CASE("time: the tick count never goes back")
{
    Verify(
        Documented("never", LONG_TICK_PAGE),
        []
        {
            ULONGLONG ullLast = GetTickCount64();
            bool bBack = false;
            for (int i = 0; i < 1000; ++i)
            {
                const ULONGLONG ullNow = GetTickCount64();
                bBack = bBack || ullNow < ullLast;
                ullLast = ullNow;
            }
            return std::string(bBack ? "it does" : "never");
        },
        ClockFakes());
}

TEST_CASE("time: a sleep moves the clock and the tick count alike")
{
    Verify(
        Documented("alike", LONG_TICK_PAGE),
        []
        {
            FILETIME before{};
            FILETIME after{};
            const ULONGLONG ullTick = GetTickCount64();
            GetSystemTimeAsFileTime(&before);
            Sleep(300);
            const ULONGLONG ullTicks = GetTickCount64() - ullTick;
            GetSystemTimeAsFileTime(&after);
            const ULONGLONG ullClock = (Units(after) - Units(before)) / 10000;
            return std::string(ullTicks + 50 >= 300 && ullClock + 50 >= 300 && ullTicks + 2000 > ullClock &&
                                       ullClock + 2000 > ullTicks
                                   ? "alike"
                                   : "differently");
        },
        ClockFakes());
}

TEST_CASE("time: the system's clock and the run-time library's show the same time")
{
    Verify(
        Documented("the same", FILE_TIME_PAGE),
        []
        {
            FILETIME now{};
            GetSystemTimeAsFileTime(&now);
            const auto ullSeconds = static_cast<ULONGLONG>(std::time(nullptr));
            return std::string(IsNear(Units(now), (ullSeconds + SECONDS_1601_TO_1970) * UNITS_PER_SECOND)
                                   ? "the same"
                                   : "another one");
        },
        ClockFakes());
}

TEST_CASE("time: the system's clock shows the same as a file time and in fields")
{
    Verify(
        Documented("the same", FILE_TIME_PAGE),
        []
        {
            FILETIME now{};
            SYSTEMTIME fields{};
            GetSystemTimeAsFileTime(&now);
            GetSystemTime(&fields);
            return std::string(IsNear(Units(now), Units(fields)) ? "the same" : "another one");
        },
        ClockFakes());
}

TEST_CASE("time: the local clock is the system's in the machine's time zone")
{
    Verify(
        Documented("the same", LOCAL_TIME_PAGE),
        []
        {
            FILETIME now{};
            SYSTEMTIME utc{};
            SYSTEMTIME converted{};
            SYSTEMTIME local{};
            GetSystemTimeAsFileTime(&now);
            FileTimeToSystemTime(&now, &utc);
            SystemTimeToTzSpecificLocalTime(nullptr, &utc, &converted);
            GetLocalTime(&local);
            return std::string(IsNear(Units(converted), Units(local)) ? "the same" : "another one");
        },
        ClockFakes());
}

TEST_CASE("time: the local clock tells the day of the week")
{
    Verify(
        Documented("that of its date", LOCAL_TIME_PAGE),
        []
        {
            SYSTEMTIME local{};
            SYSTEMTIME again{};
            FILETIME time{};
            GetLocalTime(&local);
            SystemTimeToFileTime(&local, &time);
            FileTimeToSystemTime(&time, &again);
            return std::string(local.wDayOfWeek == again.wDayOfWeek ? "that of its date" : "another one");
        },
        ClockFakes());
}

TEST_CASE("time: file times count units of 100 ns from 1601 on")
{
    Verify(Documented("1970-01-01 00:00", FILE_TIME_PAGE),
           []
           {
               const ULONGLONG ullUnits = SECONDS_1601_TO_1970 * UNITS_PER_SECOND;
               const FILETIME time{static_cast<DWORD>(ullUnits), static_cast<DWORD>(ullUnits >> 32)};
               SYSTEMTIME fields{};
               FileTimeToSystemTime(&time, &fields);
               char szText[32];
               std::snprintf(szText, sizeof szText, "%04d-%02d-%02d %02d:%02d", fields.wYear, fields.wMonth,
                             fields.wDay, fields.wHour, fields.wMinute);
               return std::string(szText);
           });
}

TEST_CASE("time: a file time of the upper half is refused")
{
    Verify(Documented("FALSE, ERROR_INVALID_PARAMETER", CONVERT_PAGE),
           []
           {
               const FILETIME time{0, 0x80000000};
               SYSTEMTIME fields{};
               return Outcome(FileTimeToSystemTime(&time, &fields));
           });
}

TEST_CASE("time: a time zone's summer time holds from its day on to its day")
{
    Verify(Documented("13 in winter, 14 in summer; 1 and 3 in March; 2 and 2 in October", ZONE_PAGE),
           []
           {
               return LocalHour(1, 15, 12) + " in winter, " + LocalHour(7, 15, 12) + " in summer; " +
                      LocalHour(3, 29, 0) + " and " + LocalHour(3, 29, 1) + " in March; " + LocalHour(10, 25, 0) +
                      " and " + LocalHour(10, 25, 1) + " in October";
           });
}

TEST_CASE("time: a date that there is not is refused by a time zone")
{
    Verify(Documented("FALSE", ZONE_PAGE),
           []
           {
               const SYSTEMTIME utc{2026, 2, 0, 30, 12, 0, 0, 0};
               SYSTEMTIME local{};
               return std::string(SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local) ? "TRUE" : "FALSE");
           });
}

// --- processors and memory ------------------------------------------------------------------------------------------

TEST_CASE("time: the kernel's processor time includes the idle one")
{
    Verify(Documented("TRUE, included", SYSTEM_TIMES_PAGE),
           []
           {
               const Times first = ReadTimes();
               Sleep(200);
               const Times second = ReadTimes();
               return std::string(first.bRead ? "TRUE" : "FALSE") +
                      (second.ullKernel - first.ullKernel + UNITS_PER_SECOND / 10 >= second.ullIdle - first.ullIdle &&
                               second.ullIdle <= second.ullKernel
                           ? ", included"
                           : ", not included");
           },
           {ExportFake<ScriptedSystemTimes>("scripted system times")});
}

TEST_CASE("time: processor times never go back")
{
    Verify(Documented("never", SYSTEM_TIMES_PAGE),
           []
           {
               Times last = ReadTimes();
               bool bBack = false;
               for (int i = 0; i < 20; ++i)
               {
                   const Times now = ReadTimes();
                   bBack = bBack || now.ullKernel < last.ullKernel || now.ullUser < last.ullUser;
                   last = now;
               }
               return std::string(bBack ? "they do" : "never");
           },
           {ExportFake<ScriptedSystemTimes>("scripted system times")});
}

TEST_CASE("time: the processor times of a second add up to a second of each processor")
{
    Verify(Documented("they add up", SYSTEM_TIMES_PAGE),
           []
           {
               SYSTEM_INFO system{};
               GetSystemInfo(&system);
               const ULONGLONG ullBegin = GetTickCount64();
               const Times first = ReadTimes();
               Sleep(1000);
               const Times second = ReadTimes();
               const ULONGLONG ullWall = (GetTickCount64() - ullBegin) * 10000 * system.dwNumberOfProcessors;
               const ULONGLONG ullSum = second.ullKernel - first.ullKernel + second.ullUser - first.ullUser;
               return std::string(ullSum > ullWall / 2 && ullSum < ullWall * 2 ? "they add up" : "they do not");
           });
}

TEST_CASE("time: a memory status without its length is refused")
{
    Verify(Documented("FALSE, ERROR_INVALID_PARAMETER", MEMORY_CALL_PAGE),
           []
           {
               MEMORYSTATUSEX status{};
               return Outcome(ReadMemory(status));
           },
           {ExportFake<ScriptedMemoryStatus>("scripted memory status")});
}

TEST_CASE("time: no more memory is available than there is")
{
    Verify(Documented("physical, paging", MEMORY_PAGE),
           []
           {
               const MEMORYSTATUSEX status = ReadWholeMemory();
               return std::string(status.ullTotalPhys != 0 && status.ullAvailPhys <= status.ullTotalPhys ? "physical"
                                                                                                         : "no") +
                      (status.ullTotalPageFile != 0 && status.ullAvailPageFile <= status.ullTotalPageFile ? ", paging"
                                                                                                          : ", no");
           },
           {ExportFake<ScriptedMemoryStatus>("scripted memory status")});
}

TEST_CASE("time: the memory load is about the part of the physical memory in use")
{
    Verify(Documented("about the part", MEMORY_PAGE),
           []
           {
               const MEMORYSTATUSEX status = ReadWholeMemory();
               const auto nUsed =
                   static_cast<int>((status.ullTotalPhys - status.ullAvailPhys) * 100 / status.ullTotalPhys);
               return std::string(std::abs(static_cast<int>(status.dwMemoryLoad) - nUsed) <= 3 ? "about the part"
                                                                                               : "another number");
           },
           {ExportFake<ScriptedMemoryStatus>("scripted memory status")});
}

TEST_CASE("time: a process has room for addresses")
{
    Verify(Documented("room", MEMORY_PAGE),
           []
           {
               const MEMORYSTATUSEX status = ReadWholeMemory();
               return std::string(
                   status.ullTotalVirtual > 0x7000000000 && status.ullAvailVirtual <= status.ullTotalVirtual ? "room"
                                                                                                             : "none");
           },
           {ExportFake<ScriptedMemoryStatus>("scripted memory status")});
}

TEST_CASE("time: a process's handles are counted")
{
    Verify(Documented("one more", "windows/win32/api/processthreadsapi/nf-processthreadsapi-getprocesshandlecount")
               .OnWine("0"),
           []
           {
               DWORD dwBefore = 0;
               DWORD dwAfter = 0;
               GetProcessHandleCount(GetCurrentProcess(), &dwBefore);
               const UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
               GetProcessHandleCount(GetCurrentProcess(), &dwAfter);
               return std::string(dwBefore != 0 && dwAfter == dwBefore + 1 ? "one more" : std::to_string(dwAfter));
           });
}

} // namespace varnex::test
