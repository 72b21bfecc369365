#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace varnex
{

// Text between UTF-16 and the system's ANSI code page.

// Cuts what does not fit at a whole character and always terminates. False only when the system cannot convert the
// text; the target is empty then. GetLastError tells why.
bool AnsiFromWide(char* pszTarget, std::size_t cbTarget, const wchar_t* pwszSource) noexcept;

// The whole of a text, however many bytes the code page takes for it: with UTF-8 they are up to three for a UTF-16 unit.
// Empty when the system cannot convert it. Throws std::bad_alloc.
std::string AnsiText(const std::wstring& text);

// The whole of a text: a target of as many characters as the text has bytes, and one more, always holds it. False, with
// an empty target, when the target does not hold it or the system cannot convert it.
bool WideFromAnsi(wchar_t* pwszTarget, std::size_t cchTarget, const char* pszSource) noexcept;

// Copies a text. Cuts what does not fit at a whole character and always terminates.
void CopyAnsiText(char* pszTarget, std::size_t cbTarget, std::string_view source) noexcept;

// The last backslash that is not the second byte of a double-byte character, or null.
const char* FindLastBackslashA(const char* pszText) noexcept;

} // namespace varnex
