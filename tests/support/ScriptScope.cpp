#include "support/ScriptScope.h"

#include "support/ThreadState.h"

namespace varnex::test
{

namespace
{

// Taken while the program starts, before anything can be redirected.
struct RealFunctions
{
    decltype(&::TlsGetValue) pfnTlsGetValue = &::TlsGetValue;
    decltype(&::TlsSetValue) pfnTlsSetValue = &::TlsSetValue;
    decltype(&::GetLastError) pfnGetLastError = &::GetLastError;
    decltype(&::SetLastError) pfnSetLastError = &::SetLastError;
    DWORD dwUnscriptedSlot = TlsAlloc();
    DWORD dwGateSlot = TlsAlloc();
};

const RealFunctions g_real;

void* ReadSlot(DWORD dwSlot) noexcept
{
    const DWORD dwError = g_real.pfnGetLastError(); // a successful TlsGetValue clears it
    void* pValue = g_real.pfnTlsGetValue(dwSlot);
    g_real.pfnSetLastError(dwError);
    return pValue;
}

void WriteSlot(DWORD dwSlot, void* pValue) noexcept
{
    const DWORD dwError = g_real.pfnGetLastError();
    g_real.pfnTlsSetValue(dwSlot, pValue);
    g_real.pfnSetLastError(dwError);
}

char g_chMark; // its address stands for "yes" in a slot

} // namespace

bool ReadUnscripted() noexcept
{
    return ReadSlot(g_real.dwUnscriptedSlot) != nullptr;
}

void WriteUnscripted(bool bUnscripted) noexcept
{
    WriteSlot(g_real.dwUnscriptedSlot, bUnscripted ? &g_chMark : nullptr);
}

void* ReadEnteredGate() noexcept
{
    return ReadSlot(g_real.dwGateSlot);
}

void WriteEnteredGate(void* pGate) noexcept
{
    WriteSlot(g_real.dwGateSlot, pGate);
}

DWORD ReadLastError() noexcept
{
    return g_real.pfnGetLastError();
}

void WriteLastError(DWORD dwError) noexcept
{
    g_real.pfnSetLastError(dwError);
}

bool IsUnscripted() noexcept
{
    return ReadUnscripted();
}

UnscriptedScope::UnscriptedScope() noexcept : m_bWasUnscripted(ReadUnscripted())
{
    WriteUnscripted(true);
}

UnscriptedScope::~UnscriptedScope()
{
    WriteUnscripted(m_bWasUnscripted);
}

ScriptedScope::ScriptedScope() noexcept : m_bWasUnscripted(ReadUnscripted())
{
    WriteUnscripted(false);
}

ScriptedScope::~ScriptedScope()
{
    WriteUnscripted(m_bWasUnscripted);
}

} // namespace varnex::test
