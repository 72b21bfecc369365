#pragma once

#include "support/ImportRedirector.h"
#include "support/LoadedModule.h"
#include "support/LogFile.h"
#include "support/ModuleTree.h"
#include "support/PrivateMutexes.h"
#include "support/PrivateNames.h"
#include "support/ScriptedExports.h"
#include "support/ScriptedInterfaceTable.h"
#include "support/ScriptedMemoryStatus.h"
#include "support/ScriptedPdh.h"
#include "support/ScriptedWmi.h"
#include "support/TraceRegistry.h"

#include <varnex/Varnex.h>

namespace varnex::test
{

// The shipped DLL on a scripted machine that never changes, in real time, but with shorter sleeps: a second of a worker
// takes about a millisecond, and one of a stop that waits takes 100.
//
// One processor "0" at 42 percent, memory at 50 and 25, one disk "0 C:" with 1000 bytes a second, one adapter "Card",
// index 2.
class ReportingModule
{
    class ReadyTree : public ModuleTree
    {
    public:
        ReadyTree();
    };

public:
    ReportingModule();
    // Stops reporting and unloads.
    ~ReportingModule();
    ReportingModule(const ReportingModule&) = delete;
    ReportingModule& operator=(const ReportingModule&) = delete;

    ReadyTree tree;
    LoadedModule module;
    ImportRedirector imports;
    PrivateMutexes mutexes;
    PrivateNames names;
    TraceRegistry registry;
    ScriptedExports exports;
    ScriptedMemoryStatus memory;
    ScriptedPdh pdh;
    ScriptedWmi wmi;
    ScriptedInterfaceTable table;

    unsigned Start() const;
    unsigned Stop() const;
};

// Marks this thread as one of the host's for its life: its sleeps inside the module are those of a stop.
void MarkHostThread();

} // namespace varnex::test
