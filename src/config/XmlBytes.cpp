#include "config/XmlBytes.h"

#include "common/LastError.h"

#include <cstring>
#include <new>
#include <string_view>

namespace varnex
{

namespace
{

constexpr std::string_view ENCODING = " encoding=\"UTF-8\"";
constexpr std::size_t NOWHERE = std::wstring_view::npos;

// The part of a text that gives way to the encoding, and may be empty.
struct Part
{
    std::size_t nBegin;
    std::size_t nEnd;
};

// The length of the XML declaration, which begins its text; 0 when there is none.
std::size_t LengthOfDeclaration(std::wstring_view text) noexcept
{
    constexpr std::wstring_view BEGIN = L"<?xml";
    const bool bDeclared = text.compare(0, BEGIN.size(), BEGIN) == 0 &&
                           text.find_first_of(L" \t\r\n", BEGIN.size()) == BEGIN.size(); // not <?xml-stylesheet
    return bDeclared ? text.find(L"?>") : 0;
}

// In a declaration as the grammar has it: <?xml version="1.0" encoding="..." standalone="..."?>, the last two optional,
// the quotes of either kind. nEnd is NOWHERE for one that is no such thing.
Part EncodingIn(std::wstring_view declaration) noexcept
{
    const std::size_t nName = declaration.find(L"encoding");
    const std::size_t nOpen = declaration.find_first_of(L"\"'", nName == NOWHERE ? 0 : nName);
    const std::size_t nClose = nOpen == NOWHERE ? NOWHERE : declaration.find(declaration[nOpen], nOpen + 1);
    if (nClose == NOWHERE)
    {
        return {0, NOWHERE};
    }
    return {nName == NOWHERE ? nClose + 1 : nName - 1, nClose + 1}; // with the white space before the name
}

// The text in UTF-8, into a buffer or, without one, only counted. 0 is a failure and leaves a last error.
int ConvertTo(char* pachUtf8, int cbUtf8, std::wstring_view text) noexcept
{
    return WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), static_cast<int>(text.size()), pachUtf8,
                               cbUtf8, nullptr, nullptr);
}

HRESULT Convert(std::wstring_view text, XmlBytes& bytes, std::size_t cbMore) noexcept
{
    const int cbText = ConvertTo(nullptr, 0, text);
    if (cbText == 0)
    {
        return HRESULT_FROM_WIN32(LastErrorOr(ERROR_GEN_FAILURE));
    }
    bytes.cbData = static_cast<std::size_t>(cbText);
    bytes.data.reset(new (std::nothrow) char[bytes.cbData + cbMore]);
    if (bytes.data == nullptr)
    {
        return E_OUTOFMEMORY;
    }
    return ConvertTo(bytes.data.get(), cbText, text) == cbText ? S_OK
                                                               : HRESULT_FROM_WIN32(LastErrorOr(ERROR_GEN_FAILURE));
}

} // namespace

HRESULT EncodeXml(const wchar_t* pwszText, std::size_t cchText, XmlBytes& bytes) noexcept
{
    const std::wstring_view text(pwszText, cchText);
    const std::size_t cchDeclaration = LengthOfDeclaration(text);
    if (cchDeclaration == 0)
    {
        return Convert(text, bytes, 0);
    }
    const Part encoding = EncodingIn(text.substr(0, cchDeclaration));
    if (encoding.nEnd == NOWHERE)
    {
        return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
    }
    const HRESULT nResult = Convert(text, bytes, ENCODING.size());
    if (FAILED(nResult))
    {
        return nResult;
    }
    // A declaration is ASCII: its characters are its bytes.
    char* const pachEncoding = bytes.data.get() + encoding.nBegin;
    std::memmove(pachEncoding + ENCODING.size(), bytes.data.get() + encoding.nEnd, bytes.cbData - encoding.nEnd);
    ENCODING.copy(pachEncoding, ENCODING.size());
    bytes.cbData += ENCODING.size() - (encoding.nEnd - encoding.nBegin);
    return S_OK;
}

} // namespace varnex
