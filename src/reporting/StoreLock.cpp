#include "reporting/StoreLock.h"

#include "diag/SPLogger.h"
#include "entry/ModuleState.h"

#include <algorithm>
#include <iterator>

namespace varnex
{

namespace
{

constexpr DWORD LOOK_AGAIN_MS = 50;
// A step of the network sampler takes seconds where the system answers slowly. An asker may give up after 30 seconds.
constexpr DWORD PATIENCE_MS = 20'000;
constexpr DWORD STOP_PATIENCE_MS = 1000;

bool IsCallerStopping() noexcept
{
    return std::any_of(std::begin(g_aUtilizationSlots), std::end(g_aUtilizationSlots),
                       [dwThreadId = GetCurrentThreadId()](const WorkerSlot& slot)
                       { return slot.IsStopping(dwThreadId); });
}

} // namespace

bool StoreLock::TryEnter() noexcept
{
    if (!m_owner.IsOwnedBy(GetCurrentThreadId()) && !m_owner.TryEnter())
    {
        return false;
    }
    EnterCriticalSection(&m_section); // at once: nobody else is in it
    ++m_nDepth;
    return true;
}

bool StoreLock::Enter(DWORD& dwWaitMs) noexcept
{
    while (!TryEnter())
    {
        if (dwWaitMs > STOP_PATIENCE_MS && IsCallerStopping())
        {
            dwWaitMs = STOP_PATIENCE_MS;
        }
        if (dwWaitMs < LOOK_AGAIN_MS)
        {
            return false;
        }
        SleepEx(LOOK_AGAIN_MS, FALSE);
        dwWaitMs -= LOOK_AGAIN_MS;
    }
    return true;
}

void StoreLock::Leave() noexcept
{
    const bool bLast = --m_nDepth == 0;
    LeaveCriticalSection(&m_section);
    if (bLast)
    {
        m_owner.Leave();
    }
}

void StoreLock::RenewIfOwnedBy(DWORD dwEndedThreadId) noexcept
{
    if (m_owner.IsOwnedBy(dwEndedThreadId))
    {
        DeleteCriticalSection(&m_section); // nobody waits for it
        InitializeCriticalSection(&m_section);
        m_nDepth = 0;
        m_owner.LeaveFor(dwEndedThreadId);
    }
}

StoreLockHold::StoreLockHold(StoreLock& lock) noexcept : m_lock(lock)
{
    DWORD dwWaitMs = PATIENCE_MS;
    m_bHeld = lock.Enter(dwWaitMs);
    if (!m_bHeld)
    {
        Log()->Level1A("StoreLock -- a store of samples is in use for too long and is left alone.");
    }
}

StoreLockHold::~StoreLockHold()
{
    if (m_bHeld)
    {
        m_lock.Leave();
    }
}

} // namespace varnex
