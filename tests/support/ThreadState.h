#pragma once

#include <windows.h>

namespace varnex::test
{

// What the redirection keeps for each thread. These functions pass through no import of this program, so they work
// while any import is redirected, and all of them leave the last error as it was.
bool ReadUnscripted() noexcept;
void WriteUnscripted(bool bUnscripted) noexcept;
void* ReadEnteredGate() noexcept;
void WriteEnteredGate(void* pGate) noexcept;

// The real GetLastError and SetLastError.
DWORD ReadLastError() noexcept;
void WriteLastError(DWORD dwError) noexcept;

} // namespace varnex::test
