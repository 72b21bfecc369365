#include "CrashedHost.h"

#include "common/Handles.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace varnex::test
{

namespace
{

constexpr DWORD WAIT_MS = 100'000; // a dump of all memory takes its time on a busy machine
constexpr wchar_t HOST_NAME[] = L"host.exe";
constexpr wchar_t LIBRARY_NAME[] = L"DBGHELP.DLL";

void Copy(const std::wstring& source, const std::wstring& target)
{
    INFO(Utf8FromWide(source));
    REQUIRE(CopyFileW(source.c_str(), target.c_str(), FALSE));
}

std::wstring StandIn(const wchar_t* pwszName)
{
    return ProgramDirectory() + L"\\..\\crash\\" + pwszName;
}

// Wine has a mind of its own about this library: it takes its own unless it is told, for a program of this name, to take
// the one that lies there. Gone when the last program of the prefix has ended.
void TellWineToLoadStandIn()
{
    if (GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") == nullptr)
    {
        return;
    }
    const std::wstring key = std::wstring(L"Software\\Wine\\AppDefaults\\") + HOST_NAME + L"\\DllOverrides";
    UniqueRegistryKey overrides;
    REQUIRE(RegCreateKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_SET_VALUE, nullptr,
                            overrides.Receive(), nullptr) == ERROR_SUCCESS);
    constexpr wchar_t ORDER[] = L"native,builtin";
    REQUIRE(RegSetValueExW(overrides.Get(), L"dbghelp", 0, REG_SZ, reinterpret_cast<const BYTE*>(ORDER),
                           sizeof(ORDER)) == ERROR_SUCCESS);
}

} // namespace

Numbers ReadNumbers(const std::string& text)
{
    Numbers numbers;
    std::istringstream lines(text);
    std::string word;
    for (std::uint64_t ullNumber = 0; lines >> word >> ullNumber;)
    {
        numbers.emplace(word, ullNumber);
    }
    return numbers;
}

std::uint64_t NumberOf(const Numbers& numbers, const std::string& word)
{
    INFO(word);
    REQUIRE(numbers.count(word) == 1);
    return numbers.find(word)->second;
}

CrashedHost::CrashedHost(Library library)
{
    TellWineToLoadStandIn();
    m_tree.CopyModule();
    REQUIRE(CreateDirectoryW((m_tree.Root() + L"\\Host Folder").c_str(), nullptr));
    Copy(ProgramDirectory() + L"\\crash_host.exe", InFolder(HOST_NAME));
    switch (library)
    {
    case Library::System:
        break;
    case Library::StandIn:
        Copy(StandIn(L"DumpLibrary.dll"), InFolder(LIBRARY_NAME));
        break;
    case Library::WithoutFunction:
        Copy(StandIn(L"OtherLibrary.dll"), InFolder(LIBRARY_NAME));
        break;
    case Library::NoLibrary:
        WriteFileBytes(InFolder(LIBRARY_NAME), "a text");
        break;
    }
}

CrashRun CrashedHost::Run(const std::string& modes, const std::string& crash, const std::string& setup,
                          const std::map<std::wstring, std::wstring>& environment)
{
    ChildOptions options;
    options.arguments = {m_tree.ModulePath(), WideFromUtf8(modes), WideFromUtf8(crash), WideFromUtf8(setup)};
    options.environment = environment;
    const ChildProcess host(InFolder(HOST_NAME), options);
    REQUIRE(host.WaitForEnd(WAIT_MS));
    const CrashRun run = {host.ExitCode(), ReadNumbers(host.Output())};
    REQUIRE(run.said.count(HEAP_ADDRESS) == 1); // it came as far as to its crash
    return run;
}

std::wstring CrashedHost::InFolder(const std::wstring& name) const
{
    return m_tree.Root() + L"\\Host Folder\\" + name;
}

std::wstring CrashedHost::DumpName(int nIndex)
{
    const std::wstring digits = std::to_wstring(nIndex);
    return HOST_NAME + std::wstring(nIndex < 10 ? L"_0" : L"_") + digits + L".dmp";
}

Names CrashedHost::Dumps() const
{
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(InFolder(L"")))
    {
        const std::wstring name = entry.path().filename().wstring();
        if (name != HOST_NAME && name != LIBRARY_NAME)
        {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

Numbers CrashedHost::Record(int nIndex) const
{
    return ReadNumbers(ReadFileBytes(InFolder(DumpName(nIndex))));
}

} // namespace varnex::test
