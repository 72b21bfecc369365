#include "common/Handles.h"
#include "diag/ExceptionBarrier.h"
#include "diag/SPLogger.h"
#include "entry/ModuleState.h"
#include "reporting/ReportHandOff.h"
#include "reporting/UtilizationStores.h"
#include "reporting/UtlCPUThread.h"
#include "reporting/UtlCheckingThread.h"
#include "reporting/UtlDiskThread.h"
#include "reporting/UtlMemoryThread.h"
#include "reporting/UtlNetworkThread.h"

#include <varnex/Varnex.h>

#include <array>

namespace varnex
{

namespace
{

constexpr int STOP_SECONDS = 15;            // for everything that a stop waits for, together
constexpr DWORD WRITERS_WAIT_MS = 1000;     // before a thread is ended by force
constexpr DWORD TERMINATION_WAIT_MS = 1000; // for its real end
constexpr DWORD LAST_STEPS_MS = 1000;       // for a worker that has emptied its slot itself to leave its thread

struct WorkerControl
{
    WorkerSlot& slot;
    int (*pfnCreate)(WorkerSlot& slot, const char* pszFailure, const char* pszSuccess);
    const char* pszFailure;
    const char* pszSuccess;
};

// In the order in which they are started and stopped.
const WorkerControl WORKER_CONTROLS[UTILIZATION_WORKERS] = {
    {g_pUtlCPUThread, CreateRunningThread<CPKIUtlCPUThread>,
     "CreateMonCPUPKIUtlThread -- CPKIUtlCPUThread CreateRunningThread Error!",
     "CreateMonCPUPKIUtlThread -- Create Monitor CPU PKI Utilization Thread Successfully!"},
    {g_pUtlMemoryThread, CreateRunningThread<CPKIUtlMemoryThread>,
     "CreateMonMemoryPKIUtlThread -- CPKIUtlMemoryThread CreateRunningThread Error!",
     "CreateMonMemoryPKIUtlThread -- Create Monitor Memory PKI Utilization Thread Successfully!"},
    {g_pUtlDiskThread, CreateRunningThread<CPKIUtlDiskThread>,
     "CreateMonDiskPKIUtlThread -- CPKIUtlDiskThread CreateRunningThread Error!",
     "CreateMonDiskPKIUtlThread -- Create Monitor Physical Disk Throughput Thread Successfully!"},
    {g_pUtlNetworkThread, CreateRunningThread<CPKIUtlNetworkThread>,
     "CreateMonNetworkPKIUtlThread -- CPKIUtlNetworkThread CreateRunningThread Error!",
     "CreateMonNetworkPKIUtlThread -- Create Monitor Network Utilization Thread Successfully!"},
    {g_pUtlCheckingThread, CreateRunningThread<CPKIUtlCheckingThread>,
     "CreatePKIUtlCheckingThread -- CPKIUtlCheckingThread CreateRunningThread Error!",
     "CreatePKIUtlCheckingThread -- Create CPKIUtlCheckingThread Successfully!"},
};

void StartWorkers() noexcept
{
    Log()->Level2A("StartPKIUtlThread -- Start PKI utilization collection thread...");
    for (const WorkerControl& control : WORKER_CONTROLS)
    {
        // One worker that cannot be made does not keep the others from starting.
        StopExceptions("StartPKIUtlThread", false,
                       [&control]
                       {
                           if (!control.slot.IsSet())
                           {
                               control.pfnCreate(control.slot, control.pszFailure, control.pszSuccess);
                           }
                           return true;
                       });
    }
    Log()->Level2A("StartPKIUtlThread -- Start PKI utilization collection thread finish...");
}

// The seconds that a stop may still wait, handed out one by one.
class StopBudget
{
public:
    // Lets a second pass, or less if the object is signalled before; false when none is left.
    bool WaitASecond(HANDLE hObject = nullptr) noexcept
    {
        if (m_nSeconds == 0)
        {
            return false;
        }
        --m_nSeconds;
        if (hObject == nullptr)
        {
            Sleep(1000);
        }
        else
        {
            WaitForSingleObject(hObject, 1000);
        }
        return true;
    }

private:
    int m_nSeconds = STOP_SECONDS;
};

// The workers that were asked to stop, in the order of the controls. A start may put others into the slots meanwhile;
// they are no concern of this stop.
using WatchedWorkers = std::array<WatchedWorker, UTILIZATION_WORKERS>;

constexpr std::size_t REPORT_WORKER = UTILIZATION_WORKERS - 1;

bool HasEnded(HANDLE hThread, DWORD dwWaitMs = 0) noexcept
{
    return hThread == nullptr || WaitForSingleObject(hThread, dwWaitMs) == WAIT_OBJECT_0;
}

// Wakes the report thread out of its wait.
void SignalBeginEvent() noexcept
{
    const UniqueHandle begin(OpenEventW(EVENT_ALL_ACCESS, FALSE, BEGIN_EVENT_NAME));
    if (!begin)
    {
        const DWORD dwError = GetLastError();
        Log()->Level1W(L"StopPKIUtlThread -- OpenEvent fail(%d), Event name(%s)", dwError, BEGIN_EVENT_NAME);
        return;
    }
    SetEvent(begin.Get());
}

// So that the next start does not make a report that nobody asked for.
void ResetBeginEvent() noexcept
{
    const UniqueHandle begin(OpenEventW(EVENT_ALL_ACCESS, FALSE, BEGIN_EVENT_NAME));
    if (begin)
    {
        ResetEvent(begin.Get());
    }
}

void RequestStops(WatchedWorkers& workers) noexcept
{
    for (std::size_t i = 0; i < workers.size(); ++i)
    {
        workers[i] = WORKER_CONTROLS[i].slot.RequestStopAndWatch();
        if (i == REPORT_WORKER && workers[i].nTicket != 0)
        {
            SignalBeginEvent();
        }
    }
}

bool IsAnySamplerSet(const WatchedWorkers& workers) noexcept
{
    for (std::size_t i = 0; i < REPORT_WORKER; ++i)
    {
        if (WORKER_CONTROLS[i].slot.Holds(workers[i]))
        {
            return true;
        }
    }
    return false;
}

// Until the slots are empty and the threads behind them have really ended, or the budget is spent.
void WaitForWorkers(const WatchedWorkers& workers) noexcept
{
    StopBudget budget;
    while (WORKER_CONTROLS[REPORT_WORKER].slot.Holds(workers[REPORT_WORKER]) && budget.WaitASecond())
    {
    }
    while (IsAnySamplerSet(workers) && budget.WaitASecond())
    {
    }
    for (const WatchedWorker& worker : workers)
    {
        while (!HasEnded(worker.thread.Get()) && budget.WaitASecond(worker.thread.Get()))
        {
        }
    }
}

// Ends a thread that is stuck in a system call. False when it could not be ended, or not yet.
bool Terminate(WorkerSlot& slot, HANDLE hThread) noexcept
{
    // A thread that was writing to the log, and were ended now, would silence the log.
    const SPLogger::WritersHeldOff held(WRITERS_WAIT_MS);
    return held && slot.Terminate(hThread) && HasEnded(hThread, TERMINATION_WAIT_MS);
}

// Makes anew the store locks that a thread took with it. It may have been ended by force, and have died since.
void RenewLocksOf(DWORD dwThreadId) noexcept
{
    ForEachStore([dwThreadId](auto& store) { store.lock.RenewIfOwnedBy(dwThreadId); });
}

// Makes sure of a worker's end, by force where it did not react and still has its slot. Its object then stays allocated.
// False when its thread lives on, with its slot, or may live on.
bool EndWorker(WorkerSlot& slot, const WatchedWorker& worker) noexcept
{
    CAlertReachPKIThread* const pTaken = slot.Take(worker);
    if (pTaken == nullptr && worker.bUnseen)
    {
        // It has left its slot by itself, and may still be in its last steps.
        Log()->Level1A("StopPKIUtlThread -- a thread's end could not be seen.");
        return false;
    }
    const HANDLE hThread = pTaken != nullptr ? pTaken->ThreadHandle() : worker.thread.Get();
    if (hThread == nullptr)
    {
        return true;
    }
    const bool bEnded =
        pTaken != nullptr ? HasEnded(hThread) || Terminate(slot, hThread) : HasEnded(hThread, LAST_STEPS_MS);
    if (bEnded)
    {
        RenewLocksOf(worker.dwThreadId);
    }
    else
    {
        Log()->Level1A("StopPKIUtlThread -- a thread could not be ended.");
    }
    if (pTaken != nullptr && (bEnded || !slot.PutBack(pTaken, worker)))
    {
        pTaken->CloseThreadHandle();
    }
    return bEnded;
}

// The report thread first, then the samplers in their order.
bool EndWorkers(const WatchedWorkers& workers) noexcept
{
    bool bAllEnded = EndWorker(WORKER_CONTROLS[REPORT_WORKER].slot, workers[REPORT_WORKER]);
    for (std::size_t i = 0; i < REPORT_WORKER; ++i)
    {
        bAllEnded = EndWorker(WORKER_CONTROLS[i].slot, workers[i]) && bAllEnded;
    }
    return bAllEnded;
}

void StopWorkers() noexcept
{
    // Names the start; readers of the log know it so.
    Log()->Level2A("StartPKIUtlThread -- Stop PKI utilization collection thread...");
    WatchedWorkers workers;
    RequestStops(workers);
    WaitForWorkers(workers);
    const bool bAllEnded = EndWorkers(workers);
    ResetBeginEvent();
    CleanUtilizationStores(bAllEnded); // a thread that lives on may hold a lock for ever
    Log()->Level2A("StartPKIUtlThread -- Stop PKI utilization collection thread finish...");
}

} // namespace

} // namespace varnex

unsigned int StartPKIUtlThread(void)
{
    varnex::StartWorkers();
    return VARNEX_OK;
}

unsigned int StopPKIUtlThread(void)
{
    varnex::StopWorkers();
    return VARNEX_OK;
}
