#include "support/PrivateMutexes.h"

#include "support/ScriptScope.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

std::string PrivateName(const char* pszName)
{
    return pszName + ("-" + std::to_string(GetCurrentProcessId()));
}

std::wstring PrivateName(const wchar_t* pwszName)
{
    return pwszName + (L"-" + std::to_wstring(GetCurrentProcessId()));
}

} // namespace

PrivateMutexes::PrivateMutexes(ImportRedirector& redirector) : m_imports(redirector)
{
    m_imports.TryReplace<decltype(::CreateMutexA)>(
        "CreateMutexA", [](LPSECURITY_ATTRIBUTES pSecurity, BOOL bOwned, LPCSTR pszName)
        { return CreateMutexA(pSecurity, bOwned, pszName != nullptr ? PrivateName(pszName).c_str() : nullptr); });
    m_imports.TryReplace<decltype(::CreateMutexW)>(
        "CreateMutexW", [](LPSECURITY_ATTRIBUTES pSecurity, BOOL bOwned, LPCWSTR pwszName)
        { return CreateMutexW(pSecurity, bOwned, pwszName != nullptr ? PrivateName(pwszName).c_str() : nullptr); });
    m_imports.TryReplace<decltype(::OpenMutexW)>(
        "OpenMutexW", [](DWORD dwAccess, BOOL bInherit, LPCWSTR pwszName)
        { return OpenMutexW(dwAccess, bInherit, PrivateName(pwszName).c_str()); });
}

HeldMutex::HeldMutex(const std::wstring& name)
{
    const UnscriptedScope unscripted;
    m_mutex.Reset(CreateMutexW(nullptr, FALSE, PrivateName(name.c_str()).c_str()));
    REQUIRE(m_mutex);
    REQUIRE(WaitForSingleObject(m_mutex.Get(), 0) == WAIT_OBJECT_0);
    m_hold.Reset(m_mutex.Get());
}

} // namespace varnex::test
