#include "support/VirtualClock.h"

#include "common/Locks.h"
#include "support/ClockCore.h"

#include <catch2/catch.hpp>

#include <process.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <map>

namespace varnex::test
{

namespace
{

using Core = std::shared_ptr<ClockCore>;

SYSTEMTIME ToSystemTime(const LocalTime& time)
{
    SYSTEMTIME system{};
    system.wYear = time.wYear;
    system.wMonth = time.wMonth;
    system.wDay = time.wDay;
    system.wHour = time.wHour;
    system.wMinute = time.wMinute;
    system.wSecond = time.wSecond;
    return system;
}

template <class Time>
Time ReadUnix(const Core& core, Time* pTime)
{
    const auto nTime = static_cast<Time>(core->Read([](const VirtualTime& time) { return time.UnixSeconds(); }));
    if (pTime != nullptr)
    {
        *pTime = nTime;
    }
    return nTime;
}

void ScriptSleeps(RestoredImports& imports, const Core& core)
{
    const auto sleep = [core](DWORD dwMilliseconds) { core->Sleep(dwMilliseconds); };
    const auto sleepEx = [core](DWORD dwMilliseconds, BOOL) -> DWORD
    {
        core->Sleep(dwMilliseconds);
        return 0;
    };
    imports.TryReplace<decltype(::Sleep)>("Sleep", sleep);
    imports.TryReplace<decltype(::SleepEx)>("SleepEx", sleepEx);
}

void ScriptTicks(RestoredImports& imports, const Core& core)
{
    const auto readLong = [core] { return core->Read([](const VirtualTime& time) { return time.Tick(); }); };
    const auto readShort = [readLong] { return static_cast<DWORD>(readLong()); };
    imports.TryReplace<decltype(::GetTickCount)>("GetTickCount", readShort);
    imports.TryReplace<decltype(::GetTickCount64)>("GetTickCount64", readLong);
}

void ScriptSystemClocks(RestoredImports& imports, const Core& core)
{
    const auto readFileTime = [core](LPFILETIME pTime)
    { *pTime = core->Read([](const VirtualTime& time) { return time.Utc(); }); };
    const auto readUtc = [readFileTime](LPSYSTEMTIME pTime)
    {
        FILETIME utc;
        readFileTime(&utc);
        FileTimeToSystemTime(&utc, pTime);
    };
    const auto readLocal = [core](LPSYSTEMTIME pTime)
    { *pTime = core->Read([](const VirtualTime& time) { return time.Local(); }); };
    imports.TryReplace<decltype(::GetSystemTimeAsFileTime)>("GetSystemTimeAsFileTime", readFileTime);
    imports.TryReplace<void(LPFILETIME)>("GetSystemTimePreciseAsFileTime", readFileTime);
    imports.TryReplace<decltype(::GetSystemTime)>("GetSystemTime", readUtc);
    imports.TryReplace<decltype(::GetLocalTime)>("GetLocalTime", readLocal);
}

void ScriptLibraryClocks(RestoredImports& imports, const Core& core)
{
    imports.TryReplace<decltype(::_time32)>("_time32", [core](__time32_t* pTime) { return ReadUnix(core, pTime); });
    imports.TryReplace<decltype(::_time64)>("_time64", [core](__time64_t* pTime) { return ReadUnix(core, pTime); });
    imports.TryReplace<decltype(::time)>("time", [core](time_t* pTime) { return ReadUnix(core, pTime); });
}

void ScriptWaits(RestoredImports& imports, const Core& core)
{
    const auto wait = [core](HANDLE hObject, DWORD dwMilliseconds)
    { return core->WaitForObject(hObject, dwMilliseconds); };
    const auto waitEx = [wait](HANDLE hObject, DWORD dwMilliseconds, BOOL) { return wait(hObject, dwMilliseconds); };
    imports.TryReplace<decltype(::WaitForSingleObject)>("WaitForSingleObject", wait);
    imports.TryReplace<decltype(::WaitForSingleObjectEx)>("WaitForSingleObjectEx", waitEx);
}

// How often each critical section was initialised. One that is initialised again never wakes those who wait for it.
class SectionMakings
{
public:
    void Add(LPCRITICAL_SECTION pSection)
    {
        const SlimLockHold hold(m_lock);
        ++m_makings[pSection];
    }
    ULONGLONG Count(LPCRITICAL_SECTION pSection)
    {
        const SlimLockHold hold(m_lock);
        const auto found = m_makings.find(pSection);
        return found == m_makings.end() ? 0 : found->second;
    }

private:
    SlimLock m_lock;
    std::map<LPCRITICAL_SECTION, ULONGLONG> m_makings;
};

void ScriptLocks(RestoredImports& imports, const Core& core)
{
    const auto makings = std::make_shared<SectionMakings>();
    const auto initialize = [makings](LPCRITICAL_SECTION pSection)
    {
        InitializeCriticalSection(pSection);
        makings->Add(pSection);
    };
    const auto enter = [core, makings](LPCRITICAL_SECTION pSection)
    {
        const ULONGLONG ullMaking = makings->Count(pSection);
        core->Acquire([=]
                      { return makings->Count(pSection) == ullMaking && TryEnterCriticalSection(pSection) != FALSE; });
    };
    const auto acquire = [core](PSRWLOCK pLock)
    { core->Acquire([=] { return TryAcquireSRWLockExclusive(pLock) != FALSE; }); };
    const auto acquireShared = [core](PSRWLOCK pLock)
    { core->Acquire([=] { return TryAcquireSRWLockShared(pLock) != FALSE; }); };
    imports.TryReplace<decltype(::InitializeCriticalSection)>("InitializeCriticalSection", initialize);
    imports.TryReplace<decltype(::EnterCriticalSection)>("EnterCriticalSection", enter);
    imports.TryReplace<decltype(::AcquireSRWLockExclusive)>("AcquireSRWLockExclusive", acquire);
    imports.TryReplace<decltype(::AcquireSRWLockShared)>("AcquireSRWLockShared", acquireShared);
}

HANDLE CreateWorker(const Core& core, LPSECURITY_ATTRIBUTES pSecurity, SIZE_T cbStack, LPTHREAD_START_ROUTINE pfnBody,
                    LPVOID pParameter, DWORD dwFlags, LPDWORD pdwThreadId)
{
    const auto starter = [=](LPTHREAD_START_ROUTINE pfnWorker, void* pStart)
    { return CreateThread(pSecurity, cbStack, pfnWorker, pStart, dwFlags, pdwThreadId); };
    return core->StartWorker([=] { return pfnBody(pParameter); }, (dwFlags & CREATE_SUSPENDED) != 0, starter);
}

using LibraryThreadBody = unsigned(__stdcall*)(void*);

uintptr_t BeginWorker(const Core& core, void* pSecurity, unsigned cbStack, LibraryThreadBody pfnBody, void* pParameter,
                      unsigned nFlags, unsigned* pnThreadId)
{
    const auto starter = [=](LPTHREAD_START_ROUTINE pfnWorker, void* pStart)
    {
        // The two kinds of thread procedure differ in names only.
        auto pfnLibraryWorker = reinterpret_cast<LibraryThreadBody>(reinterpret_cast<void*>(pfnWorker));
        return reinterpret_cast<HANDLE>(
            _beginthreadex(pSecurity, cbStack, pfnLibraryWorker, pStart, nFlags, pnThreadId));
    };
    const auto body = [=]() -> DWORD { return pfnBody(pParameter); };
    return reinterpret_cast<uintptr_t>(core->StartWorker(body, (nFlags & CREATE_SUSPENDED) != 0, starter));
}

void ScriptThreads(RestoredImports& imports, const Core& core)
{
    const auto create = [core](auto... arguments) { return CreateWorker(core, arguments...); };
    const auto begin = [core](auto... arguments) { return BeginWorker(core, arguments...); };
    const auto suspend = [core](HANDLE hThread) { return core->Suspend(hThread); };
    const auto resume = [core](HANDLE hThread) { return core->Resume(hThread); };
    const auto terminate = [core](HANDLE hThread, DWORD dwExitCode) { return core->Terminate(hThread, dwExitCode); };
    imports.TryReplace<decltype(::CreateThread)>("CreateThread", create);
    imports.TryReplace<decltype(::_beginthreadex)>("_beginthreadex", begin);
    imports.TryReplace<decltype(::SuspendThread)>("SuspendThread", suspend);
    imports.TryReplace<decltype(::ResumeThread)>("ResumeThread", resume);
    imports.TryReplace<decltype(::TerminateThread)>("TerminateThread", terminate);
}

constexpr ULONGLONG SecondsToMs(ULONGLONG ullSeconds)
{
    return ullSeconds * 1000;
}

} // namespace

VirtualClock::VirtualClock(ImportRedirector& redirector) : m_core(std::make_shared<ClockCore>()), m_imports(redirector)
{
    ScriptSleeps(m_imports, m_core);
    ScriptTicks(m_imports, m_core);
    ScriptSystemClocks(m_imports, m_core);
    ScriptLibraryClocks(m_imports, m_core);
    ScriptWaits(m_imports, m_core);
    ScriptLocks(m_imports, m_core);
    ScriptThreads(m_imports, m_core);
}

VirtualClock::~VirtualClock()
{
    const UnscriptedScope unscripted;
    const std::string trouble = m_core->TakeTrouble();
    m_core->Close();
    if (!trouble.empty())
    {
        try
        {
            FAIL_CHECK(trouble);
        }
        catch (...)
        {
            // With the option to stop at a failure, Catch throws even here; it has noted the failure before.
        }
    }
}

void VirtualClock::FailIfBroken()
{
    const std::string trouble = m_core->TakeTrouble();
    if (!trouble.empty())
    {
        FAIL(trouble);
    }
}

void VirtualClock::Set(const LocalTime& time)
{
    const UnscriptedScope unscripted;
    m_core->Change([&](VirtualTime& virtualTime) { virtualTime.SetLocal(ToSystemTime(time)); });
}

void VirtualClock::SetTickCount(ULONGLONG ullTick)
{
    const UnscriptedScope unscripted;
    m_core->Change([&](VirtualTime& time) { time.SetTick(ullTick); });
}

LocalTime VirtualClock::Now() const
{
    const UnscriptedScope unscripted;
    const SYSTEMTIME now = m_core->Read([](const VirtualTime& time) { return time.Local(); });
    return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

long long VirtualClock::UnixNow() const
{
    const UnscriptedScope unscripted;
    return m_core->Read([](const VirtualTime& time) { return time.UnixSeconds(); });
}

ULONGLONG VirtualClock::TickCount() const
{
    const UnscriptedScope unscripted;
    return m_core->Read([](const VirtualTime& time) { return time.Tick(); });
}

ULONGLONG VirtualClock::ElapsedMs() const
{
    const UnscriptedScope unscripted;
    return m_core->ElapsedMs();
}

void VirtualClock::Advance(unsigned nSeconds)
{
    AdvanceMs(SecondsToMs(nSeconds));
}

void VirtualClock::AdvanceMs(ULONGLONG ullMilliseconds)
{
    const UnscriptedScope unscripted;
    m_core->DriveTo(m_core->ElapsedMs() + ullMilliseconds);
    FailIfBroken();
}

void VirtualClock::WaitUntilAllAsleep()
{
    AdvanceMs(0);
}

bool VirtualClock::AdvanceUntil(const std::function<bool()>& condition, unsigned nMaxSeconds)
{
    const ULONGLONG ullEndMs = ElapsedMs() + SecondsToMs(nMaxSeconds);
    WaitUntilAllAsleep();
    while (!condition())
    {
        const ULONGLONG ullNowMs = ElapsedMs();
        if (ullNowMs >= ullEndMs)
        {
            return false;
        }
        AdvanceMs(std::min(NextDueMs(), ullEndMs) - ullNowMs);
    }
    return true;
}

ULONGLONG VirtualClock::NextDueMs() const
{
    const UnscriptedScope unscripted;
    return m_core->NextDueMs();
}

void VirtualClock::AdvanceUntilWorkersEnd(unsigned nMaxSeconds)
{
    if (!AdvanceUntil([&] { return Workers() == 0; }, nMaxSeconds))
    {
        FAIL(Workers() << " workers still live after " << nMaxSeconds << " s");
    }
}

void VirtualClock::RunOnOtherThread(std::function<void()> fn)
{
    const UnscriptedScope unscripted;
    const auto body = [fn = std::move(fn)]() -> DWORD
    {
        try
        {
            fn();
        }
        catch (const std::exception& error)
        {
            ReportScriptTrouble(error.what());
        }
        return 0;
    };
    const auto starter = [](LPTHREAD_START_ROUTINE pfnWorker, void* pStart)
    { return CreateThread(nullptr, 0, pfnWorker, pStart, 0, nullptr); };
    const HANDLE hThread = m_core->StartWorker(body, false, starter);
    REQUIRE(hThread != nullptr);
    CloseHandle(hThread);
}

void VirtualClock::RunWhileAdvancing(std::function<void()> fn, unsigned nMaxSeconds)
{
    const auto bDone = std::make_shared<std::atomic<bool>>(false);
    RunOnOtherThread(
        [fn = std::move(fn), bDone]
        {
            fn();
            *bDone = true;
        });
    if (!AdvanceUntil([&] { return bDone->load(); }, nMaxSeconds))
    {
        FAIL("The function still runs after " << nMaxSeconds << " s");
    }
}

std::size_t VirtualClock::Workers() const
{
    const UnscriptedScope unscripted;
    return m_core->Workers();
}

ULONGLONG VirtualClock::SleepCount(DWORD dwMilliseconds) const
{
    const UnscriptedScope unscripted;
    return m_core->SleepCount(dwMilliseconds);
}

void VirtualClock::SetGuard(DWORD dwRealMilliseconds)
{
    const UnscriptedScope unscripted;
    m_core->SetGuard(dwRealMilliseconds);
}

void VirtualClock::Block(HANDLE hEvent)
{
    const UnscriptedScope unscripted;
    m_core->WaitForObject(hEvent, INFINITE);
}

BOOL VirtualClock::Terminate(HANDLE hThread, DWORD dwExitCode)
{
    const UnscriptedScope unscripted;
    return m_core->Terminate(hThread, dwExitCode);
}

} // namespace varnex::test
