#pragma once

#include <windows.h>

namespace varnex::host
{

// The threads of this process that run, or may run, the code of one module. The module has no export that tells, so
// they are found by their start addresses.
struct ModuleThreads
{
    bool bKnown = false;      // false: the system did not list the threads
    unsigned nMonitors = 0;   // started at a function of the module
    unsigned nRunTime = 0;    // started by the run-time library on someone's behalf: the module's alert writers. This
                              // program starts no such thread itself.
    unsigned nUnreadable = 0; // alive, but without an answer

    bool NoneLeft() const noexcept { return bKnown && nMonitors == 0 && nRunTime == 0 && nUnreadable == 0; }
};

// Never fails visibly: what cannot be asked counts as a thread that may still run.
ModuleThreads FindModuleThreads(HMODULE hModule) noexcept;

} // namespace varnex::host
