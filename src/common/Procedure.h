#pragma once

#include <windows.h>

namespace varnex
{

// The address of a library's function as the pointer type that it has, or null.
template <class Function>
Function ProcedureOf(HMODULE hLibrary, const char* pszName) noexcept
{
    // By way of void*: the compilers warn about a direct cast between function types.
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(hLibrary, pszName)));
}

} // namespace varnex
