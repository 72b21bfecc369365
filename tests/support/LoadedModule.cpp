#include "support/LoadedModule.h"

#include "common/Handles.h"
#include "support/ModuleTree.h"
#include "support/ScriptScope.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <cstring>
#include <utility>

namespace varnex::test
{

namespace
{

IMAGE_NT_HEADERS* NtHeaders(char* pImage)
{
    const auto* pDos = reinterpret_cast<const IMAGE_DOS_HEADER*>(pImage);
    return reinterpret_cast<IMAGE_NT_HEADERS*>(pImage + pDos->e_lfanew);
}

// Takes the entry point out of a module file: the loader resolves the imports of such a module and runs nothing.
DWORD TakeEntryOut(const std::wstring& path)
{
    std::string image = ReadFileBytes(path);
    REQUIRE(image.size() > sizeof(IMAGE_DOS_HEADER));
    const DWORD dwEntryAddress = std::exchange(NtHeaders(image.data())->OptionalHeader.AddressOfEntryPoint, 0UL);
    WriteFileBytes(path, image);
    return dwEntryAddress;
}

bool IsLoaded(HMODULE hModule)
{
    HMODULE hFound = nullptr;
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                              reinterpret_cast<LPCWSTR>(hModule), &hFound) != FALSE;
}

} // namespace

LoadedModule::LoadedModule(const ModuleTree& tree, Start start)
{
    const UnscriptedScope unscripted;
    if (start == Start::Later)
    {
        m_dwEntryAddress = TakeEntryOut(tree.ModulePath());
    }
    m_hModule = LoadLibraryW(tree.ModulePath().c_str());
    if (m_hModule == nullptr)
    {
        FAIL("The module does not load, error " << GetLastError());
    }
}

LoadedModule::~LoadedModule()
{
    Unload();
}

void* LoadedModule::FindExport(const char* pszName) const
{
    const UnscriptedScope unscripted;
    const FARPROC pfnExport = GetProcAddress(m_hModule, pszName);
    if (pfnExport == nullptr)
    {
        FAIL("The module does not export " << pszName);
    }
    return reinterpret_cast<void*>(pfnExport);
}

bool LoadedModule::HasExport(const char* pszName) const
{
    const UnscriptedScope unscripted;
    return GetProcAddress(m_hModule, pszName) != nullptr;
}

BOOL LoadedModule::CallEntry(DWORD dwReason)
{
    using Entry = BOOL(WINAPI*)(HINSTANCE, DWORD, LPVOID);
    auto* pEntry = reinterpret_cast<char*>(m_hModule) + m_dwEntryAddress;
    return reinterpret_cast<Entry>(reinterpret_cast<void*>(pEntry))(m_hModule, dwReason, nullptr);
}

bool LoadedModule::Attach()
{
    REQUIRE(m_dwEntryAddress != 0);
    REQUIRE_FALSE(m_bAttached);
    m_bAttached = CallEntry(DLL_PROCESS_ATTACH) != FALSE;
    if (!m_bAttached)
    {
        CallEntry(DLL_PROCESS_DETACH);
    }
    return m_bAttached;
}

void LoadedModule::Detach()
{
    if (std::exchange(m_bAttached, false))
    {
        CallEntry(DLL_PROCESS_DETACH);
    }
}

bool LoadedModule::Unload()
{
    if (m_hModule == nullptr)
    {
        return true;
    }
    Detach();
    const UnscriptedScope unscripted;
    const HMODULE hModule = std::exchange(m_hModule, nullptr);
    FreeLibrary(hModule);
    return !IsLoaded(hModule);
}

bool CanLoadModule(const ModuleTree& tree, DWORD* pdwError)
{
    const UnscriptedScope unscripted;
    SetLastError(ERROR_SUCCESS);
    const UniqueModule module(LoadLibraryW(tree.ModulePath().c_str()));
    if (pdwError != nullptr)
    {
        *pdwError = GetLastError();
    }
    return static_cast<bool>(module);
}

} // namespace varnex::test
