#include "common/AnsiText.h"

#include <windows.h>

#include <algorithm>
#include <cstring>

namespace varnex
{

namespace
{

// The number of bytes of the character that begins with that one; 1 for a byte that begins none.
std::size_t CharacterBytes(char chFirst, bool bUtf8) noexcept
{
    const auto byte = static_cast<BYTE>(chFirst);
    if (!bUtf8)
    {
        return IsDBCSLeadByte(byte) ? 2 : 1;
    }
    return byte < 0xC0 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

// The largest number of leading bytes that is at most cbLimit and splits no character. cbLimit: less than the text has.
std::size_t WholeCharacters(std::string_view text, std::size_t cbLimit) noexcept
{
    const bool bUtf8 = GetACP() == CP_UTF8;
    std::size_t cbWhole = 0;
    while (cbWhole < cbLimit)
    {
        const std::size_t cbCharacter = CharacterBytes(text[cbWhole], bUtf8);
        if (cbWhole + cbCharacter > cbLimit)
        {
            break;
        }
        cbWhole += cbCharacter;
    }
    return cbWhole;
}

} // namespace

bool AnsiFromWide(char* pszTarget, std::size_t cbTarget, const wchar_t* pwszSource) noexcept
{
    if (cbTarget == 0)
    {
        return true;
    }
    // One character after the other: into a buffer that is too small for a text the system gives nothing at all.
    std::size_t cbText = 0;
    char szPiece[8];
    while (*pwszSource != L'\0')
    {
        const int cchPiece = IS_SURROGATE_PAIR(pwszSource[0], pwszSource[1]) ? 2 : 1;
        const int cbPiece =
            WideCharToMultiByte(CP_ACP, 0, pwszSource, cchPiece, szPiece, sizeof szPiece, nullptr, nullptr);
        if (cbPiece <= 0)
        {
            pszTarget[0] = '\0';
            return false;
        }
        if (cbText + static_cast<std::size_t>(cbPiece) > cbTarget - 1)
        {
            break;
        }
        std::memcpy(pszTarget + cbText, szPiece, static_cast<std::size_t>(cbPiece));
        cbText += static_cast<std::size_t>(cbPiece);
        pwszSource += cchPiece;
    }
    pszTarget[cbText] = '\0';
    return true;
}

std::string AnsiText(const std::wstring& text)
{
    const int cchText = static_cast<int>(text.size());
    const int cbText = WideCharToMultiByte(CP_ACP, 0, text.data(), cchText, nullptr, 0, nullptr, nullptr);
    std::string ansi(static_cast<std::size_t>(std::max(cbText, 0)), '\0');
    const int cbWritten = WideCharToMultiByte(CP_ACP, 0, text.data(), cchText, ansi.data(), cbText, nullptr, nullptr);
    ansi.resize(static_cast<std::size_t>(std::max(cbWritten, 0)));
    return ansi;
}

bool WideFromAnsi(wchar_t* pwszTarget, std::size_t cchTarget, const char* pszSource) noexcept
{
    if (cchTarget == 0)
    {
        return false; // the system would count
    }
    // A byte gives at most one UTF-16 unit. The terminator is converted with the text.
    const bool bConverted = MultiByteToWideChar(CP_ACP, 0, pszSource, -1, pwszTarget, static_cast<int>(cchTarget)) != 0;
    if (!bConverted)
    {
        pwszTarget[0] = L'\0';
    }
    return bConverted;
}

void CopyAnsiText(char* pszTarget, std::size_t cbTarget, std::string_view source) noexcept
{
    if (cbTarget == 0)
    {
        return;
    }
    const std::size_t cbText = source.size() < cbTarget ? source.size() : WholeCharacters(source, cbTarget - 1);
    std::memcpy(pszTarget, source.data(), cbText);
    pszTarget[cbText] = '\0';
}

const char* FindLastBackslashA(const char* pszText) noexcept
{
    const char* pszFound = nullptr;
    for (const char* psz = pszText; *psz != '\0'; ++psz)
    {
        if (IsDBCSLeadByte(static_cast<BYTE>(*psz)) && psz[1] != '\0')
        {
            ++psz;
        }
        else if (*psz == '\\')
        {
            pszFound = psz;
        }
    }
    return pszFound;
}

} // namespace varnex
