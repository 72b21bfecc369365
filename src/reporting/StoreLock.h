#pragma once

#include <windows.h>

namespace varnex
{

// The lock of one sample store, re-entrant. It exists from attach to detach.
class StoreLock
{
public:
    void Initialize() noexcept
    {
        InitializeCriticalSection(&m_section);
    }
    void Delete() noexcept
    {
        DeleteCriticalSection(&m_section);
    }
    // Makes the lock anew if that thread, which has been ended by force, still owns it.
    void RenewIfOwnedBy(DWORD dwEndedThreadId) noexcept
    {
        if (reinterpret_cast<ULONG_PTR>(m_section.OwningThread) == dwEndedThreadId)
        {
            InitializeCriticalSection(&m_section);
        }
    }

    void Enter() noexcept
    {
        EnterCriticalSection(&m_section);
    }
    bool TryEnter() noexcept
    {
        return TryEnterCriticalSection(&m_section) != FALSE;
    }
    void Leave() noexcept
    {
        LeaveCriticalSection(&m_section);
    }

private:
    CRITICAL_SECTION m_section;
};

class StoreLockHold
{
public:
    explicit StoreLockHold(StoreLock& lock) noexcept : m_lock(lock)
    {
        m_lock.Enter();
    }
    ~StoreLockHold()
    {
        m_lock.Leave();
    }
    StoreLockHold(const StoreLockHold&) = delete;
    StoreLockHold& operator=(const StoreLockHold&) = delete;

private:
    StoreLock& m_lock;
};

} // namespace varnex
