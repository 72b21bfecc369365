#include "support/TestText.h"

#include "support/ScriptScope.h"

#include <windows.h>

namespace varnex::test
{

namespace
{

std::wstring Widen(UINT nCodePage, const std::string& text)
{
    const UnscriptedScope unscripted;
    const int cbText = static_cast<int>(text.size());
    std::wstring result(static_cast<std::size_t>(MultiByteToWideChar(nCodePage, 0, text.data(), cbText, nullptr, 0)),
                        L'\0');
    MultiByteToWideChar(nCodePage, 0, text.data(), cbText, result.data(), static_cast<int>(result.size()));
    return result;
}

std::string Narrow(UINT nCodePage, const std::wstring& text)
{
    const UnscriptedScope unscripted;
    const int cchText = static_cast<int>(text.size());
    std::string result(
        static_cast<std::size_t>(WideCharToMultiByte(nCodePage, 0, text.data(), cchText, nullptr, 0, nullptr, nullptr)),
        '\0');
    WideCharToMultiByte(nCodePage, 0, text.data(), cchText, result.data(), static_cast<int>(result.size()), nullptr,
                        nullptr);
    return result;
}

} // namespace

std::wstring WideFromAnsi(const std::string& text)
{
    return Widen(CP_ACP, text);
}

std::string AnsiFromWide(const std::wstring& text)
{
    return Narrow(CP_ACP, text);
}

std::wstring WideFromUtf8(const std::string& text)
{
    return Widen(CP_UTF8, text);
}

std::string Utf8FromWide(const std::wstring& text)
{
    return Narrow(CP_UTF8, text);
}

} // namespace varnex::test
