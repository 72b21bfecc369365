#include "Text.h"

#include "common/BoundedText.h"
#include "common/Handles.h"

#include <algorithm>

namespace varnex::host
{

std::string ToUtf8(std::wstring_view text)
{
    const int cchText = static_cast<int>(text.size());
    const int cbUtf8 = WideCharToMultiByte(CP_UTF8, 0, text.data(), cchText, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(cbUtf8), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), cchText, utf8.data(), cbUtf8, nullptr, nullptr);
    return utf8;
}

std::wstring FromUtf8(std::string_view text)
{
    const int cbText = static_cast<int>(text.size());
    const int cchWide = MultiByteToWideChar(CP_UTF8, 0, text.data(), cbText, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(cchWide), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), cbText, wide.data(), cchWide);
    return wide;
}

std::wstring Printable(std::wstring text)
{
    std::replace_if(
        text.begin(), text.end(), [](wchar_t wch) { return wch < L' ' || (wch >= 0x7F && wch < 0xA0); }, L'?');
    return text;
}

std::wstring SystemErrorText(DWORD dwError)
{
    UniqueLocalBlock<wchar_t> message;
    // FORMAT_MESSAGE_ALLOCATE_BUFFER writes a pointer to where the prototype wants characters.
    const DWORD cchMessage =
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, dwError, 0, reinterpret_cast<wchar_t*>(message.Receive()), 0, nullptr);
    std::wstring text(message ? message.Get() : L"", cchMessage);
    while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r' || text.back() == L' '))
    {
        text.pop_back();
    }
    return text + (text.empty() ? L"(error " : L" (error ") + std::to_wstring(dwError) + L")";
}

std::wstring DurationText(std::uint64_t nMilliseconds)
{
    const std::uint64_t nSeconds = nMilliseconds / 1000;
    wchar_t wszText[40];
    FormatTextW(wszText, L"%02I64u:%02I64u:%02I64u", nSeconds / 3600, nSeconds / 60 % 60, nSeconds % 60);
    return wszText;
}

std::wstring HexText(DWORD dwValue)
{
    wchar_t wszText[16];
    FormatTextW(wszText, L"0x%08lx", dwValue);
    return wszText;
}

} // namespace varnex::host
