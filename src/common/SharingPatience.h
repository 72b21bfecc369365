#pragma once

#include <windows.h>

namespace varnex
{

// Whether another program's hold on a file kept a call from its work, perhaps for a moment only.
inline bool IsSharingError(DWORD dwError) noexcept
{
    return dwError == ERROR_ACCESS_DENIED || dwError == ERROR_SHARING_VIOLATION || dwError == ERROR_LOCK_VIOLATION;
}

inline bool IsSharingStatus(HRESULT nStatus) noexcept
{
    return FAILED(nStatus) && HRESULT_FACILITY(nStatus) == FACILITY_WIN32 &&
           IsSharingError(static_cast<DWORD>(HRESULT_CODE(nStatus)));
}

// The second, counted from its making, in which a file in other hands is tried again. All that is tried with one object
// shares that second. For one thread.
class SharingPatience
{
public:
    // Runs an operation, which returns a status or a system error, until it ends in anything but a sharing error, or until
    // the second leaves no room for another pause. Returns what its last run did; there is always one.
    template <class Operation>
    auto Try(Operation operation) const noexcept
    {
        for (;;)
        {
            const auto nResult = operation();
            if (!IsSharing(nResult) || !Pause(PAUSE_MS))
            {
                return nResult;
            }
        }
    }

    // Sleeps. False, at once, when the second leaves no room for that.
    bool Pause(DWORD dwMilliseconds) const noexcept
    {
        if (GetTickCount64() - m_ullBeginMs + dwMilliseconds > LIMIT_MS)
        {
            return false;
        }
        Sleep(dwMilliseconds);
        return true;
    }

private:
    static bool IsSharing(HRESULT nStatus) noexcept { return IsSharingStatus(nStatus); }
    static bool IsSharing(DWORD dwError) noexcept { return IsSharingError(dwError); }

    static constexpr DWORD PAUSE_MS = 50;
    static constexpr DWORD LIMIT_MS = 1000;

    const ULONGLONG m_ullBeginMs = GetTickCount64(); // not the end, which may lie past a wrap of the count
};

} // namespace varnex
