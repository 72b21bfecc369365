#include "common/BoundedText.h"

#include <cstdio>
#include <cstring>
#include <cwchar>

#include <windows.h>

namespace varnex
{

// _vsnprintf and its kin are the run-time library's own under every compiler setting: the standard names may be
// replaced by ones whose wide %s is a narrow string.

void CopyTextA(char* pszTarget, std::size_t cchTarget, const char* pszSource) noexcept
{
    if (cchTarget == 0)
    {
        return;
    }
    const std::size_t cchSource = strnlen(pszSource, cchTarget - 1);
    std::memcpy(pszTarget, pszSource, cchSource);
    pszTarget[cchSource] = '\0';
}

void CopyTextW(wchar_t* pwszTarget, std::size_t cchTarget, const wchar_t* pwszSource) noexcept
{
    if (cchTarget == 0)
    {
        return;
    }
    std::size_t cchSource = wcsnlen(pwszSource, cchTarget - 1);
    if (cchSource != 0 && IS_SURROGATE_PAIR(pwszSource[cchSource - 1], pwszSource[cchSource]))
    {
        --cchSource; // no half of a character
    }
    std::wmemcpy(pwszTarget, pwszSource, cchSource);
    pwszTarget[cchSource] = L'\0';
}

void AppendTextW(wchar_t* pwszTarget, std::size_t cchTarget, const wchar_t* pwszSource) noexcept
{
    const std::size_t cchUsed = wcsnlen(pwszTarget, cchTarget);
    CopyTextW(pwszTarget + cchUsed, cchTarget - cchUsed, pwszSource);
}

int FormattedLengthA(const char* pszFormat, std::va_list arguments) noexcept
{
    std::va_list copy;
    va_copy(copy, arguments);
    const int cchText = _vscprintf(pszFormat, copy);
    va_end(copy);
    return cchText;
}

int FormattedLengthW(const wchar_t* pwszFormat, std::va_list arguments) noexcept
{
    std::va_list copy;
    va_copy(copy, arguments);
    const int cchText = _vscwprintf(pwszFormat, copy);
    va_end(copy);
    return cchText;
}

void FormatTextVA(char* pszTarget, std::size_t cchTarget, const char* pszFormat, std::va_list arguments) noexcept
{
    if (cchTarget == 0)
    {
        return;
    }
    pszTarget[0] = '\0'; // what cannot be formatted at all may leave the buffer as it was
    _vsnprintf(pszTarget, cchTarget, pszFormat, arguments);
    pszTarget[cchTarget - 1] = '\0'; // a text that was cut comes without a terminator
}

void FormatTextVW(wchar_t* pwszTarget, std::size_t cchTarget, const wchar_t* pwszFormat,
                  std::va_list arguments) noexcept
{
    if (cchTarget == 0)
    {
        return;
    }
    pwszTarget[0] = L'\0';
    _vsnwprintf(pwszTarget, cchTarget, pwszFormat, arguments);
    pwszTarget[cchTarget - 1] = L'\0'; // a text that was cut comes without a terminator
}

void FormatTextA(char* pszTarget, std::size_t cchTarget, const char* pszFormat, ...) noexcept
{
    std::va_list arguments;
    va_start(arguments, pszFormat);
    FormatTextVA(pszTarget, cchTarget, pszFormat, arguments);
    va_end(arguments);
}

void FormatTextW(wchar_t* pwszTarget, std::size_t cchTarget, const wchar_t* pwszFormat, ...) noexcept
{
    std::va_list arguments;
    va_start(arguments, pwszFormat);
    FormatTextVW(pwszTarget, cchTarget, pwszFormat, arguments);
    va_end(arguments);
}

} // namespace varnex
