#pragma once

#include "common/Handles.h"
#include "common/Locks.h"
#include "diag/SPLogger.h"

#include <windows.h>

namespace varnex
{

// Base of every worker: the keep-running flag, four policy values, the lock that guards them, and the thread that runs
// the object. A worker lives in a slot (see WorkerSlot) and frees itself at the end of its Run, each final class by
// its own type; there is no virtual destructor.
//
// The controlling threads and the worker's own thread share the object; each access to the flag or to a policy value
// takes and releases the lock by itself.
class CAlertReachPKIThread
{
public:
    CAlertReachPKIThread(const CAlertReachPKIThread&) = delete;
    CAlertReachPKIThread& operator=(const CAlertReachPKIThread&) = delete;

    // The thread's body. Returns its exit code.
    virtual DWORD Run() = 0;
    // Re-reads the policy values from the configuration. Callers ignore the result.
    virtual int UpdateAlertPolicy() = 0;

    bool IsRunning() const noexcept;
    int GetInterval() const noexcept;       // seconds between two samples
    int GetThreshold() const noexcept;      // percent, or MB/s for disks
    int GetSamplingAmount() const noexcept; // number of newest samples averaged
    int GetMaxAlertNum() const noexcept;    // alerts per calendar day
    void SetInterval(int nSeconds) noexcept;
    void SetThreshold(int nThreshold) noexcept;
    void SetSamplingAmount(int nAmount) noexcept;
    void SetMaxAlertNum(int nCount) noexcept;

    // Asks the worker to end; waits for nothing. The caller keeps the object alive: see WorkerSlot::RequestStop.
    void ClearRunning() noexcept;
    // Closes the thread's handle; the thread runs on. For the owner of the object or under its slot's guard.
    void CloseThreadHandle() noexcept;
    // The thread's handle, the worker's own; null when there is no thread.
    HANDLE ThreadHandle() const noexcept;
    // The thread's identifier, as its creation gave it: the system may refuse to tell it later. 0 before there was one.
    DWORD ThreadId() const noexcept;

    // Creates the thread, above normal priority, and lets it run. False when there is no thread; the object stays as
    // it is. The object may be gone when this returns.
    bool StartThread() noexcept;

protected:
    CAlertReachPKIThread() noexcept;
    // The critical section is not deleted: every worker that ended leaves one behind, which is accepted.
    ~CAlertReachPKIThread() = default;

private:
    using GuardedField = int CAlertReachPKIThread::*;
    int ReadLocked(GuardedField pnField) const noexcept;
    void WriteLocked(GuardedField pnField, int nValue) noexcept;

    int m_bRunning VARNEX_GUARDED_BY(m_csLock);
    mutable CriticalSection m_csLock;
    int m_nInterval VARNEX_GUARDED_BY(m_csLock);
    int m_nThreshold VARNEX_GUARDED_BY(m_csLock);
    int m_nSamplingAmount VARNEX_GUARDED_BY(m_csLock);
    int m_nMaxAlertNum VARNEX_GUARDED_BY(m_csLock);
    UniqueHandle m_hThread;
    DWORD m_dwThreadId = 0;
};

// The thread procedure of every worker; its parameter is the CAlertReachPKIThread.
DWORD WINAPI AlertReachThreadProc(LPVOID pWorker) noexcept;

// What became of a creation.
constexpr int WORKER_CREATED = 1;
constexpr int WORKER_NOT_STARTED = 2; // no thread; the object keeps its slot and counts as existing
constexpr int WORKER_EXISTS = 3;      // somebody else took the slot first

// A worker that was asked to end, for a caller that waits for it.
struct WatchedWorker
{
    unsigned nTicket = 0; // which worker it is: an address may be used again; 0 when there was none
    DWORD dwThreadId = 0; // of its thread; while a handle is open no other thread gets it
    UniqueHandle thread;  // null when there is no thread, or no handle to be had
    bool bUnseen = false; // there is a thread and no handle to be had: its end cannot be seen
};

// The place of one worker in the process: empty, or the worker that runs, is about to end, or failed to start. A guard
// of its own, held for a few instructions or for a thread's creation, keeps requests away from an object that is being
// freed. Every operation may be called from any thread.
//
// A worker empties its slot itself, at its end. A stop that wants to end it by force claims it first; the slot is then
// emptied only after the thread has ended, so that nobody takes a thread for gone that may still hold a lock.
class WorkerSlot
{
public:
    constexpr WorkerSlot() noexcept = default;
    WorkerSlot(const WorkerSlot&) = delete;
    WorkerSlot& operator=(const WorkerSlot&) = delete;

    bool IsSet() const noexcept;
    // Whether there is a worker that was asked to end.
    bool IsStopping() const noexcept;
    // Whether that thread runs the worker, and the worker was asked to end.
    bool IsStopping(DWORD dwThreadId) const noexcept;
    // Whether that very worker is still here.
    bool Holds(const WatchedWorker& watched) const noexcept;
    // Whether a worker is here that came after that one.
    bool HasNewerThan(const WatchedWorker& watched) const noexcept;
    // Takes the worker in. False when there is one already.
    bool Publish(CAlertReachPKIThread* pWorker) noexcept;
    // The same, and starts its thread. WORKER_CREATED or WORKER_NOT_STARTED: the worker is in, or has ended already;
    // WORKER_EXISTS: the caller keeps it.
    int PublishAndStart(CAlertReachPKIThread* pWorker) noexcept;
    // Asks the worker, if there is one, to end, and closes its thread's handle.
    void RequestStop() noexcept;
    // Asks the worker, if there is one, to end; its thread's handle stays open.
    WatchedWorker RequestStopAndWatch() noexcept;
    // Empties the slot if this worker is in it and nobody has claimed it. True makes the worker its own owner: it frees
    // itself, and not before.
    bool Withdraw(const CAlertReachPKIThread* pWorker) noexcept;
    // Claims that worker, for the only one who may end its thread by force. False when it is not here (any more), or
    // somebody else has claimed it. Its thread's handle, null when there is none, stays open while it is claimed.
    bool Claim(const WatchedWorker& watched, HANDLE& hThread) noexcept;
    // Whether that worker is here and claimed.
    bool IsClaimed(const WatchedWorker& watched) const noexcept;
    // For whoever claimed the worker: its thread lives on, and it keeps its slot.
    void DropClaim() noexcept;
    // For whoever claimed the worker and has seen its thread's end: closes the handle and empties the slot. The object
    // stays allocated.
    void EmptyClaimed() noexcept;
    // Gives the guard back if a thread that has ended owned it. See RecoverableLock.
    void LeaveGuardFor(DWORD dwEndedThreadId) noexcept { m_guard.LeaveFor(dwEndedThreadId); }
    // Empties the slot, whatever it holds; whoever was there is left alone.
    void Forget() noexcept;

private:
    bool PublishGuarded(CAlertReachPKIThread* pWorker) noexcept VARNEX_REQUIRES(m_guard);
    bool HoldsGuarded(const WatchedWorker& watched) const noexcept VARNEX_REQUIRES(m_guard);
    void RequestStopGuarded() noexcept VARNEX_REQUIRES(m_guard);

    mutable RecoverableLock m_guard;
    CAlertReachPKIThread* m_pWorker VARNEX_GUARDED_BY(m_guard) VARNEX_PT_GUARDED_BY(m_guard) = nullptr;
    unsigned m_nTicket VARNEX_GUARDED_BY(m_guard) = 0;        // of the worker that is, or was, here
    bool m_bStopRequested VARNEX_GUARDED_BY(m_guard) = false; // of the worker that is here
    bool m_bClaimed VARNEX_GUARDED_BY(m_guard) = false;       // the same
};

// Makes a worker of a final class, puts it into its slot and runs it. Throws std::bad_alloc. The texts are log lines.
template <class Worker>
int CreateRunningThread(WorkerSlot& slot, const char* pszFailure, const char* pszSuccess)
{
    auto* const pWorker = new Worker;
    const int nResult = slot.PublishAndStart(pWorker); // the worker may be gone at any time from here on
    switch (nResult)
    {
    case WORKER_EXISTS:
        delete pWorker;
        break;
    case WORKER_NOT_STARTED:
        Log()->Level1A(pszFailure);
        break;
    default:
        Log()->Level4A(pszSuccess);
        break;
    }
    return nResult;
}

// A worker's last step but its words: empties its slot and frees it, its thread's handle with it. The object of a worker
// that a stop has claimed stays.
template <class Worker>
void DismantleWorker(Worker* pWorker, WorkerSlot& slot) noexcept
{
    if (slot.Withdraw(pWorker))
    {
        delete pWorker;
    }
}

} // namespace varnex
