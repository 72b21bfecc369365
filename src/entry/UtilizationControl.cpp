#include "common/BoundedText.h"
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

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>

namespace varnex
{

namespace
{

// What a stop waits for, each for all workers together.
constexpr int STOP_SECONDS = 15;        // for workers to end by themselves
constexpr DWORD WRITERS_WAIT_MS = 1000; // for the log's mutex, before threads are ended by force; again for the signs
constexpr DWORD END_STEP_MS = 100;
constexpr int END_STEPS = 10;         // for the real end of threads that were ended by force
constexpr int OTHERS_STEPS = 20;      // for last steps, and for threads that another stop ends
constexpr DWORD CLEAN_WAIT_MS = 1000; // for the locks of the stores

struct WorkerControl
{
    const char* pszKind;
    WorkerSlot& slot;
    int (*pfnCreate)(WorkerSlot& slot, const char* pszFailure, const char* pszSuccess);
    const char* pszFailure;
    const char* pszSuccess;
};

// In the order in which they are started and stopped; the samplers have the order of their stores.
const WorkerControl WORKER_CONTROLS[UTILIZATION_WORKERS] = {
    {"CPU", g_pUtlCPUThread, CreateRunningThread<CPKIUtlCPUThread>,
     "CreateMonCPUPKIUtlThread -- CPKIUtlCPUThread CreateRunningThread Error!",
     "CreateMonCPUPKIUtlThread -- Create Monitor CPU PKI Utilization Thread Successfully!"},
    {"memory", g_pUtlMemoryThread, CreateRunningThread<CPKIUtlMemoryThread>,
     "CreateMonMemoryPKIUtlThread -- CPKIUtlMemoryThread CreateRunningThread Error!",
     "CreateMonMemoryPKIUtlThread -- Create Monitor Memory PKI Utilization Thread Successfully!"},
    {"disk", g_pUtlDiskThread, CreateRunningThread<CPKIUtlDiskThread>,
     "CreateMonDiskPKIUtlThread -- CPKIUtlDiskThread CreateRunningThread Error!",
     "CreateMonDiskPKIUtlThread -- Create Monitor Physical Disk Throughput Thread Successfully!"},
    {"network", g_pUtlNetworkThread, CreateRunningThread<CPKIUtlNetworkThread>,
     "CreateMonNetworkPKIUtlThread -- CPKIUtlNetworkThread CreateRunningThread Error!",
     "CreateMonNetworkPKIUtlThread -- Create Monitor Network Utilization Thread Successfully!"},
    {"report", g_pUtlCheckingThread, CreateRunningThread<CPKIUtlCheckingThread>,
     "CreatePKIUtlCheckingThread -- CPKIUtlCheckingThread CreateRunningThread Error!",
     "CreatePKIUtlCheckingThread -- Create CPKIUtlCheckingThread Successfully!"},
};

constexpr std::size_t REPORT_WORKER = UTILIZATION_WORKERS - 1;
constexpr std::size_t END_ORDER[UTILIZATION_WORKERS] = {REPORT_WORKER, 0, 1, 2, 3};

// One bit for each control above: 1 for the first.
using Kinds = unsigned;

constexpr Kinds KindAt(std::size_t nControl) noexcept
{
    return 1U << nControl;
}

template <std::size_t N>
void FormatKinds(Kinds kinds, char (&szText)[N]) noexcept
{
    szText[0] = '\0';
    for (std::size_t i = 0; i < UTILIZATION_WORKERS; ++i)
    {
        if ((kinds & KindAt(i)) != 0)
        {
            char szBefore[N];
            CopyTextA(szBefore, szText);
            FormatTextA(szText, "%s%s%s", szBefore, szBefore[0] != '\0' ? ", " : "", WORKER_CONTROLS[i].pszKind);
        }
    }
}

// What a stop has to say of the workers that did not end by themselves. It is kept until a line of it can be written:
// the log's mutex may be held by just such a worker.
struct Sign
{
    const char* pszLine;
    std::atomic<Kinds> kinds;
};

Sign g_endedByForce = {"StopPKIUtlThread -- ended by force: %s. Locks of the system may have gone with it: restart the "
                       "process soon.",
                       {0}};
Sign g_writing = {"StopPKIUtlThread -- a thread could not be ended, because it is writing to the log: %s. The module "
                  "must stay loaded.",
                  {0}};
Sign g_livesOn = {"StopPKIUtlThread -- a thread could not be ended: %s. The module must stay loaded.", {0}};
Sign g_unseen = {"StopPKIUtlThread -- a thread's end could not be seen: %s. The module must stay loaded.", {0}};
Sign g_notEmptied = {"StopPKIUtlThread -- samples are in use and were not freed: %s.", {0}};
Sign* const SIGNS[] = {&g_endedByForce, &g_writing, &g_livesOn, &g_unseen, &g_notEmptied};

// Writes the signs that are still to be told; all of them together wait once for the log's mutex.
void TellSigns() noexcept
{
    if (std::all_of(std::begin(SIGNS), std::end(SIGNS), [](const Sign* pSign) { return pSign->kinds == 0; }))
    {
        return;
    }
    const SPLogger::WritersHeldOff held(WRITERS_WAIT_MS);
    if (!held)
    {
        return;
    }
    for (Sign* const pSign : SIGNS)
    {
        const Kinds kinds = pSign->kinds.exchange(0);
        if (kinds != 0)
        {
            char szKinds[64];
            FormatKinds(kinds, szKinds);
            Log()->Level1A(pSign->pszLine, szKinds);
        }
    }
}

void StartWorkers() noexcept
{
    Log()->Level2A("StartPKIUtlThread -- Start PKI utilization collection thread...");
    Kinds stopping = 0;
    for (std::size_t i = 0; i < UTILIZATION_WORKERS; ++i)
    {
        const WorkerControl& control = WORKER_CONTROLS[i];
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
        stopping |= control.slot.IsStopping() ? KindAt(i) : 0;
    }
    if (stopping != 0)
    {
        char szKinds[64];
        FormatKinds(stopping, szKinds);
        Log()->Level1A("StartPKIUtlThread -- not started, because the last one is still stopping: %s.", szKinds);
    }
    TellSigns();
    Log()->Level2A("StartPKIUtlThread -- Start PKI utilization collection thread finish...");
}

// A time that may still be waited, handed out in steps.
class WaitBudget
{
public:
    WaitBudget(int nSteps, DWORD dwStepMs) noexcept : m_nSteps(nSteps), m_dwStepMs(dwStepMs) {}

    // Lets a step pass, or less if the object is signalled before; false when none is left.
    bool WaitAStep(HANDLE hObject = nullptr) noexcept
    {
        if (m_nSteps == 0)
        {
            return false;
        }
        --m_nSteps;
        if (hObject == nullptr)
        {
            Sleep(m_dwStepMs);
        }
        else
        {
            WaitForSingleObject(hObject, m_dwStepMs);
        }
        return true;
    }

private:
    int m_nSteps;
    DWORD m_dwStepMs;
};

bool HasEnded(HANDLE hThread) noexcept
{
    return hThread == nullptr || WaitForSingleObject(hThread, 0) == WAIT_OBJECT_0;
}

// A worker that this stop has asked to end. A start may put another one into the slot meanwhile, which is no concern of
// this stop.
struct StoppingWorker
{
    WatchedWorker watched;
    bool bClaimed = false;
    HANDLE hThread = nullptr; // of a claimed worker: its own
    bool bForced = false;
    bool bWriting = false; // it was spared because it is writing to the log
};

// In the order of the controls.
using StoppingWorkers = std::array<StoppingWorker, UTILIZATION_WORKERS>;

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

// So that the next report thread does not make a report that nobody asked for. Where there was no report worker to wake,
// or there is a new one, the event is the host's request.
void ResetBeginEvent(const StoppingWorker& report) noexcept
{
    if (report.watched.nTicket == 0 || WORKER_CONTROLS[REPORT_WORKER].slot.HasNewerThan(report.watched))
    {
        return;
    }
    const UniqueHandle begin(OpenEventW(EVENT_ALL_ACCESS, FALSE, BEGIN_EVENT_NAME));
    if (begin)
    {
        ResetEvent(begin.Get());
    }
}

void RequestStops(StoppingWorkers& workers) noexcept
{
    for (std::size_t i = 0; i < workers.size(); ++i)
    {
        workers[i].watched = WORKER_CONTROLS[i].slot.RequestStopAndWatch();
        if (i == REPORT_WORKER && workers[i].watched.nTicket != 0)
        {
            SignalBeginEvent();
        }
    }
}

bool IsAnySamplerSet(const StoppingWorkers& workers) noexcept
{
    for (std::size_t i = 0; i < REPORT_WORKER; ++i)
    {
        if (WORKER_CONTROLS[i].slot.Holds(workers[i].watched))
        {
            return true;
        }
    }
    return false;
}

// Until the slots are empty and the threads behind them have really ended, or the budget is spent.
void WaitForWorkers(const StoppingWorkers& workers) noexcept
{
    WaitBudget budget(STOP_SECONDS, 1000);
    while (WORKER_CONTROLS[REPORT_WORKER].slot.Holds(workers[REPORT_WORKER].watched) && budget.WaitAStep())
    {
    }
    ResetBeginEvent(workers[REPORT_WORKER]);
    while (IsAnySamplerSet(workers) && budget.WaitAStep())
    {
    }
    for (const StoppingWorker& worker : workers)
    {
        while (!HasEnded(worker.watched.thread.Get()) && budget.WaitAStep(worker.watched.thread.Get()))
        {
        }
    }
}

// Claims the workers that still have their slots, for this stop to end. True when one of their threads still runs.
bool ClaimWorkers(StoppingWorkers& workers) noexcept
{
    bool bAnyRuns = false;
    for (std::size_t i = 0; i < workers.size(); ++i)
    {
        StoppingWorker& worker = workers[i];
        worker.bClaimed = WORKER_CONTROLS[i].slot.Claim(worker.watched, worker.hThread);
        bAnyRuns = bAnyRuns || (worker.bClaimed && !HasEnded(worker.hThread));
    }
    return bAnyRuns;
}

// Ends a thread by force, unless it is writing to the log: it would take the log's mutex with it, and the log would be
// silent from then on. For a log whose mutex somebody else holds, so that the writers cannot be held off. False when it
// was not ended.
bool EndBesideWriters(HANDLE hThread, DWORD dwThreadId) noexcept
{
    constexpr int LOOKS = 3;
    constexpr DWORD LOOK_AGAIN_MS = 10;
    CONTEXT context{};
    context.ContextFlags = CONTEXT_CONTROL;
    for (int nLook = 1; nLook <= LOOKS; ++nLook)
    {
        // Nothing from here to the end or the resume may allocate: the thread may be inside the heap.
        if (SuspendThread(hThread) == static_cast<DWORD>(-1))
        {
            return false;
        }
        GetThreadContext(hThread, &context); // comes back when the thread really stands still
        const DWORD dwWriter = Log()->Writer();
        // No writer on record: another process holds the mutex, or a thread of ours that has it since a moment ago and
        // is on record at the next look.
        const bool bMayEnd = dwWriter != dwThreadId && (dwWriter != 0 || nLook == LOOKS);
        if (bMayEnd && TerminateThread(hThread, 0))
        {
            return true;
        }
        ResumeThread(hThread);
        Sleep(LOOK_AGAIN_MS);
    }
    return false;
}

// Ends the threads of the claimed workers that are stuck in a system call.
void EndByForce(StoppingWorkers& workers) noexcept
{
    const SPLogger::WritersHeldOff held(WRITERS_WAIT_MS); // once for all of them
    for (const std::size_t nControl : END_ORDER)
    {
        StoppingWorker& worker = workers[nControl];
        if (worker.bClaimed && !HasEnded(worker.hThread))
        {
            const DWORD dwThreadId = worker.watched.dwThreadId;
            worker.bForced =
                held ? TerminateThread(worker.hThread, 0) != FALSE : EndBesideWriters(worker.hThread, dwThreadId);
            worker.bWriting = !worker.bForced && Log()->Writer() == dwThreadId;
        }
    }
}

// Gives back the locks that a thread took with it, which it may have done long after it was ended by force. Its handle is
// still open.
void LeaveLocksFor(DWORD dwEndedThreadId) noexcept
{
    ForEachStore([dwEndedThreadId](auto& store) { store.lock.RenewIfOwnedBy(dwEndedThreadId); });
    for (WorkerSlot& slot : g_aUtilizationSlots)
    {
        slot.LeaveGuardFor(dwEndedThreadId);
    }
}

// Makes sure of the end of a worker that this stop has claimed. Null when its thread has ended by itself, else the sign
// that tells what became of it.
Sign* ConcludeClaimed(const StoppingWorker& worker, std::size_t nControl, WaitBudget& budget) noexcept
{
    WorkerSlot& slot = WORKER_CONTROLS[nControl].slot;
    while (worker.bForced && !HasEnded(worker.hThread) && budget.WaitAStep(worker.hThread))
    {
    }
    if (!HasEnded(worker.hThread))
    {
        slot.DropClaim();
        return worker.bWriting ? &g_writing : &g_livesOn;
    }
    LeaveLocksFor(worker.watched.dwThreadId);
    if (nControl == REPORT_WORKER)
    {
        ResetBeginEvent(worker);
    }
    slot.EmptyClaimed();
    return worker.bForced ? &g_endedByForce : nullptr;
}

// The same for any other worker: it has left its slot itself and may still be in its last steps, or another stop has
// claimed it.
Sign* ConcludeOther(const StoppingWorker& worker, std::size_t nControl, WaitBudget& budget) noexcept
{
    const WorkerSlot& slot = WORKER_CONTROLS[nControl].slot;
    const HANDLE hThread = worker.watched.thread.Get();
    while (slot.IsClaimed(worker.watched) && budget.WaitAStep())
    {
    }
    if (slot.Holds(worker.watched))
    {
        return &g_livesOn;
    }
    while (!HasEnded(hThread) && budget.WaitAStep(hThread))
    {
    }
    return !HasEnded(hThread) ? &g_livesOn : worker.watched.bUnseen ? &g_unseen : nullptr;
}

// False when a thread lives on, or may live on.
bool EndWorkers(StoppingWorkers& workers) noexcept
{
    if (ClaimWorkers(workers))
    {
        EndByForce(workers);
    }
    bool bAllEnded = true;
    // This stop's own first: another one may wait for them.
    for (const bool bClaimed : {true, false})
    {
        WaitBudget budget(bClaimed ? END_STEPS : OTHERS_STEPS, END_STEP_MS);
        for (const std::size_t nControl : END_ORDER)
        {
            const StoppingWorker& worker = workers[nControl];
            if (worker.bClaimed == bClaimed)
            {
                Sign* const pSign = (bClaimed ? ConcludeClaimed : ConcludeOther)(worker, nControl, budget);
                if (pSign != nullptr)
                {
                    pSign->kinds |= KindAt(nControl);
                    bAllEnded = bAllEnded && pSign == &g_endedByForce;
                }
            }
        }
    }
    return bAllEnded;
}

// Empties the stores but for those to which a new sampler has come: its samples are its own.
void CleanStores(const StoppingWorkers& workers, DWORD dwWaitMs) noexcept
{
    g_notEmptied.kinds |=
        CleanUtilizationStores(dwWaitMs, [&workers](std::size_t nStore)
                               { return !WORKER_CONTROLS[nStore].slot.HasNewerThan(workers[nStore].watched); });
}

void StopWorkers() noexcept
{
    // Names the start; readers of the log know it so.
    Log()->Level2A("StartPKIUtlThread -- Stop PKI utilization collection thread...");
    StoppingWorkers workers;
    RequestStops(workers);
    WaitForWorkers(workers);
    const bool bAllEnded = EndWorkers(workers);
    CleanStores(workers, bAllEnded ? CLEAN_WAIT_MS : 0); // a thread that lives on may hold a lock for ever
    TellSigns();
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
