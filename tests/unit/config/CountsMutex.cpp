#include "CountsMutex.h"

#include "support/ScriptScope.h"

#include <catch2/catch.hpp>

#include <functional>
#include <sstream>

namespace varnex::test
{

namespace
{

constexpr wchar_t MODULE_NAME[] = L"Global\\{49BCAD94-02E7-4d1d-9CDA-5A7246CDD559}";

// Runs something on a real thread, whatever is scripted, and returns when that thread has ended.
DWORD RunOnRealThread(std::function<DWORD()> body)
{
    const UnscriptedScope unscripted;
    const auto run = [](void* pBody) -> DWORD
    {
        const UnscriptedScope unscriptedThread;
        return (*static_cast<std::function<DWORD()>*>(pBody))();
    };
    const UniqueHandle thread(CreateThread(nullptr, 0, run, &body, 0, nullptr));
    WaitForSingleObject(thread.Get(), INFINITE);
    DWORD dwResult = 0;
    GetExitCodeThread(thread.Get(), &dwResult);
    return dwResult;
}

} // namespace

struct CountsMutex::State
{
    std::wstring privateName;
    std::vector<std::wstring> asked;

    // Any other name would not be the module's mutex, and stays.
    const wchar_t* PrivateFor(const wchar_t* pwszName) const
    {
        return std::wstring(pwszName) == MODULE_NAME ? privateName.c_str() : pwszName;
    }
};

CountsMutex::CountsMutex(ImportRedirector& redirector, const std::wstring& key)
    : m_state(std::make_shared<State>()), m_imports(redirector)
{
    m_state->privateName = MODULE_NAME + key;
    m_imports.Replace<decltype(::OpenMutexW)>("OpenMutexW",
                                              [state = m_state](DWORD dwAccess, BOOL bInherit, LPCWSTR pwszName)
                                              {
                                                  std::wostringstream asked;
                                                  asked << L"open " << std::hex << dwAccess << L" " << bInherit << L" "
                                                        << pwszName;
                                                  state->asked.push_back(asked.str());
                                                  return OpenMutexW(dwAccess, bInherit, state->PrivateFor(pwszName));
                                              });
    m_imports.Replace<decltype(::CreateMutexW)>(
        "CreateMutexW",
        [state = m_state](LPSECURITY_ATTRIBUTES pSecurity, BOOL bOwned, LPCWSTR pwszName)
        {
            std::wostringstream asked;
            asked << L"create " << (pSecurity == nullptr ? L"default " : L"other ") << bOwned << L" " << pwszName;
            state->asked.push_back(asked.str());
            return CreateMutexW(pSecurity, bOwned, state->PrivateFor(pwszName));
        });
}

CountsMutex::~CountsMutex() = default;

void CountsMutex::Make()
{
    const UnscriptedScope unscripted;
    m_mutex.Reset(CreateMutexW(nullptr, FALSE, m_state->privateName.c_str()));
    REQUIRE(m_mutex);
}

std::vector<std::wstring> CountsMutex::Asked() const
{
    return m_state->asked;
}

DWORD CountsMutex::WaitElsewhere() const
{
    return RunOnRealThread(
        [hMutex = Get()]
        {
            const DWORD dwWait = WaitForSingleObject(hMutex, 0);
            if (dwWait == WAIT_OBJECT_0 || dwWait == WAIT_ABANDONED)
            {
                ReleaseMutex(hMutex);
            }
            return dwWait;
        });
}

void CountsMutex::Abandon() const
{
    REQUIRE(RunOnRealThread([hMutex = Get()] { return WaitForSingleObject(hMutex, INFINITE); }) == WAIT_OBJECT_0);
}

CountsMutexOwner::CountsMutexOwner(const CountsMutex& mutex) : m_hMutex(mutex.Get())
{
    const UnscriptedScope unscripted;
    m_taken.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_end.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_thread.Reset(CreateThread(nullptr, 0, &CountsMutexOwner::Run, this, 0, nullptr));
    WaitForSingleObject(m_taken.Get(), INFINITE);
}

CountsMutexOwner::~CountsMutexOwner()
{
    const UnscriptedScope unscripted;
    SetEvent(m_end.Get());
    WaitForSingleObject(m_thread.Get(), INFINITE);
}

DWORD WINAPI CountsMutexOwner::Run(void* pOwner)
{
    const UnscriptedScope unscripted;
    const CountsMutexOwner& owner = *static_cast<CountsMutexOwner*>(pOwner);
    WaitForSingleObject(owner.m_hMutex, INFINITE);
    SetEvent(owner.m_taken.Get());
    WaitForSingleObject(owner.m_end.Get(), INFINITE);
    ReleaseMutex(owner.m_hMutex);
    return 0;
}

} // namespace varnex::test
