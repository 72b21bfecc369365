#pragma once

#include <windows.h>

namespace varnex
{

// How much a dump holds, as MiniDumpWriteDump takes it. Written by Cst_SetExceptionHandler_Ex, read by the filter,
// guarded by nothing: a crash must not wait for a lock.
extern unsigned DumpType;

// Writes a dump of this process beside its executable, as host.exe_00.dmp or the first free number up to 98; when all
// are taken, number 98 is overwritten. For the thread that crashed: takes no lock and no memory, logs nothing.
//
// pExceptionPointers  what the exception filter was called with.
//
// Returns 1 when the dump was written, 0 otherwise.
int WriteCrashDump(EXCEPTION_POINTERS* pExceptionPointers) noexcept;

} // namespace varnex
