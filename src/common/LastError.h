#pragma once

#include <windows.h>

namespace varnex
{

// Puts the thread's last error back to what it was at construction.
class LastErrorKeeper
{
public:
    LastErrorKeeper() noexcept : m_dwError(GetLastError()) {}
    ~LastErrorKeeper() { SetLastError(m_dwError); }
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

private:
    DWORD m_dwError;
};

// The last error after a call that failed; dwOtherwise when the call left none, so that a failure never passes for a
// success.
inline DWORD LastErrorOr(DWORD dwOtherwise) noexcept
{
    const DWORD dwError = GetLastError();
    return dwError != ERROR_SUCCESS ? dwError : dwOtherwise;
}

} // namespace varnex
