// What the shipped DLL shows to the world: its exports, its imports, its version, its header.

#include "support/ChildProcess.h"
#include "support/ImportTable.h"
#include "support/LoadedModule.h"
#include "support/LogMatchers.h"
#include "support/ModuleTree.h"
#include "support/TestText.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <algorithm>
#include <set>
#include <sstream>
#include <type_traits>

#include <dbghelp.h>

namespace varnex::test
{

namespace
{

// The header as C++ reads it: plain functions with C names that throw nothing at their callers.
static_assert(std::is_same_v<decltype(StartWorkingThread), int(unsigned)>);
static_assert(std::is_same_v<decltype(StopWorkingThread), int(unsigned)>);
static_assert(std::is_same_v<decltype(StartPKIUtlThread), unsigned()>);
static_assert(std::is_same_v<decltype(StopPKIUtlThread), unsigned()>);
static_assert(std::is_same_v<decltype(GetAlertRecord), int(int*, wchar_t**, unsigned, int*, int*, int)>);
static_assert(VARNEX_ALERT_ALL == 0 && VARNEX_ALERT_CPU == 1 && VARNEX_ALERT_MEMORY == 2 && VARNEX_ALERT_DISK == 3 &&
              VARNEX_ALERT_NETWORK == 4 && VARNEX_ALERT_PAGING_FILE == 5);

using Names = std::set<std::string>;

// The shipped module, mapped with its imports and never attached.
struct MappedModule
{
    MappedModule()
    {
        tree.CopyModule();
        module = std::make_unique<LoadedModule>(tree, LoadedModule::Start::Later);
    }
    const IMAGE_NT_HEADERS& Headers() const { return *ImageNtHeader(module->Handle()); }

    ModuleTree tree;
    std::unique_ptr<LoadedModule> module;
};

Names ExportsOf(HMODULE hModule)
{
    auto* const pImage = reinterpret_cast<std::uint8_t*>(hModule);
    ULONG cbDirectory = 0;
    const auto* pExports = static_cast<const IMAGE_EXPORT_DIRECTORY*>(
        ImageDirectoryEntryToData(hModule, TRUE, IMAGE_DIRECTORY_ENTRY_EXPORT, &cbDirectory));
    REQUIRE(pExports != nullptr);
    CHECK(pExports->NumberOfFunctions == pExports->NumberOfNames); // nothing is exported by number only
    const auto* pdwNames = reinterpret_cast<const DWORD*>(pImage + pExports->AddressOfNames);
    Names names;
    for (DWORD i = 0; i < pExports->NumberOfNames; ++i)
    {
        names.emplace(reinterpret_cast<const char*>(pImage + pdwNames[i]));
    }
    return names;
}

// The names in the EXPORTS section of a module definition file.
Names ExportsOfDefinition(const std::wstring& path)
{
    std::istringstream text(ReadFileBytes(path));
    Names names;
    bool bInExports = false;
    for (std::string line; std::getline(text, line);)
    {
        std::istringstream words(line.substr(0, line.find(';')));
        std::string word;
        words >> word;
        if (bInExports && !word.empty())
        {
            names.insert(word.substr(0, word.find('=')));
        }
        bInExports = bInExports || word == "EXPORTS";
    }
    return names;
}

struct LessWithoutCase
{
    bool operator()(const std::string& left, const std::string& right) const
    {
        return _stricmp(left.c_str(), right.c_str()) < 0;
    }
};

std::wstring VersionText(const std::string& block, const wchar_t* pwszName)
{
    wchar_t* pwszText = nullptr;
    UINT cchText = 0;
    const std::wstring path = std::wstring(L"\\StringFileInfo\\040904B0\\") + pwszName;
    REQUIRE(VerQueryValueW(block.data(), path.c_str(), reinterpret_cast<void**>(&pwszText), &cchText));
    return pwszText;
}

std::string VersionBlock(const std::wstring& path)
{
    DWORD dwUnused = 0;
    const DWORD cbBlock = GetFileVersionInfoSizeW(path.c_str(), &dwUnused);
    REQUIRE(cbBlock != 0);
    std::string block(cbBlock, '\0');
    REQUIRE(GetFileVersionInfoW(path.c_str(), 0, cbBlock, block.data()));
    return block;
}

} // namespace

TEST_CASE("the module exports exactly what its definition file lists")
{
    const Names listed = ExportsOfDefinition(WideFromUtf8(VARNEX_DEF_PATH));
    CHECK(listed.count("StartWorkingThread") == 1); // the file was read
    const MappedModule mapped;
    CHECK(ExportsOf(mapped.module->Handle()) == listed);
}

TEST_CASE("the module imports from the system's own libraries only, and one run-time library among them")
{
    const std::set<std::string, LessWithoutCase> allowed = {"ADVAPI32.dll", "IPHLPAPI.DLL", "KERNEL32.dll",
                                                            "msvcrt.dll",   "ole32.dll",    "OLEAUT32.dll",
                                                            "pdh.dll",      "USER32.dll"};
    const MappedModule mapped;
    std::set<std::string, LessWithoutCase> unexpected;
    std::size_t nImports = 0;
    for (const Import& import : ReadImports(mapped.module->Handle()))
    {
        ++nImports;
        if (allowed.count(import.dll) == 0)
        {
            unexpected.insert(import.dll);
        }
    }
    CHECK(nImports > 0);
    CHECK(unexpected.empty());
}

TEST_CASE("the module is a 64-bit library that lets the system place it anywhere and runs no data")
{
    const MappedModule mapped;
    const IMAGE_NT_HEADERS& headers = mapped.Headers();
    CHECK(headers.FileHeader.Machine == IMAGE_FILE_MACHINE_AMD64);
    CHECK((headers.FileHeader.Characteristics & IMAGE_FILE_DLL) != 0);
    constexpr WORD HARDENING = IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA | IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE |
                               IMAGE_DLLCHARACTERISTICS_NX_COMPAT;
    CHECK((headers.OptionalHeader.DllCharacteristics & HARDENING) == HARDENING);
}

TEST_CASE("the module tells its name and its version")
{
    ModuleTree tree;
    tree.CopyModule();
    const std::string block = VersionBlock(tree.ModulePath());
    CHECK(VersionText(block, L"ProductName") == L"Varnex");
    CHECK(VersionText(block, L"OriginalFilename") == L"Varnex.dll");
    CHECK(VersionText(block, L"FileVersion") == WideFromUtf8(VARNEX_VERSION));
    CHECK(VersionText(block, L"ProductVersion") == WideFromUtf8(VARNEX_VERSION));
    VS_FIXEDFILEINFO* pFixed = nullptr;
    UINT cbFixed = 0;
    REQUIRE(VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&pFixed), &cbFixed));
    CHECK(pFixed->dwFileType == VFT_DLL);
    std::ostringstream version;
    version << HIWORD(pFixed->dwFileVersionMS) << '.' << LOWORD(pFixed->dwFileVersionMS) << '.'
            << HIWORD(pFixed->dwFileVersionLS);
    CHECK(version.str() == VARNEX_VERSION);
}

TEST_CASE("a host in plain C includes the header, links against the import library and runs")
{
    ModuleTree tree;
    tree.CopyModule();
    tree.WriteAlerts("3;50;72;2147483647(2038-01-19 03:14:07);D1;\r\n");
    const std::wstring host = tree.InBin(L"host.exe");
    REQUIRE(CopyFileW((ProgramDirectory() + L"\\varnex_c_host.exe").c_str(), host.c_str(), FALSE));
    const ChildProcess child(host, {});
    REQUIRE(child.WaitForEnd(60'000));
    CHECK(child.ExitCode() == 0);
    CHECK_THAT(LogFile(tree), HasLine(1, "StartWorkingThread -- bad input alert type(5)") &&
                                  HasLine(2, "StopWorkingThread -- Stop working alert thread finish..."));
    CHECK(tree.Alerts().empty());
}

} // namespace varnex::test
