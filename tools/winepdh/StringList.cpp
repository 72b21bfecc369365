#include "StringList.h"

namespace varnex::winepdh
{

std::wstring WideFromText(const char* pszText)
{
    const int cchText = MultiByteToWideChar(CP_ACP, 0, pszText, -1, nullptr, 0);
    if (cchText <= 0)
    {
        return std::wstring();
    }
    std::wstring text(static_cast<std::size_t>(cchText), L'\0');
    MultiByteToWideChar(CP_ACP, 0, pszText, -1, text.data(), cchText);
    text.pop_back(); // the terminator, which the length counts
    return text;
}

std::wstring WideFromText(const wchar_t* pwszText)
{
    return pwszText;
}

void ConvertText(const std::wstring& text, std::string& converted)
{
    const int cchText = static_cast<int>(text.size());
    const int cbText = WideCharToMultiByte(CP_ACP, 0, text.data(), cchText, nullptr, 0, nullptr, nullptr);
    converted.resize(static_cast<std::size_t>(cbText));
    WideCharToMultiByte(CP_ACP, 0, text.data(), cchText, converted.data(), cbText, nullptr, nullptr);
}

void ConvertText(const std::wstring& text, std::wstring& converted)
{
    converted = text;
}

} // namespace varnex::winepdh
