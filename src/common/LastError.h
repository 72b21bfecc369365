#pragma once

#include <windows.h>

namespace varnex
{

// Puts the thread's last error back to what it was at construction.
class LastErrorKeeper
{
public:
    LastErrorKeeper() noexcept : m_dwError(GetLastError())
    {
    }
    ~LastErrorKeeper()
    {
        SetLastError(m_dwError);
    }
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

private:
    DWORD m_dwError;
};

} // namespace varnex
