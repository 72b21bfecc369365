#pragma once

#include <cstdarg>
#include <cstddef>

namespace varnex
{

// Text into fixed buffers. Everything here cuts what does not fit, always terminates, and never fails: a size of 0
// writes nothing. Sizes are in characters and count the terminator. In formats, %s is the format's own width (wide in
// a wide format, narrow in a narrow one), as on Windows everywhere.

void CopyTextA(char* pszTarget, std::size_t cchTarget, const char* pszSource) noexcept;
void CopyTextW(wchar_t* pwszTarget, std::size_t cchTarget, const wchar_t* pwszSource) noexcept;
void AppendTextW(wchar_t* pwszTarget, std::size_t cchTarget, const wchar_t* pwszSource) noexcept;

void FormatTextA(char* pszTarget, std::size_t cchTarget, const char* pszFormat, ...) noexcept;
void FormatTextW(wchar_t* pwszTarget, std::size_t cchTarget, const wchar_t* pwszFormat, ...) noexcept;

// The length of the formatted text without its terminator, negative when it cannot be formatted.
int FormattedLengthA(const char* pszFormat, std::va_list arguments) noexcept;
int FormattedLengthW(const wchar_t* pwszFormat, std::va_list arguments) noexcept;

void FormatTextVA(char* pszTarget, std::size_t cchTarget, const char* pszFormat, std::va_list arguments) noexcept;
void FormatTextVW(wchar_t* pwszTarget, std::size_t cchTarget, const wchar_t* pwszFormat,
                  std::va_list arguments) noexcept;

// The same for the arrays that most callers have.
template <std::size_t N>
void CopyTextA(char (&szTarget)[N], const char* pszSource) noexcept
{
    CopyTextA(szTarget, N, pszSource);
}
template <std::size_t N>
void CopyTextW(wchar_t (&wszTarget)[N], const wchar_t* pwszSource) noexcept
{
    CopyTextW(wszTarget, N, pwszSource);
}
template <std::size_t N, class... Arguments>
void FormatTextA(char (&szTarget)[N], const char* pszFormat, Arguments... arguments) noexcept
{
    FormatTextA(static_cast<char*>(szTarget), N, pszFormat, arguments...);
}
template <std::size_t N, class... Arguments>
void FormatTextW(wchar_t (&wszTarget)[N], const wchar_t* pwszFormat, Arguments... arguments) noexcept
{
    FormatTextW(static_cast<wchar_t*>(wszTarget), N, pwszFormat, arguments...);
}

} // namespace varnex
