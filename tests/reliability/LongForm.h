#pragma once

#include <windows.h>

#include <iostream>
#include <string>

namespace varnex::test
{

// The suite runs each reliability test in a short form. VARNEX_LONG=1, which scripts/soak.sh sets, asks for the long one.
inline bool IsLongForm()
{
    wchar_t wszValue[8] = L"";
    return GetEnvironmentVariableW(L"VARNEX_LONG", wszValue, 8) == 1 && wszValue[0] == L'1';
}

// The one line in which a test tells what it measured; docs/reliability.md has a row for each.
inline void PrintFigure(const std::string& text)
{
    std::cout << "FIGURE " << text << std::endl;
}

} // namespace varnex::test
