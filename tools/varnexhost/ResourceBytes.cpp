#include "ResourceBytes.h"

#include "HostError.h"

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

std::string_view ResourceBytes(std::uintptr_t nNumber)
{
    constexpr std::uintptr_t RAW_DATA = 10; // RT_RCDATA
    const HRSRC hResource = FindResourceW(nullptr, ResourceNumber(nNumber), ResourceNumber(RAW_DATA));
    const HGLOBAL hData = hResource != nullptr ? LoadResource(nullptr, hResource) : nullptr;
    const void* pBytes = hData != nullptr ? LockResource(hData) : nullptr;
    if (pBytes == nullptr)
    {
        throw HostError(L"varnexhost.exe is damaged, a part of it is missing: " + SystemErrorText(GetLastError()));
    }
    return {static_cast<const char*>(pBytes), SizeofResource(nullptr, hResource)};
}

} // namespace varnex::host
