#pragma once

#include "common/ThreadSafety.h"

#include <windows.h>

namespace varnex
{

// The lock of one sample store, re-entrant; any thread may take it. A thread that is ended by force keeps the locks
// that it owns: see RenewIfOwnedBy.
class VARNEX_CAPABILITY("store lock") StoreLock
{
public:
    // Makes the lock, at attach. Before that and after Delete nobody may touch it.
    void Initialize() noexcept { InitializeCriticalSection(&m_section); }
    // Ends it, at detach. Nobody owns it then, except in a process that ends.
    void Delete() noexcept { DeleteCriticalSection(&m_section); }
    // Makes the lock anew if that thread still owns it. The thread must have ended, not only be about to, and nobody
    // may be waiting for the lock: such a thread would wait for ever. The old section is given up, not deleted.
    void RenewIfOwnedBy(DWORD dwEndedThreadId) noexcept
    {
        if (reinterpret_cast<ULONG_PTR>(m_section.OwningThread) == dwEndedThreadId)
        {
            InitializeCriticalSection(&m_section);
        }
    }

    // Waits for the lock. Each Enter, and each TryEnter that returned true, takes a Leave on the same thread.
    void Enter() noexcept VARNEX_ACQUIRE() { EnterCriticalSection(&m_section); }
    // False when another thread owns it.
    bool TryEnter() noexcept VARNEX_TRY_ACQUIRE(true) { return TryEnterCriticalSection(&m_section) != FALSE; }
    void Leave() noexcept VARNEX_RELEASE() { LeaveCriticalSection(&m_section); }

private:
    CRITICAL_SECTION m_section;
};

// Owns a store's lock for its scope.
class VARNEX_SCOPED_CAPABILITY StoreLockHold
{
public:
    explicit StoreLockHold(StoreLock& lock) noexcept VARNEX_ACQUIRE(lock) : m_lock(lock) { m_lock.Enter(); }
    ~StoreLockHold() VARNEX_RELEASE() { m_lock.Leave(); }
    StoreLockHold(const StoreLockHold&) = delete;
    StoreLockHold& operator=(const StoreLockHold&) = delete;

private:
    StoreLock& m_lock;
};

} // namespace varnex
