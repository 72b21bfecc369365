#include "support/ScriptedExports.h"

#include "common/Locks.h"

#include <catch2/catch.hpp>

#include <map>
#include <string>
#include <utility>

namespace varnex::test
{

struct ScriptedExports::State
{
    struct Function
    {
        CallGate* pGate = nullptr;
        bool bHidden = false;
        ULONGLONG ullLookUps = 0;
    };

    SlimLock lock;
    std::map<std::string, Function> functions;

    FARPROC LookUp(HMODULE hModule, LPCSTR pszFunction)
    {
        if (reinterpret_cast<ULONG_PTR>(pszFunction) <= 0xFFFF) // by number
        {
            return GetProcAddress(hModule, pszFunction);
        }
        const SlimLockHold hold(lock);
        Function& function = functions[pszFunction];
        ++function.ullLookUps;
        if (function.bHidden)
        {
            SetLastError(ERROR_PROC_NOT_FOUND);
            return nullptr;
        }
        return function.pGate != nullptr ? reinterpret_cast<FARPROC>(function.pGate->Code())
                                         : GetProcAddress(hModule, pszFunction);
    }
};

namespace
{

ULONGLONG AnswerNothing()
{
    return 0;
}

// The real function, which the gate leads to when its script is taken away while somebody still holds its address.
void* FindSystemFunction(const char* pszFunction)
{
    for (const wchar_t* pwszModule : {L"kernel32.dll", L"ntdll.dll"})
    {
        if (const FARPROC pfnFound = GetProcAddress(GetModuleHandleW(pwszModule), pszFunction))
        {
            return reinterpret_cast<void*>(pfnFound);
        }
    }
    return reinterpret_cast<void*>(&AnswerNothing); // of a library that may not even be loaded
}

} // namespace

ScriptedExports::ScriptedExports(ImportRedirector& redirector)
    : m_state(std::make_shared<State>()), m_imports(redirector)
{
    const auto lookUp = [state = m_state](HMODULE hModule, LPCSTR pszFunction)
    { return state->LookUp(hModule, pszFunction); };
    m_imports.Replace<decltype(::GetProcAddress)>("GetProcAddress", lookUp);
}

ScriptedExports::~ScriptedExports()
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    for (auto& [name, function] : m_state->functions)
    {
        if (function.pGate != nullptr)
        {
            function.pGate->GiveBack();
        }
    }
    m_state->functions.clear();
}

CallGate& ScriptedExports::Gate(const char* pszFunction)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    State::Function& function = m_state->functions[pszFunction];
    function.bHidden = false;
    if (function.pGate == nullptr)
    {
        function.pGate = &CallGate::Take(FindSystemFunction(pszFunction));
    }
    return *function.pGate;
}

void ScriptedExports::Hide(const char* pszFunction)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->functions[pszFunction].bHidden = true;
}

void ScriptedExports::FailCall(const char* pszFunction, ULONGLONG ullCall, FailMode mode, DWORD dwLastError)
{
    Gate(pszFunction).SetFailure(ullCall, mode, CallFailure{dwLastError, 0, false});
}

void ScriptedExports::Restore(const char* pszFunction)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    State::Function& function = m_state->functions[pszFunction];
    function.bHidden = false;
    if (function.pGate != nullptr)
    {
        std::exchange(function.pGate, nullptr)->GiveBack();
    }
}

ULONGLONG ScriptedExports::LookUps(const char* pszFunction) const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    const auto found = m_state->functions.find(pszFunction);
    return found == m_state->functions.end() ? 0 : found->second.ullLookUps;
}

std::vector<std::string> ScriptedExports::LookedUp() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    std::vector<std::string> names;
    for (const auto& [name, function] : m_state->functions)
    {
        if (function.ullLookUps != 0)
        {
            names.push_back(name);
        }
    }
    return names;
}

CallGate* ScriptedExports::FindGate(const char* pszFunction) const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    const auto found = m_state->functions.find(pszFunction);
    return found == m_state->functions.end() ? nullptr : found->second.pGate;
}

ULONGLONG ScriptedExports::Calls(const char* pszFunction) const
{
    const CallGate* const pGate = FindGate(pszFunction);
    return pGate == nullptr ? 0 : pGate->Calls();
}

ULONGLONG ScriptedExports::Failures(const char* pszFunction) const
{
    const CallGate* const pGate = FindGate(pszFunction);
    return pGate == nullptr ? 0 : pGate->Failures();
}

} // namespace varnex::test
