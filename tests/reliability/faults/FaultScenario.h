#pragma once

#include "DocumentClass.h"
#include "FaultTarget.h"
#include "HandleLedger.h"
#include "WmiMethods.h"

#include "ScriptedDom.h"

#include "support/LoadedModule.h"
#include "support/ModuleTree.h"
#include "support/PrivateMutexes.h"
#include "support/PrivateNames.h"
#include "support/ScriptedExports.h"
#include "support/ScriptedInterfaceTable.h"
#include "support/ScriptedMemoryStatus.h"
#include "support/ScriptedPdh.h"
#include "support/ScriptedSystemTimes.h"
#include "support/ScriptedWmi.h"
#include "support/TraceRegistry.h"
#include "support/VirtualClock.h"

#include <array>
#include <functional>
#include <string>
#include <vector>

namespace varnex::test
{

// What the module looks up by name in a healthy life, in the order of the names. MiniDumpWriteDump comes in a crash
// only, where CrashDumpTest hides it and makes it fail.
constexpr std::array<const char*, 2> EXPORTS_LOOKED_UP = {"GetSystemTimes", "GlobalMemoryStatusEx"};

// The documented waits.
constexpr unsigned CONFIGURATION_SECONDS = 1; // for one that others have, each time
constexpr unsigned STOP_SECONDS = 15;
constexpr unsigned STORE_MUTEX_SECONDS = 60;
constexpr unsigned STORE_FILE_SECONDS = 1; // for one that others have
constexpr unsigned COUNTS_MUTEX_SECONDS = 90;
constexpr unsigned LOG_MUTEX_SECONDS = 5; // for each line

// What one life of the module came to.
struct ScenarioOutcome
{
    bool bLoaded = false;
    std::size_t nStored = 0;    // alerts in the file before the fetch
    int nFetched = 0;           // records that GetAlertRecord handed out
    bool bReport = false;       // whether the report that was asked for came
    unsigned nSecondsToEnd = 0; // virtual time from the stops' return to the end of the last thread
    std::size_t nKept = 0;      // handles that stay open on purpose
};

// One whole life of the shipped DLL on a scripted machine under a virtual clock: load, all monitors, three samples and
// an alert each, a fetch, all samplers, a report asked for through the section, the stops, unload. COM must be
// initialised on the calling thread.
class FaultScenario
{
    class ReadyTree : public ModuleTree
    {
    public:
        explicit ReadyTree(int nLogLevel);
    };

public:
    // A fault is told at level 1. At higher ones each line makes the same calls again.
    explicit FaultScenario(int nLogLevel = 1);
    FaultScenario(const FaultScenario&) = delete;
    FaultScenario& operator=(const FaultScenario&) = delete;

    // Everything that can be made to fail: imports, functions that are looked up, WMI methods, document methods.
    std::vector<FaultTarget> Targets();

    // Lives the life; fails the test where the module, under whatever fault, may not do what it did: threads that do
    // not end, a torn alert line, a configuration that does not load, objects that are still held.
    ScenarioOutcome Run();

    // What a fault adds to the documented waits of the host's calls and of the threads' end, in virtual seconds.
    unsigned nMoreSeconds = 0;
    std::string failing; // the target's name

    DocumentClass documents;
    ReadyTree tree;
    LoadedModule module;
    ImportRedirector imports;
    HandleLedger handles;
    PrivateMutexes mutexes;
    PrivateNames names;
    TraceRegistry registry;
    VirtualClock clock;
    ScriptedExports exports;
    ScriptedMemoryStatus memory;
    ScriptedSystemTimes cpu;
    ScriptedPdh pdh;
    ScriptedWmi wmi;
    ScriptedInterfaceTable table;
    WmiMethods wmiMethods;
    ScriptedDom dom;

private:
    void Work(ScenarioOutcome& outcome);
    void HostCall(const char* pszName, unsigned nMaxSeconds, const std::function<void()>& call);
    int Fetch();
    bool AskForReport();
    void EndWorkers(ScenarioOutcome& outcome);
    std::size_t CountAlerts(const std::wstring& file) const;
    void CheckFiles() const;
    void CheckHoldings() const;

    const int m_nLogLevel;
};

} // namespace varnex::test
