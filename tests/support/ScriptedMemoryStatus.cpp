#include "support/ScriptedMemoryStatus.h"

#include "common/Locks.h"

#include <cstring>

namespace varnex::test
{

namespace
{

constexpr unsigned MB_BITS = 20;
constexpr ULONGLONG UTILIZATION_MB = 10000;

bool IsCleared(const MEMORYSTATUSEX& status)
{
    MEMORYSTATUSEX cleared;
    std::memset(&cleared, 0, sizeof(cleared));
    cleared.dwLength = status.dwLength;
    return std::memcmp(&cleared, &status, sizeof(cleared)) == 0;
}

} // namespace

struct ScriptedMemoryStatus::State
{
    SlimLock lock;
    ULONGLONG ullTotalPhysical = UTILIZATION_MB << MB_BITS;
    ULONGLONG ullAvailablePhysical = UTILIZATION_MB << MB_BITS;
    ULONGLONG ullTotalPaging = UTILIZATION_MB << MB_BITS;
    ULONGLONG ullAvailablePaging = UTILIZATION_MB << MB_BITS;
    bool bFails = false;
    DWORD dwLastError = 0;
    ULONGLONG ullReads = 0;
    ULONGLONG ullBadReads = 0;

    BOOL Read(LPMEMORYSTATUSEX pStatus)
    {
        const SlimLockHold hold(lock);
        ++ullReads;
        if (pStatus->dwLength != sizeof(*pStatus))
        {
            ++ullBadReads;
            SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
        ullBadReads += IsCleared(*pStatus) ? 0 : 1;
        if (bFails)
        {
            SetLastError(dwLastError);
            return FALSE;
        }
        // Approximate, says its documentation: whoever uses it instead of the sizes is one off.
        const ULONGLONG ullUsed = ullTotalPhysical - ullAvailablePhysical;
        pStatus->dwMemoryLoad = ullTotalPhysical == 0 ? 0 : static_cast<DWORD>(ullUsed * 100 / ullTotalPhysical) + 1;
        pStatus->ullTotalPhys = ullTotalPhysical;
        pStatus->ullAvailPhys = ullAvailablePhysical;
        pStatus->ullTotalPageFile = ullTotalPaging;
        pStatus->ullAvailPageFile = ullAvailablePaging;
        pStatus->ullTotalVirtual = 0x7FFFFFFE0000;
        pStatus->ullAvailVirtual = pStatus->ullTotalVirtual / 2;
        return TRUE;
    }
};

ScriptedMemoryStatus::ScriptedMemoryStatus(ScriptedExports& exports)
    : m_exports(exports), m_state(std::make_shared<State>())
{
    m_exports.Replace<decltype(::GlobalMemoryStatusEx)>(
        "GlobalMemoryStatusEx", [state = m_state](LPMEMORYSTATUSEX pStatus) { return state->Read(pStatus); });
}

ScriptedMemoryStatus::~ScriptedMemoryStatus()
{
    m_exports.Restore("GlobalMemoryStatusEx");
}

void ScriptedMemoryStatus::SetUtilization(unsigned nPhysicalPercent, unsigned nPagingPercent)
{
    constexpr ULONGLONG MB_OF_PERCENT = UTILIZATION_MB / 100;
    SetPhysicalMB(UTILIZATION_MB, UTILIZATION_MB - nPhysicalPercent * MB_OF_PERCENT);
    SetPagingMB(UTILIZATION_MB, UTILIZATION_MB - nPagingPercent * MB_OF_PERCENT);
}

void ScriptedMemoryStatus::SetPhysicalMB(ULONGLONG ullTotal, ULONGLONG ullAvailable)
{
    SetPhysicalBytes(ullTotal << MB_BITS, ullAvailable << MB_BITS);
}

void ScriptedMemoryStatus::SetPagingMB(ULONGLONG ullTotal, ULONGLONG ullAvailable)
{
    SetPagingBytes(ullTotal << MB_BITS, ullAvailable << MB_BITS);
}

void ScriptedMemoryStatus::SetPhysicalBytes(ULONGLONG ullTotal, ULONGLONG ullAvailable)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->bFails = false;
    m_state->ullTotalPhysical = ullTotal;
    m_state->ullAvailablePhysical = ullAvailable;
}

void ScriptedMemoryStatus::SetPagingBytes(ULONGLONG ullTotal, ULONGLONG ullAvailable)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->bFails = false;
    m_state->ullTotalPaging = ullTotal;
    m_state->ullAvailablePaging = ullAvailable;
}

void ScriptedMemoryStatus::Fail(DWORD dwLastError)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->bFails = true;
    m_state->dwLastError = dwLastError;
}

ULONGLONG ScriptedMemoryStatus::Reads() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->ullReads;
}

ULONGLONG ScriptedMemoryStatus::BadReads() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->ullBadReads;
}

} // namespace varnex::test
