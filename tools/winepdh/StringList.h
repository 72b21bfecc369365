#pragma once

#include <windows.h>

#include <string>

namespace varnex::winepdh
{

// Texts of the A and W calls. Both directions go through the system's ANSI code page and keep embedded terminators.
std::wstring WideFromText(const char* pszText);
std::wstring WideFromText(const wchar_t* pwszText);
void ConvertText(const std::wstring& text, std::string& converted);
void ConvertText(const std::wstring& text, std::wstring& converted);

// A caller's place for a list of names that each end in a terminator, with one more at the end of the list.
template <class Character>
struct ListBuffer
{
    Character* pList;
    DWORD* pcchList;
};

// A length is always wanted; a buffer only where the length is not 0.
template <class Character>
bool IsUsable(const ListBuffer<Character>& buffer) noexcept
{
    return buffer.pcchList != nullptr && (buffer.pList != nullptr || *buffer.pcchList == 0);
}

// Sets the length to what the list takes. False when that is more than there was; the buffer is as it was then.
template <class Character>
bool StoreList(const std::wstring& list, const ListBuffer<Character>& buffer)
{
    std::basic_string<Character> converted;
    ConvertText(list, converted);
    converted.push_back(Character());
    const bool bFits = converted.size() <= *buffer.pcchList;
    if (bFits)
    {
        converted.copy(buffer.pList, converted.size());
    }
    *buffer.pcchList = static_cast<DWORD>(converted.size());
    return bFits;
}

} // namespace varnex::winepdh
