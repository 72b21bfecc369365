#pragma once

#include <windows.h>

namespace varnex
{

// The last error after a call that failed; dwOtherwise when the call left none, so that a failure never passes for a
// success.
inline DWORD LastErrorOr(DWORD dwOtherwise) noexcept
{
    const DWORD dwError = GetLastError();
    return dwError != ERROR_SUCCESS ? dwError : dwOtherwise;
}

} // namespace varnex
