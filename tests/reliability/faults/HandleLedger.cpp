#include "HandleLedger.h"

#include "common/Locks.h"
#include "support/ScriptScope.h"

#include <set>

namespace varnex::test
{

struct HandleLedger::State
{
    mutable SlimLock lock;
    std::set<HANDLE> semaphores; // open ones
    ULONGLONG ullCalls = 0;
    ULONGLONG ullFailures = 0;
    ULONGLONG ullFailAt = 0; // 0: none
    bool bFailsOn = false;

    HANDLE NoteSemaphore(HANDLE hSemaphore)
    {
        const SlimLockHold hold(lock);
        if (hSemaphore != nullptr)
        {
            semaphores.insert(hSemaphore);
        }
        return hSemaphore;
    }
    BOOL Close(HANDLE hObject)
    {
        const BOOL bClosed = CloseHandle(hObject);
        const SlimLockHold hold(lock);
        semaphores.erase(hObject);
        ++ullCalls;
        const bool bFails = ullFailAt != 0 && (ullCalls == ullFailAt || (bFailsOn && ullCalls > ullFailAt));
        ullFailures += bFails ? 1 : 0;
        return bFails ? FALSE : bClosed;
    }
    void Fail(ULONGLONG ullCall, FailMode mode)
    {
        const UnscriptedScope unscripted;
        const SlimLockHold hold(lock);
        bFailsOn = mode == FailMode::FromThereOn;
        ullFailAt = ullCalls + ullCall;
    }
    template <class Read>
    auto Locked(Read read) const
    {
        const UnscriptedScope unscripted;
        const SlimLockHold hold(lock);
        return read(*this);
    }
};

HandleLedger::HandleLedger(ImportRedirector& imports)
    : m_state(std::make_shared<State>()), m_imports(imports), m_scripts(imports)
{
    m_scripts.Replace<decltype(::CloseHandle)>("CloseHandle",
                                               [state = m_state](HANDLE hObject) { return state->Close(hObject); });
    m_scripts.TryReplace<decltype(::CreateSemaphoreW)>(
        "CreateSemaphoreW",
        [state = m_state](LPSECURITY_ATTRIBUTES pSecurity, LONG nCount, LONG nMost, LPCWSTR pwszName)
        { return state->NoteSemaphore(CreateSemaphoreW(pSecurity, nCount, nMost, pwszName)); });
    m_imports.CountCalls("CreateEventW");
    m_imports.CountCalls("CreateFileMappingW");
}

HandleLedger::~HandleLedger() = default;

FaultTarget HandleLedger::CloseTarget() const
{
    return {"CloseHandle", [state = m_state](ULONGLONG ullCall, FailMode mode) { state->Fail(ullCall, mode); },
            [state = m_state] { return state->Locked([](const State& s) { return s.ullCalls; }); },
            [state = m_state] { return state->Locked([](const State& s) { return s.ullFailures; }); }};
}

std::size_t HandleLedger::Kept() const
{
    const auto made = [this](const char* pszImport)
    { return static_cast<std::size_t>(m_imports.Calls(pszImport) - m_imports.Failures(pszImport)); };
    return made("CreateEventW") + made("CreateFileMappingW") +
           m_state->Locked([](const State& state) { return state.semaphores.size(); });
}

} // namespace varnex::test
