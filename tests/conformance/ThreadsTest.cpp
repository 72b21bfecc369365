// Threads, critical sections, slim locks and sleeps.

#include "Codes.h"
#include "Conformance.h"
#include "OtherThread.h"

#include "support/ChildProcess.h"
#include "support/VirtualClock.h"

#include <catch2/catch.hpp>

#include <process.h>

#include <atomic>

namespace varnex::test
{

namespace
{

constexpr DWORD PATIENCE_MS = 20000;

Fakes ClockFakes()
{
    return {FakeOf<VirtualClock>("virtual clock")};
}

// Never deleted: a thread may wait for it for ever.
CRITICAL_SECTION& NewSection()
{
    auto* pSection = new CRITICAL_SECTION;
    InitializeCriticalSection(pSection);
    return *pSection;
}

SRWLOCK& NewSlimLock()
{
    return *new SRWLOCK(SRWLOCK_INIT);
}

std::string ExitCodeOf(HANDLE hThread)
{
    DWORD dwCode = 0;
    GetExitCodeThread(hThread, &dwCode);
    return dwCode == STILL_ACTIVE ? "STILL_ACTIVE" : std::to_string(dwCode);
}

// Whether a thread of its own gets it at once.
template <class TryTake>
std::string GetsIt(const TryTake& tryTake)
{
    std::string answer = "no answer";
    OtherThread thread([&] { answer = tryTake() ? "taken" : "held"; });
    thread.WaitForEnd();
    return answer;
}

// Whether it is had within half a second by a thread of its own that waits for it.
std::string Comes(const std::function<void()>& take)
{
    const auto bTaken = std::make_shared<std::atomic<bool>>(false);
    OtherThread thread(
        [=](HANDLE hReady)
        {
            SetEvent(hReady);
            take();
            *bTaken = true;
            Sleep(PATIENCE_MS);
        });
    thread.WaitUntilReady();
    Sleep(500);
    return *bTaken ? "woken" : "never woken";
}

const std::string THREAD_PAGE = "windows/win32/api/processthreadsapi/nf-processthreadsapi-createthread";
const std::string RESUME_PAGE = "windows/win32/api/processthreadsapi/nf-processthreadsapi-resumethread";
const std::string TERMINATE_PAGE = "windows/win32/api/processthreadsapi/nf-processthreadsapi-terminatethread";
const std::string EXIT_CODE_PAGE = "windows/win32/api/processthreadsapi/nf-processthreadsapi-getexitcodethread";
const std::string INITIALIZE_PAGE = "windows/win32/api/synchapi/nf-synchapi-initializecriticalsection";
const std::string SECTIONS_PAGE = "windows/win32/sync/critical-section-objects";
const std::string SLIM_PAGE = "windows/win32/sync/slim-reader-writer--srw--locks";
const std::string SLEEP_PAGE = "windows/win32/api/synchapi/nf-synchapi-sleep";

} // namespace

// --- threads --------------------------------------------------------------------------------------------------------

TEST_CASE("threads: a thread that was created suspended runs when it is resumed")
{
    Verify(
        Documented("not before, 1, afterwards", THREAD_PAGE),
        []
        {
            std::atomic<bool> bRan{false};
            OtherThread thread([&] { bRan = true; }, CREATE_SUSPENDED);
            Sleep(100);
            std::string answer = bRan ? "before, " : "not before, ";
            answer += std::to_string(ResumeThread(thread.Get()));
            thread.WaitForEnd();
            return answer + (bRan ? ", afterwards" : ", never");
        },
        ClockFakes());
}

TEST_CASE("threads: resuming a thread that runs tells 0 and does nothing")
{
    Verify(
        Documented("0", RESUME_PAGE),
        []
        {
            OtherThread thread(
                [](HANDLE hReady)
                {
                    SetEvent(hReady);
                    Sleep(200);
                });
            thread.WaitUntilReady();
            return std::to_string(ResumeThread(thread.Get()));
        },
        ClockFakes());
}

TEST_CASE("threads: a thread's exit code is its body's result")
{
    Verify(
        Documented("STILL_ACTIVE, 3", EXIT_CODE_PAGE),
        []
        {
            OtherThread thread(
                [](HANDLE hReady)
                {
                    SetEvent(hReady);
                    Sleep(200);
                });
            thread.WaitUntilReady();
            const std::string before = ExitCodeOf(thread.Get());
            thread.WaitForEnd();
            return before + ", " + ExitCodeOf(thread.Get());
        },
        ClockFakes());
}

TEST_CASE("threads: a thread's handle is signalled by its end")
{
    Verify(
        Documented("WAIT_TIMEOUT, WAIT_OBJECT_0", THREAD_PAGE),
        []
        {
            OtherThread thread([] { Sleep(500); });
            const std::string before = WaitName(WaitForSingleObject(thread.Get(), 100));
            return before + ", " + WaitName(WaitForSingleObject(thread.Get(), PATIENCE_MS));
        },
        ClockFakes());
}

TEST_CASE("threads: a thread that is ended by force has the exit code that was given")
{
    Verify(
        Documented("5", TERMINATE_PAGE),
        []
        {
            OtherThread thread(
                [](HANDLE hReady)
                {
                    SetEvent(hReady);
                    Sleep(PATIENCE_MS);
                });
            thread.EndByForce();
            return ExitCodeOf(thread.Get());
        },
        ClockFakes());
}

TEST_CASE("threads: a suspended thread can be ended by force before it runs")
{
    Verify(
        Documented("TRUE, never ran", TERMINATE_PAGE),
        []
        {
            std::atomic<bool> bRan{false};
            OtherThread thread([&] { bRan = true; }, CREATE_SUSPENDED);
            const std::string outcome = Outcome(TerminateThread(thread.Get(), 0));
            thread.WaitForEnd();
            return outcome + (bRan ? ", ran" : ", never ran");
        },
        ClockFakes());
}

TEST_CASE("threads: a thread that has ended keeps its exit code when it is ended by force")
{
    Verify(
        Unknown(TERMINATE_PAGE).OnWine("TRUE, 3"),
        []
        {
            OtherThread thread([] {});
            thread.WaitForEnd();
            return Outcome(TerminateThread(thread.Get(), 5)) + ", " + ExitCodeOf(thread.Get());
        },
        ClockFakes());
}

TEST_CASE("threads: a thread that is ended by force runs no end of its own")
{
    Verify(
        Documented("not told", TERMINATE_PAGE).OnFake("virtual clock", "told", "a worker that sleeps ends itself"),
        []
        {
            static std::atomic<bool> s_bTold{false};
            s_bTold = false;
            const DWORD dwSlot = FlsAlloc([](void*) { s_bTold = true; });
            OtherThread thread(
                [=](HANDLE hReady)
                {
                    FlsSetValue(dwSlot, &s_bTold);
                    SetEvent(hReady);
                    Sleep(PATIENCE_MS);
                });
            thread.EndByForce();
            return std::string(s_bTold ? "told" : "not told");
        },
        ClockFakes());
}

TEST_CASE("threads: a thread that ends tells what it has per thread")
{
    Verify(
        Documented("told", "windows/win32/api/fibersapi/nf-fibersapi-flsalloc"),
        []
        {
            static std::atomic<bool> s_bTold{false};
            s_bTold = false;
            const DWORD dwSlot = FlsAlloc([](void*) { s_bTold = true; });
            OtherThread thread([=] { FlsSetValue(dwSlot, &s_bTold); });
            thread.WaitForEnd();
            return std::string(s_bTold ? "told" : "not told");
        },
        ClockFakes());
}

TEST_CASE("threads: a thread's priority is the one that was set before it ran")
{
    Verify(
        Documented("TRUE, 1", "windows/win32/api/processthreadsapi/nf-processthreadsapi-setthreadpriority"),
        []
        {
            int nPriority = 0;
            OtherThread thread([&] { nPriority = GetThreadPriority(GetCurrentThread()); }, CREATE_SUSPENDED);
            const std::string outcome = Outcome(SetThreadPriority(thread.Get(), THREAD_PRIORITY_ABOVE_NORMAL));
            ResumeThread(thread.Get());
            thread.WaitForEnd();
            return outcome + ", " + std::to_string(nPriority);
        },
        ClockFakes());
}

TEST_CASE("threads: the run-time library's threads have handles that stay open")
{
    Verify(
        Documented("WAIT_OBJECT_0, 9", "cpp/c-runtime-library/reference/beginthread-beginthreadex"),
        []
        {
            const auto body = [](void*) -> unsigned { return 9; };
            const UniqueHandle thread(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, +body, nullptr, 0, nullptr)));
            const std::string waited = WaitName(WaitForSingleObject(thread.Get(), PATIENCE_MS));
            return waited + ", " + ExitCodeOf(thread.Get());
        },
        ClockFakes());
}

TEST_CASE("threads: each thread has a last error of its own")
{
    Verify(
        Documented("12", "windows/win32/api/errhandlingapi/nf-errhandlingapi-getlasterror"),
        []
        {
            DWORD dwError = 0;
            OtherThread thread(
                [&](HANDLE hReady)
                {
                    SetEvent(hReady);
                    SetLastError(12);
                    Sleep(200);
                    dwError = GetLastError();
                });
            thread.WaitUntilReady();
            SetLastError(11);
            thread.WaitForEnd();
            return std::to_string(dwError);
        },
        ClockFakes());
}

// --- critical sections ----------------------------------------------------------------------------------------------

TEST_CASE("threads: a critical section is its thread's own again and again, and nobody else's")
{
    Verify(
        Documented("entered, held, taken", SECTIONS_PAGE),
        []
        {
            CRITICAL_SECTION& section = NewSection();
            const auto tryEnter = [&] { return TryEnterCriticalSection(&section) != FALSE; };
            EnterCriticalSection(&section);
            std::string answer = tryEnter() ? "entered, " : "refused, ";
            LeaveCriticalSection(&section);
            answer += GetsIt(tryEnter) + ", ";
            LeaveCriticalSection(&section);
            return answer + GetsIt(tryEnter);
        },
        ClockFakes());
}

TEST_CASE("threads: a critical section that is left wakes the thread that waits for it")
{
    Verify(
        Documented("woken", SECTIONS_PAGE),
        []
        {
            CRITICAL_SECTION& section = NewSection();
            const auto bTaken = std::make_shared<std::atomic<bool>>(false);
            EnterCriticalSection(&section);
            OtherThread thread(
                [&section, bTaken](HANDLE hReady)
                {
                    SetEvent(hReady);
                    EnterCriticalSection(&section);
                    *bTaken = true;
                    LeaveCriticalSection(&section);
                });
            thread.WaitUntilReady();
            Sleep(50);
            LeaveCriticalSection(&section);
            thread.WaitForEnd();
            return std::string(*bTaken ? "woken" : "never woken");
        },
        ClockFakes());
}

TEST_CASE("threads: a critical section names its owner")
{
    Verify(
        Unknown(SECTIONS_PAGE).OnWine("its thread's id, 0 when it is free"),
        []
        {
            CRITICAL_SECTION& section = NewSection();
            EnterCriticalSection(&section);
            const bool bOwned = reinterpret_cast<ULONG_PTR>(section.OwningThread) == GetCurrentThreadId();
            LeaveCriticalSection(&section);
            return std::string(bOwned ? "its thread's id" : "something else") +
                   (section.OwningThread == nullptr ? ", 0 when it is free" : ", not 0 when it is free");
        },
        ClockFakes());
}

TEST_CASE("threads: a critical section whose thread ended stays held")
{
    Verify(
        Documented("held", SECTIONS_PAGE),
        []
        {
            CRITICAL_SECTION& section = NewSection();
            OtherThread thread([&] { EnterCriticalSection(&section); });
            thread.WaitForEnd();
            return std::string(TryEnterCriticalSection(&section) ? "taken" : "held");
        },
        ClockFakes());
}

TEST_CASE("threads: a critical section whose thread was ended by force stays held")
{
    Verify(
        Documented("held", TERMINATE_PAGE),
        []
        {
            CRITICAL_SECTION& section = NewSection();
            OtherThread thread(
                [&](HANDLE hReady)
                {
                    EnterCriticalSection(&section);
                    SetEvent(hReady);
                    Sleep(PATIENCE_MS);
                });
            thread.EndByForce();
            return std::string(TryEnterCriticalSection(&section) ? "taken" : "held");
        },
        ClockFakes());
}

TEST_CASE("threads: a critical section that is initialised again is free")
{
    Verify(
        Unknown(INITIALIZE_PAGE).OnWine("taken"),
        []
        {
            CRITICAL_SECTION& section = NewSection();
            OtherThread thread([&] { EnterCriticalSection(&section); });
            thread.WaitForEnd();
            InitializeCriticalSection(&section);
            return std::string(TryEnterCriticalSection(&section) ? "taken" : "held");
        },
        ClockFakes());
}

TEST_CASE("threads: a waiter of a critical section that is initialised again is never woken")
{
    Verify(
        Unknown(INITIALIZE_PAGE).OnWine("never woken"),
        []
        {
            CRITICAL_SECTION& section = NewSection();
            EnterCriticalSection(&section);
            const auto bTaken = std::make_shared<std::atomic<bool>>(false);
            OtherThread waiter(
                [&section, bTaken](HANDLE hReady)
                {
                    SetEvent(hReady);
                    EnterCriticalSection(&section);
                    *bTaken = true;
                });
            waiter.WaitUntilReady();
            Sleep(100);
            InitializeCriticalSection(&section);
            EnterCriticalSection(&section);
            LeaveCriticalSection(&section);
            Sleep(500);
            return std::string(*bTaken ? "woken" : "never woken");
        },
        ClockFakes());
}

TEST_CASE("threads: a critical section that a thread waited for when it was ended by force can be had by others")
{
    Verify(
        Unknown(TERMINATE_PAGE).OnWine("woken"),
        []
        {
            CRITICAL_SECTION& section = NewSection();
            EnterCriticalSection(&section);
            {
                OtherThread waiter(
                    [&](HANDLE hReady)
                    {
                        SetEvent(hReady);
                        EnterCriticalSection(&section);
                    });
                waiter.WaitUntilReady();
                Sleep(100);
                waiter.EndByForce();
            }
            LeaveCriticalSection(&section);
            return Comes([&] { EnterCriticalSection(&section); });
        },
        ClockFakes());
}

// --- slim locks -----------------------------------------------------------------------------------------------------

TEST_CASE("threads: a slim lock is not taken twice by one thread")
{
    Verify(
        Documented("refused, taken", SLIM_PAGE),
        []
        {
            SRWLOCK& lock = NewSlimLock();
            AcquireSRWLockExclusive(&lock);
            const std::string first = TryAcquireSRWLockExclusive(&lock) ? "entered" : "refused";
            ReleaseSRWLockExclusive(&lock);
            return first + ", " + GetsIt([&] { return TryAcquireSRWLockExclusive(&lock) != FALSE; });
        },
        ClockFakes());
}

TEST_CASE("threads: readers share a slim lock")
{
    Verify(
        Documented("taken, held", SLIM_PAGE),
        []
        {
            SRWLOCK& lock = NewSlimLock();
            AcquireSRWLockShared(&lock);
            const std::string shared = GetsIt([&] { return TryAcquireSRWLockShared(&lock) != FALSE; });
            return shared + ", " + GetsIt([&] { return TryAcquireSRWLockExclusive(&lock) != FALSE; });
        },
        ClockFakes());
}

TEST_CASE("threads: a slim lock that is released wakes the thread that waits for it")
{
    Verify(
        Documented("woken", SLIM_PAGE),
        []
        {
            SRWLOCK& lock = NewSlimLock();
            const auto bTaken = std::make_shared<std::atomic<bool>>(false);
            AcquireSRWLockExclusive(&lock);
            OtherThread thread(
                [&lock, bTaken](HANDLE hReady)
                {
                    SetEvent(hReady);
                    AcquireSRWLockExclusive(&lock);
                    *bTaken = true;
                    ReleaseSRWLockExclusive(&lock);
                });
            thread.WaitUntilReady();
            Sleep(50);
            ReleaseSRWLockExclusive(&lock);
            thread.WaitForEnd();
            return std::string(*bTaken ? "woken" : "never woken");
        },
        ClockFakes());
}

TEST_CASE("threads: a slim lock whose thread was ended by force stays held")
{
    Verify(
        Documented("held", TERMINATE_PAGE),
        []
        {
            SRWLOCK& lock = NewSlimLock();
            OtherThread thread(
                [&](HANDLE hReady)
                {
                    AcquireSRWLockExclusive(&lock);
                    SetEvent(hReady);
                    Sleep(PATIENCE_MS);
                });
            thread.EndByForce();
            return std::string(TryAcquireSRWLockExclusive(&lock) ? "taken" : "held");
        },
        ClockFakes());
}

TEST_CASE("child: a thread that waits for a slim lock is ended by force", "[.]")
{
    SRWLOCK& lock = NewSlimLock();
    AcquireSRWLockExclusive(&lock);
    {
        OtherThread waiter(
            [&](HANDLE hReady)
            {
                SetEvent(hReady);
                AcquireSRWLockExclusive(&lock);
            });
        waiter.WaitUntilReady();
        Sleep(200);
        waiter.EndByForce();
    }
    ReleaseSRWLockExclusive(&lock);
    ExitProcess(Comes([&] { AcquireSRWLockExclusive(&lock); }) == "woken" ? 40 : 41);
}

// The waiter's block in the lock's list lies on its stack, which the system frees.
TEST_CASE("threads: a slim lock that a thread waited for when it was ended by force can be had by others")
{
    Verify(Unknown(TERMINATE_PAGE).OnWine("woken"),
           []
           {
               const ChildProcess child =
                   ChildProcess::OfTestCase("child: a thread that waits for a slim lock is ended by force");
               if (!child.WaitForEnd(PATIENCE_MS))
               {
                   return std::string("the process hangs");
               }
               const DWORD dwCode = child.ExitCode();
               return std::string(dwCode == 40 ? "woken" : dwCode == 41 ? "never woken" : "the process crashes");
           });
}

// --- sleeps ---------------------------------------------------------------------------------------------------------

TEST_CASE("threads: a sleep lasts as long as was said")
{
    Verify(
        Documented("in time", SLEEP_PAGE),
        []
        {
            const ULONGLONG ullBegin = GetTickCount64();
            Sleep(200);
            const ULONGLONG ullSlept = GetTickCount64() - ullBegin;
            return std::string(ullSlept + 20 >= 200 && ullSlept < 5000 ? "in time" : "at another time");
        },
        ClockFakes());
}

TEST_CASE("threads: a sleep of another thread lasts as long as was said")
{
    Verify(
        Documented("in time", SLEEP_PAGE),
        []
        {
            ULONGLONG ullSlept = 0;
            OtherThread thread(
                [&]
                {
                    const ULONGLONG ullBegin = GetTickCount64();
                    Sleep(200);
                    ullSlept = GetTickCount64() - ullBegin;
                });
            thread.WaitForEnd();
            return std::string(ullSlept + 20 >= 200 && ullSlept < 5000 ? "in time" : "at another time");
        },
        ClockFakes());
}

TEST_CASE("threads: a sleep that nothing ends early tells 0")
{
    Verify(
        Documented("0", "windows/win32/api/synchapi/nf-synchapi-sleepex"),
        [] { return std::to_string(SleepEx(10, FALSE)); }, ClockFakes());
}

TEST_CASE("threads: shorter sleeps end before longer ones")
{
    Verify(
        Documented("short, long", SLEEP_PAGE),
        []
        {
            std::string order;
            SRWLOCK lock = SRWLOCK_INIT;
            const auto sleeper = [&](DWORD dwMs, const char* pszName)
            {
                return [&order, &lock, dwMs, pszName]
                {
                    Sleep(dwMs);
                    AcquireSRWLockExclusive(&lock);
                    order += order.empty() ? pszName : std::string(", ") + pszName;
                    ReleaseSRWLockExclusive(&lock);
                };
            };
            OtherThread second(sleeper(600, "long"));
            OtherThread first(sleeper(100, "short"));
            second.WaitForEnd();
            first.WaitForEnd();
            return order;
        },
        ClockFakes());
}

} // namespace varnex::test
