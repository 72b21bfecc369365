#pragma once

#include "LocalZone.h"

#include "support/ConfigBuilder.h"
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

namespace varnex::test
{

// All four resources by one policy: an interval of a second, one sample, threshold 50.
ConfigBuilder StormConfig(int nMaxAlertNum);

// How often each source was read.
struct Measurements
{
    ULONGLONG ullCpu;
    ULONGLONG ullMemory;
    ULONGLONG ullDisk;
    ULONGLONG ullNetwork; // four readings of the table are one measurement
};
Measurements operator-(const Measurements& later, const Measurements& earlier);

// The shipped DLL on a scripted machine under a virtual clock in a zone of its own: one processor, one disk, one adapter,
// whose loads swing together.
class TimedMachine
{
    class ReadyTree : public ModuleTree
    {
    public:
        explicit ReadyTree(const ConfigBuilder& config);
    };

public:
    enum class Attach
    {
        AtOnce,
        Later // by AttachNow, once the imports that matter before it are scripted
    };

    explicit TimedMachine(const ConfigBuilder& config, const TIME_ZONE_INFORMATION& zone = Utc(),
                          Attach attach = Attach::AtOnce);
    // Stops what runs.
    ~TimedMachine();
    TimedMachine(const TimedMachine&) = delete;
    TimedMachine& operator=(const TimedMachine&) = delete;

    void AttachNow();
    void StartMonitors();
    void StartReporting();
    // Stops both and lets all threads end.
    void Stop();
    // Above every threshold of StormConfig, or below.
    void SetLoad(bool bHigh);
    // Four seconds of high load and four of low, over and over: each monitor has an alert to raise every eight seconds,
    // while the day's count lets it.
    void Storm(unsigned nSeconds);
    // Half a minute of storm; fails the test unless each monitor measures as often in it as it has to by its interval.
    void StormAtPace();
    // Asks as another process does; whether a report came within ten virtual seconds.
    bool AskForReport();
    Measurements Measured();

    ReadyTree tree;
    LoadedModule module;
    ImportRedirector imports;
    PrivateMutexes mutexes;
    PrivateNames names;
    TraceRegistry registry;
    VirtualClock clock;
    LocalZone zone;
    ScriptedExports exports;
    ScriptedMemoryStatus memory;
    ScriptedSystemTimes cpu;
    ScriptedPdh pdh;
    ScriptedWmi wmi;
    ScriptedInterfaceTable table;

private:
    unsigned m_nSwing = 0;
};

} // namespace varnex::test
