#pragma once

#include "common/LastError.h"

#include <cstddef>

#include <windows.h>

namespace varnex
{

// Writes all of it, or gives the system error (ERROR_DISK_FULL for a write that took only a part).
inline DWORD WriteWhole(HANDLE hFile, const char* pachData, std::size_t cbData) noexcept
{
    DWORD cbWritten = 0;
    if (!WriteFile(hFile, pachData, static_cast<DWORD>(cbData), &cbWritten, nullptr))
    {
        return LastErrorOr(ERROR_GEN_FAILURE);
    }
    return cbWritten == cbData ? ERROR_SUCCESS : ERROR_DISK_FULL;
}

} // namespace varnex
