#include "support/ScriptedSystemTimes.h"

#include "common/Locks.h"

#include <deque>

namespace varnex::test
{

namespace
{

constexpr ULONGLONG STEP = 10000000; // one second of one processor's time for each read

struct Times
{
    ULONGLONG ullIdle = 0;
    ULONGLONG ullKernel = 0; // with the idle time
    ULONGLONG ullUser = 0;
};

// Of the whole program: a module that keeps its last reading must never see the times run backwards.
Times g_times;

FILETIME ToFileTime(ULONGLONG ullUnits)
{
    return {static_cast<DWORD>(ullUnits), static_cast<DWORD>(ullUnits >> 32)};
}

} // namespace

struct ScriptedSystemTimes::State
{
    SlimLock lock;
    std::deque<int> percents{0};
    bool bFrozen = false;
    bool bFails = false;
    DWORD dwLastError = 0;
    ULONGLONG ullReads = 0;

    void Step()
    {
        const auto ullBusy = static_cast<ULONGLONG>(percents.front()) * (STEP / 100);
        g_times.ullUser += ullBusy / 2;
        g_times.ullKernel += STEP - ullBusy / 2;
        g_times.ullIdle += STEP - ullBusy;
        if (percents.size() > 1)
        {
            percents.pop_front();
        }
    }

    BOOL Read(PFILETIME pIdle, PFILETIME pKernel, PFILETIME pUser)
    {
        const SlimLockHold hold(lock);
        ++ullReads;
        if (bFails)
        {
            SetLastError(dwLastError);
            return FALSE;
        }
        if (!bFrozen)
        {
            Step();
        }
        *pIdle = ToFileTime(g_times.ullIdle);
        *pKernel = ToFileTime(g_times.ullKernel);
        *pUser = ToFileTime(g_times.ullUser);
        return TRUE;
    }
};

ScriptedSystemTimes::ScriptedSystemTimes(ScriptedExports& exports)
    : m_exports(exports), m_state(std::make_shared<State>())
{
    const auto read = [state = m_state](PFILETIME pIdle, PFILETIME pKernel, PFILETIME pUser)
    { return state->Read(pIdle, pKernel, pUser); };
    m_exports.Replace<decltype(::GetSystemTimes)>("GetSystemTimes", read);
}

ScriptedSystemTimes::~ScriptedSystemTimes()
{
    m_exports.Restore("GetSystemTimes");
}

void ScriptedSystemTimes::SetUtilization(int nPercent)
{
    SetUtilizations({nPercent});
}

void ScriptedSystemTimes::SetUtilizations(const std::vector<int>& percents)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->percents.assign(percents.begin(), percents.end());
    m_state->bFrozen = false;
    m_state->bFails = false;
}

void ScriptedSystemTimes::SetTimes(ULONGLONG ullIdle, ULONGLONG ullKernel, ULONGLONG ullUser)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    g_times = {ullIdle, ullKernel, ullUser};
    m_state->bFrozen = true;
    m_state->bFails = false;
}

void ScriptedSystemTimes::Freeze()
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->bFrozen = true;
    m_state->bFails = false;
}

void ScriptedSystemTimes::Fail(DWORD dwLastError)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->bFails = true;
    m_state->dwLastError = dwLastError;
}

void ScriptedSystemTimes::Restart()
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    g_times = {};
}

ULONGLONG ScriptedSystemTimes::Reads() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->ullReads;
}

} // namespace varnex::test
