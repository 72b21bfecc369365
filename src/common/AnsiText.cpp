#include "common/AnsiText.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <cwchar>

namespace varnex
{

namespace
{

// The largest number of leading bytes that is at most cbLimit and splits no character.
std::size_t WholeCharacters(const char* pszText, std::size_t cbLimit) noexcept
{
    std::size_t cbWhole = 0;
    while (cbWhole < cbLimit && pszText[cbWhole] != '\0')
    {
        const std::size_t cbCharacter = IsDBCSLeadByte(static_cast<BYTE>(pszText[cbWhole])) ? 2 : 1;
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
    // Into a buffer that is too small the system gives nothing at all, so only as much is converted as can fit: no
    // character of an ANSI code page takes less than a byte, and one more is offered to fill a cut double byte.
    const std::size_t cchSource = wcsnlen(pwszSource, cbTarget - 1);
    std::size_t cbText = 0;
    char szPiece[8];
    for (std::size_t i = 0; i < cchSource;)
    {
        const bool bPair = IS_HIGH_SURROGATE(pwszSource[i]) && i + 1 < cchSource && IS_LOW_SURROGATE(pwszSource[i + 1]);
        const int cchPiece = bPair ? 2 : 1;
        const int cbPiece =
            WideCharToMultiByte(CP_ACP, 0, pwszSource + i, cchPiece, szPiece, sizeof szPiece, nullptr, nullptr);
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
        i += static_cast<std::size_t>(cchPiece);
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
        return true;
    }
    // A character takes at least one byte, and a byte gives at most one UTF-16 unit, so this many bytes always fit.
    const std::size_t cbSource = WholeCharacters(pszSource, cchTarget - 1);
    int cchText = 0;
    if (cbSource != 0)
    {
        cchText = MultiByteToWideChar(CP_ACP, 0, pszSource, static_cast<int>(cbSource), pwszTarget,
                                      static_cast<int>(cchTarget - 1));
        if (cchText == 0)
        {
            pwszTarget[0] = L'\0';
            return false;
        }
    }
    pwszTarget[cchText] = L'\0';
    return true;
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
