#include "support/ImportTable.h"

#include "support/ScriptScope.h"

namespace varnex::test
{

namespace
{

const IMAGE_DATA_DIRECTORY& ImportDirectory(const BYTE* pBase)
{
    const auto* pDos = reinterpret_cast<const IMAGE_DOS_HEADER*>(pBase);
    const auto* pNt = reinterpret_cast<const IMAGE_NT_HEADERS*>(pBase + pDos->e_lfanew);
    return pNt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
}

// A variable that a DLL exports lies in data pages; only functions can be stood in for.
bool IsFunction(const void* pAddress)
{
    MEMORY_BASIC_INFORMATION info;
    constexpr DWORD CODE_PAGES = PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
    return VirtualQuery(pAddress, &info, sizeof(info)) != 0 && (info.Protect & CODE_PAGES) != 0;
}

void ReadImportsOfDll(BYTE* pBase, const IMAGE_IMPORT_DESCRIPTOR& descriptor, std::vector<Import>& imports)
{
    const char* pszDll = reinterpret_cast<const char*>(pBase + descriptor.Name);
    const auto* pName = reinterpret_cast<const IMAGE_THUNK_DATA*>(pBase + descriptor.OriginalFirstThunk);
    auto* pSlot = reinterpret_cast<IMAGE_THUNK_DATA*>(pBase + descriptor.FirstThunk);
    for (; pName->u1.AddressOfData != 0; ++pName, ++pSlot)
    {
        auto** ppSlot = reinterpret_cast<void**>(&pSlot->u1.Function);
        if (IMAGE_SNAP_BY_ORDINAL(pName->u1.Ordinal) || !IsFunction(*ppSlot))
        {
            continue;
        }
        const auto* pByName = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(pBase + pName->u1.AddressOfData);
        imports.push_back({pszDll, reinterpret_cast<const char*>(pByName->Name), ppSlot});
    }
}

} // namespace

std::vector<Import> ReadImports(HMODULE hModule)
{
    const UnscriptedScope unscripted;
    auto* pBase = reinterpret_cast<BYTE*>(hModule);
    const IMAGE_DATA_DIRECTORY& directory = ImportDirectory(pBase);
    std::vector<Import> imports;
    if (directory.VirtualAddress == 0)
    {
        return imports;
    }
    const auto* pDescriptor = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(pBase + directory.VirtualAddress);
    for (; pDescriptor->Name != 0; ++pDescriptor)
    {
        ReadImportsOfDll(pBase, *pDescriptor, imports);
    }
    return imports;
}

void WriteImportSlot(void** ppSlot, void* pFunction)
{
    const UnscriptedScope unscripted;
    DWORD dwProtection = 0;
    VirtualProtect(ppSlot, sizeof(*ppSlot), PAGE_READWRITE, &dwProtection);
    *static_cast<void* volatile*>(ppSlot) = pFunction;
    VirtualProtect(ppSlot, sizeof(*ppSlot), dwProtection, &dwProtection);
}

} // namespace varnex::test
