#pragma once

#include "common/ThreadSafety.h"

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

} // namespace varnex
