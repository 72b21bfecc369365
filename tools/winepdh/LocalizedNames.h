#pragma once

#include <windows.h>

namespace varnex::winepdh
{

struct ObjectNames
{
    const wchar_t* pwszObject;
    const wchar_t* pwszCounter;
};

// The display names in one system language.
struct LocalizedNames
{
    ObjectNames processor; // processor time
    ObjectNames disk;      // disk bytes per second
};

// English for every language that has no names of its own.
const LocalizedNames& NamesOfLanguage(LANGID wLanguage) noexcept;

// The names in the system's default language; no other names are accepted, as on Windows.
const LocalizedNames& CurrentNames() noexcept;

} // namespace varnex::winepdh
