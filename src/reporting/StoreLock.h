#pragma once

#include "common/Locks.h"

namespace varnex
{

// The lock of one sample store, re-entrant: a critical section that a thread enters only while the record of its owner
// says that nobody else is in it. So nobody ever waits inside the section, and it can be made anew when a thread that
// was ended by force has left it locked.
class VARNEX_CAPABILITY("store lock") StoreLock
{
public:
    // Makes the lock, at attach. Before that and after Delete nobody may touch it.
    void Initialize() noexcept { InitializeCriticalSection(&m_section); }
    // Ends it, at detach. Nobody owns it then, except in a process that ends.
    void Delete() noexcept { DeleteCriticalSection(&m_section); }
    // Makes the lock anew if that thread owns it. The thread has ended, and a handle to it is still open.
    void RenewIfOwnedBy(DWORD dwEndedThreadId) noexcept;

    // False when another thread owns it. Each success, here and below, takes a Leave on the same thread.
    bool TryEnter() noexcept VARNEX_TRY_ACQUIRE(true);
    // Waits for the lock that long at most, and takes what it has waited off that time. A worker that is asked to stop
    // waits a second more at most. False when the lock was not to be had.
    bool Enter(DWORD& dwWaitMs) noexcept VARNEX_TRY_ACQUIRE(true);
    void Leave() noexcept VARNEX_RELEASE();

private:
    CRITICAL_SECTION m_section;
    RecoverableLock m_owner; // held from before the section is entered until after it is left
    unsigned m_nDepth = 0;   // how often the owner has entered; touched by the owner, or for one that has ended
};

// Owns a store's lock for its scope, if it is to be had: see operator bool. Waits for 20 seconds at most, or for a
// second more once the calling worker is asked to stop; then it is logged that the lock was not to be had.
class VARNEX_SCOPED_CAPABILITY StoreLockHold
{
public:
    explicit StoreLockHold(StoreLock& lock) noexcept VARNEX_ACQUIRE(lock);
    ~StoreLockHold() VARNEX_RELEASE();
    StoreLockHold(const StoreLockHold&) = delete;
    StoreLockHold& operator=(const StoreLockHold&) = delete;

    // False when the lock was not to be had: the store must not be touched.
    explicit operator bool() const noexcept { return m_bHeld; }

private:
    StoreLock& m_lock;
    bool m_bHeld;
};

} // namespace varnex
