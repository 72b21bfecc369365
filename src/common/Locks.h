#pragma once

#include "common/ThreadSafety.h"

#include <atomic>

#include <windows.h>

namespace varnex
{

// The system's two locks, as types of their own that the analysis of ThreadSafety.h knows.
struct VARNEX_CAPABILITY("critical section") CriticalSection : CRITICAL_SECTION
{
};

struct VARNEX_CAPABILITY("slim lock") SlimLock : SRWLOCK
{
    constexpr SlimLock() noexcept : SRWLOCK(SRWLOCK_INIT) {}
};

// Holds a critical section for a scope.
class VARNEX_SCOPED_CAPABILITY CriticalSectionHold
{
public:
    explicit CriticalSectionHold(CriticalSection& section) noexcept VARNEX_ACQUIRE(section) : m_section(section)
    {
        EnterCriticalSection(&m_section);
    }
    ~CriticalSectionHold() VARNEX_RELEASE() { LeaveCriticalSection(&m_section); }
    CriticalSectionHold(const CriticalSectionHold&) = delete;
    CriticalSectionHold& operator=(const CriticalSectionHold&) = delete;

private:
    CriticalSection& m_section;
};

// Holds a slim lock exclusively for a scope.
class VARNEX_SCOPED_CAPABILITY SlimLockHold
{
public:
    explicit SlimLockHold(SlimLock& lock) noexcept VARNEX_ACQUIRE(lock) : m_lock(lock)
    {
        AcquireSRWLockExclusive(&m_lock);
    }
    ~SlimLockHold() VARNEX_RELEASE() { ReleaseSRWLockExclusive(&m_lock); }
    SlimLockHold(const SlimLockHold&) = delete;
    SlimLockHold& operator=(const SlimLockHold&) = delete;

private:
    SlimLock& m_lock;
};

// A lock that the forced end of a thread cannot spoil. A thread waits for it by looking again after a millisecond, so it
// leaves nothing behind if it is ended meanwhile. The owner is on record, so whoever has seen its end can give the lock
// back for it. What the lock guards must make sense after every single write. Not re-entrant.
class VARNEX_CAPABILITY("recoverable lock") RecoverableLock
{
public:
    constexpr RecoverableLock() noexcept = default;
    RecoverableLock(const RecoverableLock&) = delete;
    RecoverableLock& operator=(const RecoverableLock&) = delete;

    void Enter() noexcept VARNEX_ACQUIRE()
    {
        while (!TryEnter())
        {
            SleepEx(1, FALSE); // whoever watches or redirects Sleep sees the documented pauses alone
        }
    }
    bool TryEnter() noexcept VARNEX_TRY_ACQUIRE(true)
    {
        DWORD dwNobody = 0;
        return m_dwOwner.compare_exchange_strong(dwNobody, GetCurrentThreadId(), std::memory_order_acquire,
                                                 std::memory_order_relaxed);
    }
    void Leave() noexcept VARNEX_RELEASE() { m_dwOwner.store(0, std::memory_order_release); }

    bool IsOwnedBy(DWORD dwThreadId) const noexcept { return m_dwOwner.load(std::memory_order_acquire) == dwThreadId; }
    // Gives the lock back if that thread owns it. The thread has ended, and a handle to it is still open: until that is
    // closed no other thread gets the same identifier.
    void LeaveFor(DWORD dwEndedThreadId) noexcept
    {
        m_dwOwner.compare_exchange_strong(dwEndedThreadId, 0, std::memory_order_release, std::memory_order_relaxed);
    }

private:
    std::atomic<DWORD> m_dwOwner{0};
};

// Holds a recoverable lock for a scope.
class VARNEX_SCOPED_CAPABILITY RecoverableLockHold
{
public:
    explicit RecoverableLockHold(RecoverableLock& lock) noexcept VARNEX_ACQUIRE(lock) : m_lock(lock) { m_lock.Enter(); }
    ~RecoverableLockHold() VARNEX_RELEASE() { m_lock.Leave(); }
    RecoverableLockHold(const RecoverableLockHold&) = delete;
    RecoverableLockHold& operator=(const RecoverableLockHold&) = delete;

private:
    RecoverableLock& m_lock;
};

} // namespace varnex
