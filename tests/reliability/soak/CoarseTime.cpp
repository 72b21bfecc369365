#include "CoarseTime.h"

#include "support/ImportTable.h"
#include "support/ScriptScope.h"

#include <catch2/catch.hpp>

#include <algorithm>

namespace varnex::test
{

namespace
{

constexpr DWORD LUMP_MS = 5000;
constexpr DWORD SECOND_MS = 1000;   // the steps in which workers wait; other sleeps are part of a measurement
constexpr DWORD SHORT_STEP_MS = 10; // of waits that are shorter than a lump

using SleepFunction = void(WINAPI*)(DWORD);

SleepFunction g_pfnSleep = nullptr; // the virtual clock's
DWORD g_dwTestThread = 0;
thread_local DWORD t_dwOwedMs = 0;

void WINAPI SleepInLumps(DWORD dwMilliseconds)
{
    if (GetCurrentThreadId() == g_dwTestThread || dwMilliseconds != SECOND_MS)
    {
        g_pfnSleep(dwMilliseconds);
        return;
    }
    t_dwOwedMs += dwMilliseconds;
    if (t_dwOwedMs >= LUMP_MS)
    {
        g_pfnSleep(t_dwOwedMs);
        t_dwOwedMs = 0;
    }
}

DWORD WaitAsleep(HANDLE hObject, DWORD dwMilliseconds)
{
    const DWORD dwStep = dwMilliseconds > LUMP_MS ? LUMP_MS : SHORT_STEP_MS;
    DWORD dwResult = WaitForSingleObject(hObject, 0);
    for (DWORD dwLeft = dwMilliseconds; dwResult == WAIT_TIMEOUT && dwLeft != 0;)
    {
        const DWORD dwPause = std::min(dwStep, dwLeft);
        {
            const ScriptedScope scripted;
            g_pfnSleep(dwPause);
        }
        dwLeft -= dwLeft == INFINITE ? 0 : dwPause;
        dwResult = WaitForSingleObject(hObject, 0);
    }
    return dwResult;
}

void** FindSleep(HMODULE hModule)
{
    const std::vector<Import> imports = ReadImports(hModule);
    const auto found =
        std::find_if(imports.begin(), imports.end(), [](const Import& import) { return import.name == "Sleep"; });
    REQUIRE(found != imports.end());
    return found->ppSlot;
}

} // namespace

CoarseTime::CoarseTime(ImportRedirector& redirector, HMODULE hModule)
    : m_ppSleep(FindSleep(hModule)), m_imports(redirector)
{
    g_pfnSleep = reinterpret_cast<SleepFunction>(*m_ppSleep);
    g_dwTestThread = GetCurrentThreadId();
    WriteImportSlot(m_ppSleep, reinterpret_cast<void*>(&SleepInLumps));
    m_imports.Replace<decltype(::WaitForSingleObject)>("WaitForSingleObject", WaitAsleep);
}

CoarseTime::~CoarseTime()
{
    WriteImportSlot(m_ppSleep, reinterpret_cast<void*>(g_pfnSleep));
}

} // namespace varnex::test
