#include "common/ModulePath.h"

#include "common/AnsiText.h"
#include "common/BoundedText.h"

#include <cwchar>

namespace varnex
{

namespace
{

// Cuts the text at its last backslash, which goes too. False when there is none.
bool CutAtLastBackslash(char* pszPath) noexcept
{
    const char* pszBackslash = FindLastBackslashA(pszPath);
    if (pszBackslash == nullptr)
    {
        return false;
    }
    pszPath[pszBackslash - pszPath] = '\0';
    return true;
}

} // namespace

bool ModuleDirectoryA(HMODULE hModule, char (&szDirectory)[PATH_CHARS]) noexcept
{
    szDirectory[0] = '\0';
    GetModuleFileNameA(hModule, szDirectory, PATH_CHARS);
    szDirectory[PATH_CHARS - 1] = '\0';
    const char* pszBackslash = FindLastBackslashA(szDirectory);
    szDirectory[pszBackslash == nullptr ? 0 : pszBackslash + 1 - szDirectory] = '\0';
    return pszBackslash != nullptr;
}

bool ModuleDirectoryW(HMODULE hModule, wchar_t (&wszDirectory)[PATH_CHARS]) noexcept
{
    wszDirectory[0] = L'\0';
    GetModuleFileNameW(hModule, wszDirectory, PATH_CHARS);
    wszDirectory[PATH_CHARS - 1] = L'\0';
    const wchar_t* pwszBackslash = std::wcsrchr(wszDirectory, L'\\');
    wszDirectory[pwszBackslash == nullptr ? 0 : pwszBackslash + 1 - wszDirectory] = L'\0';
    return pwszBackslash != nullptr;
}

void LogDirectoryOf(const char* pszModulePath, char (&szDirectory)[PATH_CHARS]) noexcept
{
    char szParent[PATH_CHARS];
    CopyTextA(szParent, pszModulePath);
    const bool bHasFile = CutAtLastBackslash(szParent);
    const bool bHasDirectory = bHasFile && CutAtLastBackslash(szParent);
    if (bHasDirectory)
    {
        FormatTextA(szDirectory, "%s\\Logs", szParent);
    }
    else
    {
        CopyTextA(szDirectory, "c:");
    }
}

} // namespace varnex
