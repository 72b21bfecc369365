#include "support/PrivateNames.h"

#include "common/Locks.h"
#include "support/ScriptScope.h"

#include <algorithm>
#include <atomic>

namespace varnex::test
{

bool IsForEveryone(const SECURITY_ATTRIBUTES* pSecurity)
{
    BOOL bPresent = FALSE;
    BOOL bDefaulted = TRUE;
    PACL pList = nullptr;
    return pSecurity != nullptr && !pSecurity->bInheritHandle &&
           GetSecurityDescriptorDacl(pSecurity->lpSecurityDescriptor, &bPresent, &pList, &bDefaulted) && bPresent &&
           pList == nullptr;
}

std::wstring PrivateName(const std::wstring& name, const std::wstring& key)
{
    return name + key;
}

std::wstring MakePrivateKey()
{
    static std::atomic<int> s_nMade{0};
    return L"-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++s_nMade);
}

struct PrivateNames::State
{
    SlimLock lock;
    std::vector<std::wstring> asked;
    std::vector<std::wstring> hidden;
    std::size_t nUnlikeExpected = 0;
    std::function<void(const std::wstring& call)> onAsked;

    void Note(const wchar_t* pwszCall, const std::wstring& name, bool bAsExpected)
    {
        const std::wstring call = pwszCall + (L" " + name);
        std::function<void(const std::wstring&)> action;
        {
            const SlimLockHold hold(lock);
            asked.push_back(call);
            nUnlikeExpected += bAsExpected ? 0 : 1;
            action = onAsked;
        }
        if (action)
        {
            action(call);
        }
    }
    bool IsHidden(const std::wstring& name)
    {
        const SlimLockHold hold(lock);
        return std::find(hidden.begin(), hidden.end(), name) != hidden.end();
    }
};

PrivateNames::PrivateNames(ImportRedirector& redirector, const std::wstring& key)
    : m_key(key), m_state(std::make_shared<State>()), m_imports(redirector)
{
    ScriptEvents();
    ScriptSections();
}

PrivateNames::~PrivateNames() = default;

void PrivateNames::ScriptEvents()
{
    m_imports.Replace<decltype(::CreateEventW)>(
        "CreateEventW",
        [state = m_state, key = m_key](LPSECURITY_ATTRIBUTES pSecurity, BOOL bManual, BOOL bInitial, LPCWSTR pwszName)
        {
            if (pwszName == nullptr) // one of the test's own
            {
                return CreateEventW(pSecurity, bManual, bInitial, nullptr);
            }
            state->Note(L"CreateEvent", pwszName, IsForEveryone(pSecurity) && bManual && !bInitial);
            return CreateEventW(pSecurity, bManual, bInitial, PrivateName(pwszName, key).c_str());
        });
    m_imports.Replace<decltype(::OpenEventW)>(
        "OpenEventW",
        [state = m_state, key = m_key](DWORD dwAccess, BOOL bInherit, LPCWSTR pwszName) -> HANDLE
        {
            state->Note(L"OpenEvent", pwszName, dwAccess == EVENT_ALL_ACCESS && !bInherit);
            if (state->IsHidden(pwszName))
            {
                SetLastError(ERROR_FILE_NOT_FOUND);
                return nullptr;
            }
            return OpenEventW(dwAccess, bInherit, PrivateName(pwszName, key).c_str());
        });
}

void PrivateNames::ScriptSections()
{
    m_imports.Replace<decltype(::CreateFileMappingW)>(
        "CreateFileMappingW",
        [state = m_state, key = m_key](HANDLE hFile, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwProtect, DWORD dwHigh,
                                       DWORD dwLow, LPCWSTR pwszName)
        {
            if (pwszName == nullptr) // one of the test's own
            {
                return CreateFileMappingW(hFile, pSecurity, dwProtect, dwHigh, dwLow, nullptr);
            }
            const bool bExpected = hFile == INVALID_HANDLE_VALUE && IsForEveryone(pSecurity) &&
                                   dwProtect == PAGE_READWRITE && dwHigh == 0 && dwLow == 32768;
            state->Note(L"CreateFileMapping", pwszName, bExpected);
            return CreateFileMappingW(hFile, pSecurity, dwProtect, dwHigh, dwLow, PrivateName(pwszName, key).c_str());
        });
    m_imports.Replace<decltype(::OpenFileMappingW)>(
        "OpenFileMappingW",
        [state = m_state, key = m_key](DWORD dwAccess, BOOL bInherit, LPCWSTR pwszName) -> HANDLE
        {
            state->Note(L"OpenFileMapping", pwszName, dwAccess == FILE_MAP_ALL_ACCESS && !bInherit);
            if (state->IsHidden(pwszName))
            {
                SetLastError(ERROR_FILE_NOT_FOUND);
                return nullptr;
            }
            return OpenFileMappingW(dwAccess, bInherit, PrivateName(pwszName, key).c_str());
        });
}

std::vector<std::wstring> PrivateNames::Asked() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->asked;
}

void PrivateNames::ForgetAsked()
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->asked.clear();
}

void PrivateNames::OnAsked(std::function<void(const std::wstring& call)> action)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->onAsked = std::move(action);
}

void PrivateNames::Hide(const std::wstring& name)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->hidden.push_back(name);
}

void PrivateNames::ShowAll()
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->hidden.clear();
}

std::size_t PrivateNames::CountUnlikeExpected() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->nUnlikeExpected;
}

} // namespace varnex::test
