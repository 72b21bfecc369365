#include "common/ModulePath.h"

#include "common/AnsiText.h"
#include "common/BoundedText.h"

#include <cwchar>

namespace varnex
{

namespace
{

// Whether GetModuleFileName, with that result, gave the whole path. The buffer's size stands for a path that was cut.
bool IsWholePath(DWORD cchResult) noexcept
{
    return cchResult != 0 && cchResult < PATH_CHARS;
}

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

bool ModulePathA(HMODULE hModule, char (&szPath)[PATH_CHARS]) noexcept
{
    const bool bWhole = IsWholePath(GetModuleFileNameA(hModule, szPath, PATH_CHARS));
    if (!bWhole)
    {
        szPath[0] = '\0';
    }
    return bWhole;
}

bool ModulePathW(HMODULE hModule, wchar_t (&wszPath)[PATH_CHARS]) noexcept
{
    const bool bWhole = IsWholePath(GetModuleFileNameW(hModule, wszPath, PATH_CHARS));
    if (!bWhole)
    {
        wszPath[0] = L'\0';
    }
    return bWhole;
}

bool ModuleDirectoryA(HMODULE hModule, char (&szDirectory)[PATH_CHARS]) noexcept
{
    ModulePathA(hModule, szDirectory);
    const char* pszBackslash = FindLastBackslashA(szDirectory);
    szDirectory[pszBackslash == nullptr ? 0 : pszBackslash + 1 - szDirectory] = '\0';
    return pszBackslash != nullptr;
}

bool ModuleDirectoryW(HMODULE hModule, wchar_t (&wszDirectory)[PATH_CHARS]) noexcept
{
    ModulePathW(hModule, wszDirectory);
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
