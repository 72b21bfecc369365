#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <windows.h>

namespace varnex::host
{

// The tool is UTF-16 towards Windows and UTF-8 towards files, pipes and the command-line library. What cannot be
// converted becomes the replacement character.
std::string ToUtf8(std::wstring_view text);
std::wstring FromUtf8(std::string_view text);

// The text with every control character as a question mark: it comes from a file that others write to.
std::wstring Printable(std::wstring text);

// The system's sentence for an error code, with the number: "Access denied. (error 5)".
std::wstring SystemErrorText(DWORD dwError);

// "00:01:23"; hours grow beyond two digits.
std::wstring DurationText(std::uint64_t nMilliseconds);

// "0x8007000e"
std::wstring HexText(DWORD dwValue);

} // namespace varnex::host
