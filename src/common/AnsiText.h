#pragma once

#include <cstddef>

namespace varnex
{

// Text between UTF-16 and the system's ANSI code page.

// Cuts what does not fit at a whole character and always terminates. False only when the system cannot convert the
// text; the target is empty then. GetLastError tells why.
bool AnsiFromWide(char* pszTarget, std::size_t cbTarget, const wchar_t* pwszSource) noexcept;

// The same the other way round.
bool WideFromAnsi(wchar_t* pwszTarget, std::size_t cchTarget, const char* pszSource) noexcept;

// The last backslash that is not the second byte of a double-byte character, or null.
const char* FindLastBackslashA(const char* pszText) noexcept;

} // namespace varnex
