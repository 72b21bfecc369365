#pragma once

#include <windows.h>

#include <array>
#include <string>
#include <vector>

namespace varnex::test
{

constexpr UINT FIRST_ROLE = 101;
constexpr UINT LAST_ROLE = 109;

// A system language that has counter names of its own.
struct SystemLanguage
{
    std::string name;
    std::vector<LANGID> ids;                                   // several sublanguages
    std::array<std::string, LAST_ROLE - FIRST_ROLE + 1> names; // by role; bytes above 0x7F are code page 1252

    std::wstring WideName(UINT nRole) const;
};

const std::vector<SystemLanguage>& SystemLanguages();

} // namespace varnex::test
