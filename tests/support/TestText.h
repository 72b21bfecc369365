#pragma once

#include <string>

namespace varnex::test
{

// Between the widths: the system's code page, as the module converts, and UTF-8, as files and messages want it.
std::wstring WideFromAnsi(const std::string& text);
std::string AnsiFromWide(const std::wstring& text);
std::wstring WideFromUtf8(const std::string& text);
std::string Utf8FromWide(const std::wstring& text);

} // namespace varnex::test
