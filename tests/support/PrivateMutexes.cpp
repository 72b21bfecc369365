#include "support/PrivateMutexes.h"

#include <string>

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

} // namespace varnex::test
