#include "entry/AlertReachPKIThread.h"

#include "diag/ExceptionBarrier.h"

namespace varnex
{

CAlertReachPKIThread::CAlertReachPKIThread() noexcept
{
    InitializeCriticalSection(&m_csLock);
    const CriticalSectionHold hold(m_csLock);
    m_bRunning = 1;
    m_nInterval = 0;
    m_nThreshold = 0;
    m_nSamplingAmount = 0;
    m_nMaxAlertNum = 0;
}

int CAlertReachPKIThread::ReadLocked(GuardedField pnField) const noexcept
{
    const CriticalSectionHold hold(m_csLock);
    return this->*pnField;
}

void CAlertReachPKIThread::WriteLocked(GuardedField pnField, int nValue) noexcept
{
    const CriticalSectionHold hold(m_csLock);
    this->*pnField = nValue;
}

bool CAlertReachPKIThread::IsRunning() const noexcept
{
    return ReadLocked(&CAlertReachPKIThread::m_bRunning) != 0;
}

int CAlertReachPKIThread::GetInterval() const noexcept
{
    return ReadLocked(&CAlertReachPKIThread::m_nInterval);
}

int CAlertReachPKIThread::GetThreshold() const noexcept
{
    return ReadLocked(&CAlertReachPKIThread::m_nThreshold);
}

int CAlertReachPKIThread::GetSamplingAmount() const noexcept
{
    return ReadLocked(&CAlertReachPKIThread::m_nSamplingAmount);
}

int CAlertReachPKIThread::GetMaxAlertNum() const noexcept
{
    return ReadLocked(&CAlertReachPKIThread::m_nMaxAlertNum);
}

void CAlertReachPKIThread::SetInterval(int nSeconds) noexcept
{
    WriteLocked(&CAlertReachPKIThread::m_nInterval, nSeconds);
}

void CAlertReachPKIThread::SetThreshold(int nThreshold) noexcept
{
    WriteLocked(&CAlertReachPKIThread::m_nThreshold, nThreshold);
}

void CAlertReachPKIThread::SetSamplingAmount(int nAmount) noexcept
{
    WriteLocked(&CAlertReachPKIThread::m_nSamplingAmount, nAmount);
}

void CAlertReachPKIThread::SetMaxAlertNum(int nCount) noexcept
{
    WriteLocked(&CAlertReachPKIThread::m_nMaxAlertNum, nCount);
}

void CAlertReachPKIThread::ClearRunning() noexcept
{
    WriteLocked(&CAlertReachPKIThread::m_bRunning, 0);
}

void CAlertReachPKIThread::CloseThreadHandle() noexcept
{
    m_hThread.Reset();
}

HANDLE CAlertReachPKIThread::ThreadHandle() const noexcept
{
    return m_hThread.Get();
}

DWORD CAlertReachPKIThread::ThreadId() const noexcept
{
    return m_dwThreadId;
}

bool CAlertReachPKIThread::StartThread() noexcept
{
    const HANDLE hThread = CreateThread(nullptr, 0, AlertReachThreadProc, this, CREATE_SUSPENDED, &m_dwThreadId);
    m_hThread.Reset(hThread);
    if (hThread == nullptr)
    {
        return false;
    }
    SetThreadPriority(hThread, THREAD_PRIORITY_ABOVE_NORMAL);
    if (ResumeThread(hThread) != static_cast<DWORD>(-1)) // no member is touched behind this
    {
        return true;
    }
    TerminateThread(hThread, 0); // it has not run a step, so it holds nothing
    m_hThread.Reset();
    return false;
}

DWORD WINAPI AlertReachThreadProc(LPVOID pWorker) noexcept
{
    return StopExceptions("AlertReachThreadProc", DWORD{1},
                          [pWorker] { return static_cast<CAlertReachPKIThread*>(pWorker)->Run(); });
}

bool WorkerSlot::IsSet() const noexcept
{
    const RecoverableLockHold hold(m_guard);
    return m_pWorker != nullptr;
}

bool WorkerSlot::IsStopping() const noexcept
{
    const RecoverableLockHold hold(m_guard);
    return m_pWorker != nullptr && m_bStopRequested;
}

bool WorkerSlot::IsStopping(DWORD dwThreadId) const noexcept
{
    const RecoverableLockHold hold(m_guard);
    return m_pWorker != nullptr && m_bStopRequested && m_pWorker->ThreadId() == dwThreadId;
}

bool WorkerSlot::HoldsGuarded(const WatchedWorker& watched) const noexcept
{
    return m_pWorker != nullptr && watched.nTicket == m_nTicket;
}

bool WorkerSlot::Holds(const WatchedWorker& watched) const noexcept
{
    const RecoverableLockHold hold(m_guard);
    return HoldsGuarded(watched);
}

bool WorkerSlot::HasNewerThan(const WatchedWorker& watched) const noexcept
{
    const RecoverableLockHold hold(m_guard);
    return m_pWorker != nullptr && watched.nTicket != m_nTicket;
}

bool WorkerSlot::PublishGuarded(CAlertReachPKIThread* pWorker) noexcept
{
    if (m_pWorker != nullptr)
    {
        return false;
    }
    m_bStopRequested = false;
    ++m_nTicket;
    m_pWorker = pWorker;
    return true;
}

bool WorkerSlot::Publish(CAlertReachPKIThread* pWorker) noexcept
{
    const RecoverableLockHold hold(m_guard);
    return PublishGuarded(pWorker);
}

int WorkerSlot::PublishAndStart(CAlertReachPKIThread* pWorker) noexcept
{
    // One hold for both: a stop must neither see a worker whose thread is still to come, nor close the handle between
    // the thread's creation and its resume.
    const RecoverableLockHold hold(m_guard);
    if (!PublishGuarded(pWorker))
    {
        return WORKER_EXISTS;
    }
    return pWorker->StartThread() ? WORKER_CREATED : WORKER_NOT_STARTED;
}

// The first request clears the worker's flag. A later one leaves the object alone: a thread that was ended by force may
// have taken the object's critical section with it.
void WorkerSlot::RequestStopGuarded() noexcept
{
    if (!m_bStopRequested)
    {
        m_bStopRequested = true;
        m_pWorker->ClearRunning();
    }
}

void WorkerSlot::RequestStop() noexcept
{
    const RecoverableLockHold hold(m_guard);
    if (m_pWorker != nullptr)
    {
        RequestStopGuarded();
        m_pWorker->CloseThreadHandle();
    }
}

WatchedWorker WorkerSlot::RequestStopAndWatch() noexcept
{
    WatchedWorker watched;
    const RecoverableLockHold hold(m_guard);
    if (m_pWorker != nullptr)
    {
        RequestStopGuarded();
        watched.nTicket = m_nTicket;
        watched.dwThreadId = m_pWorker->ThreadId();
        if (m_pWorker->ThreadHandle() != nullptr)
        {
            watched.bUnseen = !DuplicateHandle(GetCurrentProcess(), m_pWorker->ThreadHandle(), GetCurrentProcess(),
                                               watched.thread.Receive(), 0, FALSE, DUPLICATE_SAME_ACCESS);
        }
    }
    return watched;
}

bool WorkerSlot::Withdraw(const CAlertReachPKIThread* pWorker) noexcept
{
    const RecoverableLockHold hold(m_guard);
    if (m_pWorker != pWorker || m_bClaimed)
    {
        return false;
    }
    m_pWorker = nullptr;
    return true;
}

bool WorkerSlot::Claim(const WatchedWorker& watched, HANDLE& hThread) noexcept
{
    const RecoverableLockHold hold(m_guard);
    if (!HoldsGuarded(watched) || m_bClaimed)
    {
        return false;
    }
    m_bClaimed = true;
    hThread = m_pWorker->ThreadHandle();
    return true;
}

bool WorkerSlot::IsClaimed(const WatchedWorker& watched) const noexcept
{
    const RecoverableLockHold hold(m_guard);
    return HoldsGuarded(watched) && m_bClaimed;
}

void WorkerSlot::DropClaim() noexcept
{
    const RecoverableLockHold hold(m_guard);
    m_bClaimed = false;
}

void WorkerSlot::EmptyClaimed() noexcept
{
    const RecoverableLockHold hold(m_guard);
    m_pWorker->CloseThreadHandle();
    m_bClaimed = false;
    m_pWorker = nullptr;
}

void WorkerSlot::Forget() noexcept
{
    const RecoverableLockHold hold(m_guard);
    m_bClaimed = false;
    m_pWorker = nullptr;
}

} // namespace varnex
