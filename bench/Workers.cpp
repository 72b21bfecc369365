#include "Workers.h"

#include "floors/FloorWorkers.h"

#include "alerting/MonCPUThread.h"
#include "alerting/MonDiskThread.h"
#include "alerting/MonMemThread.h"
#include "alerting/MonNetworkThread.h"
#include "entry/ModuleState.h"
#include "reporting/UtilizationStores.h"
#include "reporting/UtlCPUThread.h"
#include "reporting/UtlDiskThread.h"
#include "reporting/UtlMemoryThread.h"
#include "reporting/UtlNetworkThread.h"

#include <catch2/catch.hpp>

#include <objbase.h>

namespace varnex::bench
{

namespace
{

template <class Worker, int nSlot, bool bMonitor>
WorkerKind MakeKind(const char* pszName, decltype(WorkerKind::pfnFloorCycle) pfnFloor, unsigned nInner, unsigned nWait,
                    unsigned nDefault)
{
    static constexpr auto pfnSlot = []() -> WorkerSlot&
    { return bMonitor ? g_aMonitorSlots[nSlot] : g_aUtilizationSlots[nSlot]; };
    return {pszName,
            []
            {
                auto* const pWorker = new Worker;
                pfnSlot().Publish(pWorker);
                pWorker->Run();
            },
            [] { pfnSlot().RequestStop(); },
            pfnFloor,
            nInner,
            nWait,
            nDefault};
}

// What a worker's sleeps do: it sees each second of its wait pass at once.
class CycleClock
{
public:
    explicit CycleClock(const WorkerKind& kind) : m_kind(kind) {}

    void Sleep(DWORD dwMilliseconds)
    {
        if (dwMilliseconds != 1000 || m_bAside) // other sleeps are within a disk's measurement
        {
            return;
        }
        if (m_nSecond == m_kind.nInnerSeconds)
        {
            EndCycle();
        }
        if (++m_nSecond == m_kind.nInnerSeconds + m_kind.nWaitSeconds)
        {
            m_nSecond = 0;
            m_watch = {};
        }
    }

    std::function<void(double dNanoseconds)> onCycle; // on the worker's thread, at the begin of its wait

private:
    // What runs meanwhile may sleep, too, and is not to be taken for the worker.
    void EndCycle()
    {
        const double dNanoseconds = m_watch.Nanoseconds();
        m_bAside = true;
        onCycle(dNanoseconds);
        m_bAside = false;
    }

    const WorkerKind& m_kind;
    unsigned m_nSecond = 0;
    bool m_bAside = false;
    Stopwatch m_watch;
};

CycleClock* g_pClock = nullptr;

void PassTime(DWORD dwMilliseconds)
{
    if (g_pClock != nullptr)
    {
        g_pClock->Sleep(dwMilliseconds);
    }
}

double Seconds(const FILETIME& time)
{
    return (static_cast<double>(time.dwHighDateTime) * 4294967296.0 + static_cast<double>(time.dwLowDateTime)) / 1e7;
}

double CpuSeconds()
{
    FILETIME creation;
    FILETIME exit;
    FILETIME kernel;
    FILETIME user;
    GetProcessTimes(GetCurrentProcess(), &creation, &exit, &kernel, &user);
    return Seconds(kernel) + Seconds(user);
}

DWORD WINAPI RunBody(LPVOID pBody)
{
    (*static_cast<std::function<void()>*>(pBody))();
    return 0;
}

void RunOnOwnThread(std::function<void()> body)
{
    const UniqueHandle thread(CreateThread(nullptr, 0, RunBody, &body, 0, nullptr));
    REQUIRE(thread);
    REQUIRE(WaitForSingleObject(thread.Get(), INFINITE) == WAIT_OBJECT_0);
}

void RunUnder(CycleClock& clock, const WorkerKind& kind)
{
    g_pClock = &clock;
    SetSleep(PassTime);
    RunOnOwnThread(kind.pfnRun);
    g_pClock = nullptr;
    CleanUtilizationStores(0);
}

} // namespace

const std::vector<WorkerKind>& WorkerKinds()
{
    static const std::vector<WorkerKind> kinds = {
        MakeKind<CMonCPUThread, 0, true>("CPU monitor", RunCpuMonitorFloor, 0, 1, 90),
        MakeKind<CMonMemThread, 1, true>("memory monitor", RunMemoryMonitorFloor, 0, 1, 90),
        MakeKind<CMonDiskThread, 2, true>("disk monitor", RunDiskMonitorFloor, 0, 1, 60),
        MakeKind<CMonNetworkThread, 3, true>("network monitor", RunNetworkMonitorFloor, 1, 1, 90),
        MakeKind<CPKIUtlCPUThread, 0, false>("CPU sampler", RunCpuSamplerFloor, 0, 60, 60),
        MakeKind<CPKIUtlMemoryThread, 1, false>("memory sampler", RunMemorySamplerFloor, 0, 60, 60),
        MakeKind<CPKIUtlDiskThread, 2, false>("disk sampler", RunDiskSamplerFloor, 0, 60, 60),
        MakeKind<CPKIUtlNetworkThread, 3, false>("network sampler", RunNetworkSamplerFloor, 1, 60, 60)};
    return kinds;
}

std::vector<Pair> MeasureCycles(const WorkerKind& kind, const FloorConfig& config, const Effort& effort)
{
    std::vector<Pair> pairs;
    std::size_t nCycle = 0;
    double dFloorBefore = 0;
    const Stopwatch whole;
    CycleClock clock(kind);
    clock.onCycle = [&](double dModuleNs)
    {
        const Stopwatch watch;
        kind.pfnFloorCycle(config, GetMachine());
        const double dFloorNs = watch.Nanoseconds();
        if (nCycle > WARM_UP_CYCLES)
        {
            // The floor's cycle behind this one, and the one before it, in turn.
            pairs.push_back({dModuleNs, nCycle % 2 == 0 ? dFloorNs : dFloorBefore});
        }
        dFloorBefore = dFloorNs;
        ++nCycle;
        if (pairs.size() >= effort.nFewest &&
            (whole.Nanoseconds() > effort.dSeconds * 1e9 || pairs.size() >= effort.nMost))
        {
            kind.pfnRequestStop();
        }
    };
    RunUnder(clock, kind);
    return pairs;
}

double CpuSecondsOfCycles(const WorkerKind& kind, std::size_t nCycles, std::size_t nWarmUp)
{
    std::size_t nDone = 0;
    double dBegin = 0;
    double dEnd = 0;
    CycleClock clock(kind);
    clock.onCycle = [&](double)
    {
        ++nDone;
        if (nDone == nWarmUp)
        {
            dBegin = CpuSeconds();
        }
        else if (nDone == nWarmUp + nCycles)
        {
            dEnd = CpuSeconds();
            kind.pfnRequestStop();
        }
    };
    RunUnder(clock, kind);
    return dEnd - dBegin;
}

double CpuSecondsOfFloorCycles(const WorkerKind& kind, const FloorConfig& config, std::size_t nCycles)
{
    double dSeconds = 0;
    SetSleep(PassTime);
    RunOnOwnThread(
        [&]
        {
            CoInitialize(nullptr);
            kind.pfnFloorCycle(config, GetMachine()); // the thread's first, as the worker's does not count
            const double dBegin = CpuSeconds();
            for (std::size_t i = 0; i < nCycles; ++i)
            {
                kind.pfnFloorCycle(config, GetMachine());
            }
            dSeconds = CpuSeconds() - dBegin;
            CoUninitialize();
        });
    return dSeconds;
}

} // namespace varnex::bench
