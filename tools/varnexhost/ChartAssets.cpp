#include "ChartAssets.h"

#include "HostError.h"

#include <algorithm>
#include <array>

#include <wincrypt.h>

namespace varnex::host
{

namespace
{

// MAKEINTRESOURCEW is a C cast; a resource's number travels in the place of a pointer to its name.
const wchar_t* ResourceNumber(std::uintptr_t nNumber) noexcept
{
    return reinterpret_cast<const wchar_t*>(nNumber);
}

} // namespace

std::string ChartAsset(std::uintptr_t nResource)
{
    constexpr std::uintptr_t RAW_DATA = 10; // RT_RCDATA
    const HRSRC hResource = FindResourceW(nullptr, ResourceNumber(nResource), ResourceNumber(RAW_DATA));
    const HGLOBAL hData = hResource != nullptr ? LoadResource(nullptr, hResource) : nullptr;
    const void* pBytes = hData != nullptr ? LockResource(hData) : nullptr;
    if (pBytes == nullptr)
    {
        throw HostError(L"A part of the chart page is missing in varnexhost.exe: " + SystemErrorText(GetLastError()));
    }
    std::string text(static_cast<const char*>(pBytes), SizeofResource(nullptr, hResource));
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

std::string PolicyHash(const std::string& content)
{
    std::array<BYTE, 32> hash = {};
    DWORD cbHash = static_cast<DWORD>(hash.size());
    std::array<char, 64> text = {};
    DWORD cchText = static_cast<DWORD>(text.size());
    if (!CryptHashCertificate2(L"SHA256", 0, nullptr, reinterpret_cast<const BYTE*>(content.data()),
                               static_cast<DWORD>(content.size()), hash.data(), &cbHash) ||
        !CryptBinaryToStringA(hash.data(), cbHash, CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF, text.data(), &cchText))
    {
        throw HostError(L"The page's scripts cannot be hashed: " + SystemErrorText(GetLastError()));
    }
    return "'sha256-" + std::string(text.data()) + "'";
}

} // namespace varnex::host
