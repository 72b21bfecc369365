#include "ChartAssets.h"

#include "HostError.h"
#include "ResourceBytes.h"

#include <algorithm>
#include <array>

#include <wincrypt.h>

namespace varnex::host
{

std::string ChartAsset(std::uintptr_t nResource)
{
    std::string text(ResourceBytes(nResource));
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
