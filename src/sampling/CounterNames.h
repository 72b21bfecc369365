#pragma once

#include <cstddef>

#include <windows.h>

namespace varnex
{

// The display names by which performance counters are found, in the language of the system locale. German, Spanish,
// French, Italian and Portuguese have names of their own; every other language uses the English ones. Windows names its
// counters in its display language: where the two differ, none is found.
enum CounterRole : UINT
{
    IDS_PROCESSOR_OBJECT = 101,
    IDS_TOTAL_INSTANCE = 102, // the aggregate instance, recognised by this part of its name
    IDS_PROCESSOR_TIME = 103,
    IDS_NETWORK_INTERFACE_OBJECT = 104,
    IDS_LOOPBACK_INSTANCE = 105,
    IDS_BYTES_TOTAL_PER_SEC = 106,
    IDS_CURRENT_BANDWIDTH = 107,
    IDS_PHYSICAL_DISK_OBJECT = 108,
    IDS_DISK_BYTES_PER_SEC = 109,
};

// What callers keep names in, in characters.
constexpr int OBJECT_NAME_CHARS = 256;
constexpr int SHORT_NAME_CHARS = 64; // of an instance or a counter

// All of these may be called on any thread, and none throws.

// The primary language of the names: one of the six.
WORD CounterLanguage() noexcept;

// Copies a role's name, code page 1252 text, into a buffer of *pcchBuffer characters; a longer name is cut.
// Returns -1 for a null buffer and 0 else. An unknown role and a null pcchBuffer leave the buffer as it is: callers
// clear it first and see an empty name.
int GetCounterResourceString(UINT nRole, char* pszBuffer, const DWORD* pcchBuffer) noexcept;

// The wide form of a name, for a buffer of cchLimit characters. False, with a level 1 line, when the system's ANSI
// code page cannot convert it.
bool VNXGetStringW(UINT nRole, wchar_t* pwszBuffer, int cchLimit) noexcept;

// A role's name in either width: 0, or the status of a lookup that failed (-1 for a conversion, which is logged).
template <std::size_t N>
int ReadCounterName(CounterRole role, char (&szName)[N]) noexcept
{
    szName[0] = '\0';
    const DWORD cchName = N;
    return GetCounterResourceString(role, szName, &cchName);
}
template <std::size_t N>
int ReadCounterName(CounterRole role, wchar_t (&wszName)[N]) noexcept
{
    return VNXGetStringW(role, wszName, static_cast<int>(N)) ? 0 : -1;
}

} // namespace varnex
