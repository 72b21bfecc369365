#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace varnex::test
{

// One function that a module imports by name, and the slot of the import address table that holds its address.
struct Import
{
    std::string dll;  // as the module spells it: "KERNEL32.dll"
    std::string name; // "CreateThread"
    void** ppSlot;
};

// The functions that a loaded module imports by name. Imported data (a DLL's variable) and imports by number are left
// out: nothing can stand in for them.
std::vector<Import> ReadImports(HMODULE hModule);

// Writes one slot, which normally is read-only.
void WriteImportSlot(void** ppSlot, void* pFunction);

} // namespace varnex::test
