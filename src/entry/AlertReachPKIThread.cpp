#include "entry/AlertReachPKIThread.h"

#include "diag/ExceptionBarrier.h"

#include <utility>

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
    const SlimLockHold hold(m_guard);
    return m_pWorker != nullptr;
}

bool WorkerSlot::HoldsGuarded(const WatchedWorker& watched) const noexcept
{
    return m_pWorker != nullptr && watched.nTicket == m_nTicket;
}

bool WorkerSlot::Holds(const WatchedWorker& watched) const noexcept
{
    const SlimLockHold hold(m_guard);
    return HoldsGuarded(watched);
}

bool WorkerSlot::PublishGuarded(CAlertReachPKIThread* pWorker) noexcept
{
    if (m_pWorker != nullptr)
    {
        return false;
    }
    m_pWorker = pWorker;
    ++m_nTicket;
    return true;
}

bool WorkerSlot::Publish(CAlertReachPKIThread* pWorker) noexcept
{
    const SlimLockHold hold(m_guard);
    return PublishGuarded(pWorker);
}

int WorkerSlot::PublishAndStart(CAlertReachPKIThread* pWorker) noexcept
{
    // One hold for both: a stop must neither see a worker whose thread is still to come, nor close the handle between
    // the thread's creation and its resume.
    const SlimLockHold hold(m_guard);
    if (!PublishGuarded(pWorker))
    {
        return WORKER_EXISTS;
    }
    return pWorker->StartThread() ? WORKER_CREATED : WORKER_NOT_STARTED;
}

void WorkerSlot::RequestStop() noexcept
{
    const SlimLockHold hold(m_guard);
    if (m_pWorker != nullptr)
    {
        m_pWorker->ClearRunning();
        m_pWorker->CloseThreadHandle();
    }
}

WatchedWorker WorkerSlot::RequestStopAndWatch() noexcept
{
    WatchedWorker watched;
    const SlimLockHold hold(m_guard);
    if (m_pWorker != nullptr)
    {
        m_pWorker->ClearRunning();
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
    const SlimLockHold hold(m_guard);
    if (m_pWorker != pWorker)
    {
        return false;
    }
    m_pWorker = nullptr;
    return true;
}

CAlertReachPKIThread* WorkerSlot::Take(const WatchedWorker& watched) noexcept
{
    const SlimLockHold hold(m_guard);
    return HoldsGuarded(watched) ? std::exchange(m_pWorker, nullptr) : nullptr;
}

void WorkerSlot::Forget() noexcept
{
    const SlimLockHold hold(m_guard);
    m_pWorker = nullptr;
}

bool WorkerSlot::PutBack(CAlertReachPKIThread* pWorker, const WatchedWorker& watched) noexcept
{
    const SlimLockHold hold(m_guard);
    if (m_pWorker != nullptr || m_nTicket != watched.nTicket)
    {
        return false;
    }
    m_pWorker = pWorker;
    return true;
}

bool WorkerSlot::Terminate(HANDLE hThread) noexcept
{
    const SlimLockHold hold(m_guard);
    return TerminateThread(hThread, 0) != FALSE;
}

} // namespace varnex
