#pragma once

#include <windows.h>

namespace varnex
{

// Holds a critical section for a scope.
class CriticalSectionHold
{
public:
    explicit CriticalSectionHold(CRITICAL_SECTION& section) noexcept : m_section(section)
    {
        EnterCriticalSection(&m_section);
    }
    ~CriticalSectionHold() { LeaveCriticalSection(&m_section); }
    CriticalSectionHold(const CriticalSectionHold&) = delete;
    CriticalSectionHold& operator=(const CriticalSectionHold&) = delete;

private:
    CRITICAL_SECTION& m_section;
};

// Holds a slim lock exclusively for a scope.
class SlimLockHold
{
public:
    explicit SlimLockHold(SRWLOCK& lock) noexcept : m_lock(lock) { AcquireSRWLockExclusive(&m_lock); }
    ~SlimLockHold() { ReleaseSRWLockExclusive(&m_lock); }
    SlimLockHold(const SlimLockHold&) = delete;
    SlimLockHold& operator=(const SlimLockHold&) = delete;

private:
    SRWLOCK& m_lock;
};

} // namespace varnex
