#pragma once

#include "CrashWords.h"

#include "support/ChildProcess.h"
#include "support/ModuleTree.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace varnex::test
{

// The "word number" lines of a text; a word may come more than once.
using Numbers = std::multimap<std::string, std::uint64_t>;
Numbers ReadNumbers(const std::string& text);
// The only number of that word; fails the test when there is none or more than one.
std::uint64_t NumberOf(const Numbers& numbers, const std::string& word);

struct CrashRun
{
    DWORD dwExitCode;
    Numbers said;
};

// A directory for a host, apart from the module's, and the host that crashes in it:
//
//     CrashedHost host(CrashedHost::Library::StandIn); // beside the executable, in place of the system's
//     const CrashRun run = host.Run("2", "access-violation");
//     CHECK(run.dwExitCode == EXCEPTION_ACCESS_VIOLATION);
//     CHECK(host.Dumps() == Names{L"host.exe_00.dmp"});
class CrashedHost
{
public:
    enum class Library
    {
        System,          // none beside the host
        StandIn,         // writes what it was asked for, as Numbers
        WithoutFunction, // exports something else
        NoLibrary        // a text of that name
    };
    explicit CrashedHost(Library library);

    // The arguments are crash_host's own.
    CrashRun Run(const std::string& modes, const std::string& crash, const std::string& setup = {},
                 const std::map<std::wstring, std::wstring>& environment = {});

    const ModuleTree& Tree() const noexcept { return m_tree; }
    std::wstring InFolder(const std::wstring& name) const;
    static std::wstring DumpName(int nIndex);
    // Everything beside the host that is neither itself nor its library; sorted.
    std::vector<std::wstring> Dumps() const;
    // What the stand-in wrote.
    Numbers Record(int nIndex) const;

private:
    ModuleTree m_tree;
};

using Names = std::vector<std::wstring>;

} // namespace varnex::test
