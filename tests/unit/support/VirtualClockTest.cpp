#include "support/VirtualClock.h"

#include "common/Handles.h"
#include "common/Locks.h"
#include "support/ProcessMeter.h"

#include <catch2/catch.hpp>

#include <process.h>
#include <windows.h>

#include <ctime>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

// What the workers below tell; read on the test's thread when they are asleep.
class Journal
{
public:
    void Add(const std::string& text)
    {
        const SlimLockHold hold(m_lock);
        m_text += text;
    }
    std::string Text()
    {
        const SlimLockHold hold(m_lock);
        return m_text;
    }

private:
    SlimLock m_lock;
    std::string m_text;
};

struct Ticker
{
    Journal* pJournal;
    const char* pszMark;
    DWORD dwSleepMs;
    volatile LONG bRunning = 1;
};

DWORD WINAPI RunTicker(void* pTicker)
{
    auto& ticker = *static_cast<Ticker*>(pTicker);
    while (ticker.bRunning != 0)
    {
        ticker.pJournal->Add(ticker.pszMark);
        Sleep(ticker.dwSleepMs);
    }
    ticker.pJournal->Add(".");
    return 7;
}

unsigned __stdcall RunTickerForLibrary(void* pTicker)
{
    return RunTicker(pTicker);
}

// As the module starts its workers: suspended first.
HANDLE StartTicker(Ticker& ticker)
{
    const HANDLE hThread = CreateThread(nullptr, 0, RunTicker, &ticker, CREATE_SUSPENDED, nullptr);
    ResumeThread(hThread);
    return hThread;
}

} // namespace

TEST_CASE("time stands still until it is advanced")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    clock.Set(LocalTime{2026, 1, 31, 23, 59, 58});
    clock.SetTickCount(5000);
    SYSTEMTIME now;
    GetLocalTime(&now);
    CHECK(now.wSecond == 58);
    CHECK(GetTickCount() == 5000);

    clock.Advance(3);
    GetLocalTime(&now);
    CHECK(now.wMonth == 2);
    CHECK(now.wDay == 1);
    CHECK(now.wHour == 0);
    CHECK(now.wSecond == 1);
    CHECK(GetTickCount64() == 8000);
    CHECK(clock.ElapsedMs() == 3000);
}

TEST_CASE("all clocks of the system and of the library show the same moment")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    clock.Set(LocalTime{2026, 7, 1, 12, 0, 0});
    const __time64_t nTime = _time64(nullptr);
    CHECK(clock.UnixNow() == nTime);
    FILETIME utc;
    GetSystemTimeAsFileTime(&utc);
    const ULONGLONG ullUtc = (static_cast<ULONGLONG>(utc.dwHighDateTime) << 32) | utc.dwLowDateTime;
    CHECK(ullUtc / 10000000 - 11644473600 == static_cast<ULONGLONG>(nTime));
    const tm* pLocal = _localtime64(&nTime);
    CHECK(pLocal->tm_hour == 12);
    CHECK(pLocal->tm_mday == 1);
    CHECK(clock.Now().wMonth == 7);
}

TEST_CASE("setting the clock back does not disturb the tick count")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    const DWORD dwTick = GetTickCount();
    clock.Set(LocalTime{2020, 2, 29});
    CHECK(GetTickCount() == dwTick);
    CHECK(clock.Now().wYear == 2020);
}

TEST_CASE("a tick count of 32 bits wraps around")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    clock.SetTickCount(0xFFFFFF00);
    clock.Advance(1);
    CHECK(GetTickCount() == 1000 - 0x100);
    CHECK(GetTickCount64() == 0x100000000 + 1000 - 0x100);
}

TEST_CASE("a sleep of the test's own thread advances the time")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    Sleep(60000);
    SleepEx(1500, FALSE);
    CHECK(clock.ElapsedMs() == 61500);
    CHECK(clock.SleepCount(60000) == 1);
    CHECK(clock.SleepCount(1000) == 0);
}

TEST_CASE("an advance wakes a worker as often as it is due and returns when it sleeps again")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    Journal journal;
    Ticker ticker{&journal, "a", 1000};
    const UniqueHandle thread(StartTicker(ticker));
    clock.WaitUntilAllAsleep();
    CHECK(journal.Text() == "a");
    CHECK(clock.Workers() == 1);
    clock.AdvanceMs(999);
    CHECK(journal.Text() == "a");
    clock.AdvanceMs(1);
    CHECK(journal.Text() == "aa");
    clock.Advance(3);
    CHECK(journal.Text() == "aaaaa");
    ticker.bRunning = 0;
    clock.AdvanceUntilWorkersEnd(1);
    CHECK(journal.Text() == "aaaaa.");
    CHECK(clock.ElapsedMs() == 5000);
    DWORD dwExitCode = 0;
    CHECK(GetExitCodeThread(thread.Get(), &dwExitCode) != FALSE);
    CHECK(dwExitCode == 7);
}

TEST_CASE("workers run in the order in which they are due")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    Journal journal;
    Ticker two{&journal, "2", 2000};
    Ticker three{&journal, "3", 3000};
    const UniqueHandle first(StartTicker(two));
    clock.WaitUntilAllAsleep();
    const UniqueHandle second(StartTicker(three));
    clock.WaitUntilAllAsleep();
    clock.Advance(6); // at 6 s the one with the longer sleep fell asleep earlier
    CHECK(journal.Text() == "2323232");
    two.bRunning = 0;
    three.bRunning = 0;
    clock.AdvanceUntilWorkersEnd(3);
}

TEST_CASE("a thread of the run-time library is a worker, and its end does not hold up an advance")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    Journal journal;
    Ticker ticker{&journal, "b", 1000};
    ticker.bRunning = 0;
    unsigned nThreadId = 0;
    const UniqueHandle thread(
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, RunTickerForLibrary, &ticker, 0, &nThreadId)));
    REQUIRE(thread);
    CHECK(nThreadId == GetThreadId(thread.Get()));
    clock.Advance(10);
    CHECK(journal.Text() == ".");
    CHECK(clock.Workers() == 0);
    CHECK(WaitForSingleObject(thread.Get(), 0) == WAIT_OBJECT_0);
}

TEST_CASE("a thread that ends by ExitThread does not hold up an advance")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    clock.RunOnOtherThread(
        []
        {
            Sleep(1000);
            ExitThread(0);
        });
    clock.Advance(2);
    CHECK(clock.Workers() == 0);
}

TEST_CASE("a thread that the module did not create is a worker from its first sleep on")
{
    Journal journal;
    Ticker ticker{&journal, "f", 1000};
    ImportRedirector redirector;
    UniqueHandle thread;
    {
        VirtualClock clock(redirector);
        redirector.Restore("CreateThread"); // so this one comes from elsewhere
        thread.Reset(CreateThread(nullptr, 0, RunTicker, &ticker, 0, nullptr));
        while (clock.Workers() == 0)
        {
            SwitchToThread();
        }
        clock.Advance(2);
        CHECK(journal.Text() == "fff");
        ticker.bRunning = 0;
        clock.AdvanceUntilWorkersEnd(1);
    }
    CHECK(journal.Text() == "fff.");
}

TEST_CASE("a wait times out in virtual time")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    const UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    Journal journal;
    clock.RunOnOtherThread(
        [&] { journal.Add(WaitForSingleObject(event.Get(), 4200000) == WAIT_TIMEOUT ? "time-out" : "signal"); });
    clock.Advance(4199);
    CHECK(journal.Text().empty());
    clock.Advance(1);
    CHECK(journal.Text() == "time-out");
}

TEST_CASE("a wait sees the signal of another thread at the virtual time at which it comes")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    const UniqueHandle event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    Journal journal;
    clock.RunOnOtherThread(
        [&]
        {
            WaitForSingleObject(event.Get(), INFINITE);
            journal.Add(std::to_string(clock.ElapsedMs()));
        });
    clock.RunOnOtherThread(
        [&]
        {
            Sleep(5000);
            SetEvent(event.Get());
        });
    clock.Advance(60);
    CHECK(journal.Text() == "5000");
    CHECK(clock.Workers() == 0);
}

TEST_CASE("a wait sees a signal from outside without any advance")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    const UniqueHandle begin(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    const UniqueHandle finish(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    clock.RunOnOtherThread(
        [&]
        {
            WaitForSingleObject(begin.Get(), 60000);
            SetEvent(finish.Get());
        });
    clock.WaitUntilAllAsleep();
    const UnscriptedScope unscripted; // as a test of the DLL waits, whose own imports are not redirected
    SetEvent(begin.Get());
    CHECK(WaitForSingleObject(finish.Get(), 10000) == WAIT_OBJECT_0);
}

TEST_CASE("a worker that waits for a critical section lets the owner's sleep end")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    Journal journal;
    clock.RunOnOtherThread(
        [&]
        {
            EnterCriticalSection(&section);
            Sleep(1000);
            journal.Add("owner ");
            LeaveCriticalSection(&section);
        });
    clock.WaitUntilAllAsleep();
    clock.RunOnOtherThread(
        [&]
        {
            EnterCriticalSection(&section);
            journal.Add("other at " + std::to_string(clock.ElapsedMs()));
            LeaveCriticalSection(&section);
        });
    clock.WaitUntilAllAsleep();
    CHECK(journal.Text().empty());
    clock.Advance(1);
    CHECK(journal.Text() == "owner other at 1000");
    DeleteCriticalSection(&section);
}

TEST_CASE("the test's own thread gets a lock whose owner sleeps by letting the time pass")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    CriticalSection section;
    InitializeCriticalSection(&section);
    clock.RunOnOtherThread(
        [&]
        {
            const CriticalSectionHold hold(section);
            Sleep(1000);
        });
    clock.WaitUntilAllAsleep();
    {
        const CriticalSectionHold hold(section);
        CHECK(clock.ElapsedMs() == 1000);
    }
    DeleteCriticalSection(&section);
}

TEST_CASE("a wait of the test's own thread for a worker lets time pass until it ends")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    Journal journal;
    Ticker ticker{&journal, "w", 1000};
    const UniqueHandle thread(StartTicker(ticker));
    CHECK(WaitForSingleObject(thread.Get(), 2500) == WAIT_TIMEOUT);
    CHECK(clock.ElapsedMs() == 2500);
    ticker.bRunning = 0;
    CHECK(WaitForSingleObject(thread.Get(), INFINITE) == WAIT_OBJECT_0);
    CHECK(clock.ElapsedMs() == 3000);
}

TEST_CASE("a function can be run while time passes for its sleeps")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    int nSleeps = 0;
    clock.RunWhileAdvancing(
        [&]
        {
            for (nSleeps = 0; nSleeps < 15; ++nSleeps)
            {
                Sleep(1000);
            }
        });
    CHECK(nSleeps == 15);
    CHECK(clock.ElapsedMs() == 15000);
    CHECK(clock.SleepCount(1000) == 15);
}

TEST_CASE("an advance up to a condition stops at the very sleep that fulfils it")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    Journal journal;
    Ticker ticker{&journal, "x", 1000};
    const UniqueHandle thread(StartTicker(ticker));
    CHECK(clock.AdvanceUntil([&] { return journal.Text() == "xxxxx"; }, 100));
    CHECK(clock.ElapsedMs() == 4000);
    CHECK_FALSE(clock.AdvanceUntil([&] { return journal.Text() == "never"; }, 10));
    CHECK(clock.ElapsedMs() == 14000);
    ticker.bRunning = 0;
    clock.AdvanceUntilWorkersEnd(1);
}

TEST_CASE("a sleeping worker can be ended by force")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    Journal journal;
    Ticker ticker{&journal, "t", 1000};
    const UniqueHandle thread(StartTicker(ticker));
    clock.Advance(1);
    CHECK(TerminateThread(thread.Get(), 3) != FALSE);
    clock.Advance(5);
    CHECK(clock.Workers() == 0);
    CHECK(journal.Text() == "tt");
    DWORD dwExitCode = 0;
    CHECK(GetExitCodeThread(thread.Get(), &dwExitCode) != FALSE);
    CHECK(dwExitCode == 3);
}

TEST_CASE("a worker that is suspended stands still without it, so that it can be ended or go on")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    Journal journal;
    Ticker ticker{&journal, "t", 1000};
    const UniqueHandle thread(StartTicker(ticker));
    clock.Advance(1);
    CHECK(SuspendThread(thread.Get()) == 0);
    ResumeThread(thread.Get());
    clock.Advance(1);
    CHECK(journal.Text() == "ttt");
    CHECK(SuspendThread(thread.Get()) == 0);
    CHECK(TerminateThread(thread.Get(), 0) != FALSE);
    clock.Advance(5);
    CHECK(clock.Workers() == 0);
    CHECK(journal.Text() == "ttt");
}

TEST_CASE("a sleeping worker that is ended by force leaves its sleep by itself")
{
    static DWORD dwIndex = 0;
    static bool bLeft = false;
    dwIndex = FlsAlloc([](void*) { bLeft = true; }); // for a thread that exits, not for one that is killed
    const auto sleepForEver = [](void* pValue) -> DWORD
    {
        FlsSetValue(dwIndex, pValue);
        Sleep(INFINITE);
        return 0;
    };
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    const UniqueHandle thread(CreateThread(nullptr, 0, sleepForEver, &clock, 0, nullptr));
    clock.Advance(1);
    CHECK_FALSE(bLeft);
    CHECK(TerminateThread(thread.Get(), 0) != FALSE);
    CHECK(bLeft);
    FlsFree(dwIndex);
}

TEST_CASE("a worker that is ended by force leaves no handle of the clock's open")
{
    const DWORD dwFlags = GENERATE(0UL, static_cast<DWORD>(CREATE_SUSPENDED));
    CAPTURE(dwFlags);
    const auto endOne = [dwFlags]
    {
        ImportRedirector redirector;
        VirtualClock clock(redirector);
        const auto sleepForEver = [](void*) -> DWORD
        {
            Sleep(INFINITE);
            return 0;
        };
        const UniqueHandle thread(CreateThread(nullptr, 0, sleepForEver, nullptr, dwFlags, nullptr));
        clock.Advance(1);
        CHECK(TerminateThread(thread.Get(), 0) != FALSE);
        clock.Advance(1);
    };
    endOne();
    const std::size_t nHandles = CountHandles();
    endOne();
    CHECK(CountHandles() == nHandles);
}

TEST_CASE("a worker that is stuck in a scripted call counts as asleep and can be ended by force")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    const UniqueHandle never(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const auto getStuck = [&]() -> LANGID
    {
        clock.Block(never.Get());
        return 0;
    };
    redirector.Replace<decltype(::GetSystemDefaultLangID)>("GetSystemDefaultLangID", getStuck);
    const UniqueHandle thread(CreateThread(
        nullptr, 0, [](void*) -> DWORD { return GetSystemDefaultLangID(); }, nullptr, 0, nullptr));
    clock.Advance(15);
    CHECK(clock.Workers() == 1);
    CHECK(TerminateThread(thread.Get(), 9) != FALSE);
    CHECK(WaitForSingleObject(thread.Get(), 0) == WAIT_OBJECT_0);
    CHECK(clock.Workers() == 0);
}

TEST_CASE("a thread that is created suspended does nothing, and holds up nothing, until it is resumed")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    Journal journal;
    Ticker ticker{&journal, "s", 1000};
    ticker.bRunning = 0;
    const UniqueHandle thread(CreateThread(nullptr, 0, RunTicker, &ticker, CREATE_SUSPENDED, nullptr));
    clock.Advance(5);
    CHECK(journal.Text().empty());
    CHECK(ResumeThread(thread.Get()) == 1);
    clock.WaitUntilAllAsleep();
    CHECK(journal.Text() == ".");
}

TEST_CASE("a thread that cannot be created is no worker, and the caller sees why")
{
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    Journal journal;
    Ticker ticker{&journal, "n", 1000};
    redirector.FailCall("CreateThread", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    CHECK(CreateThread(nullptr, 0, RunTicker, &ticker, 0, nullptr) == nullptr);
    CHECK(GetLastError() == ERROR_NOT_ENOUGH_MEMORY);
    clock.Advance(1);
    CHECK(clock.Workers() == 0);
}

TEST_CASE("the same run gives the same order every time")
{
    std::vector<std::string> runs;
    for (int nRun = 0; nRun < 5; ++nRun)
    {
        ImportRedirector redirector;
        VirtualClock clock(redirector);
        Journal journal;
        Ticker tickers[] = {{&journal, "a", 300}, {&journal, "b", 500}, {&journal, "c", 700}, {&journal, "d", 1000}};
        UniqueHandle threads[4];
        for (int nTicker = 0; nTicker < 4; ++nTicker)
        {
            threads[nTicker].Reset(StartTicker(tickers[nTicker]));
            clock.WaitUntilAllAsleep();
        }
        clock.Advance(60);
        runs.push_back(journal.Text());
        for (Ticker& ticker : tickers)
        {
            ticker.bRunning = 0;
        }
        clock.AdvanceUntilWorkersEnd(2);
    }
    CHECK(runs[0].size() == 4 + 200 + 120 + 85 + 60);
    CHECK(std::vector<std::string>(5, runs[0]) == runs);
}

} // namespace varnex::test
