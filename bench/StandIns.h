#pragma once

#include <windows.h>

namespace varnex::bench
{

// A machine of any size, for a module whose imports are rewritten: performance counters, network adapters and their
// traffic. Plain functions that answer at once, so that what a comparison shows is the caller's own cost. Its sleeps
// are answered as well, and its tick count moves on at each look.

struct Machine
{
    unsigned nProcessors = 8;
    unsigned nDisks = 4;
    unsigned nCards = 4;
};

// From now on the stand-ins answer for that module, for good. Floors in this program call the same imports, and so the
// same stand-ins, once this program has been given here.
void InstallStandIns(HMODULE hModule);
void SetMachine(const Machine& machine) noexcept;
const Machine& GetMachine() noexcept;

// What a sleep does; null: it really sleeps.
using SleepFunction = void (*)(DWORD dwMilliseconds);
void SetSleep(SleepFunction pfnSleep) noexcept;

// The locator of the stand-in for WMI (StandInWmi.cpp); the caller owns a reference.
void* MakeLocator() noexcept;

} // namespace varnex::bench
