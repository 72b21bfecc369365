#pragma once

#include "support/ConfigBuilder.h"
#include "support/TestFiles.h"

#include <optional>
#include <string>
#include <vector>

namespace varnex::test
{

// A fresh directory tree for one test, removed with everything in it at the end:
//
//     <temp>\<unique>\A\B\bin\Varnex.dll   the module, with KpmCfg.xml and LocalAlt.dat beside it
//     <temp>\<unique>\A\B\Logs             where the module logs
//
// A module test loads the DLL from it (LoadedModule); a unit test points the module's own path to it
// (ModulePathScript). Nothing is copied until CopyModule.
class ModuleTree
{
public:
    // With bMakeLogs false the module has to make its log directory itself.
    explicit ModuleTree(bool bMakeLogs = true);
    ~ModuleTree();
    ModuleTree(const ModuleTree&) = delete;
    ModuleTree& operator=(const ModuleTree&) = delete;

    std::wstring Root() const;    // <temp>\<unique>
    std::wstring BinPath() const; // no backslash at the end
    std::wstring LogsPath() const;
    std::wstring ModulePath() const; // ...\bin\Varnex.dll
    std::wstring InBin(const std::wstring& name) const;
    std::wstring InLogs(const std::wstring& name) const;

    // Copies the shipped DLL (environment variable VARNEX_DLL_PATH, else Varnex.dll beside the test program), or
    // another file in its place.
    void CopyModule();
    void CopyModule(const std::wstring& source);

    void WriteConfig(const ConfigBuilder& config);
    void WriteConfigText(const std::string& text);
    void RemoveConfig();
    // The text of a node of KpmCfg.xml as any XML reader sees it; nothing when there is no such node. Fails the test
    // when the file is missing or malformed.
    std::optional<std::wstring> ConfigNode(const std::wstring& path) const;

    // Files as bytes; a file that does not exist is empty, FileExists tells the difference.
    std::string Log() const;    // Logs\Varnex.log
    std::string Alerts() const; // bin\LocalAlt.dat
    void WriteAlerts(const std::string& bytes);
    std::vector<std::wstring> FilesInLogs() const; // sorted names
    std::vector<std::wstring> FilesInBin() const;

private:
    std::wstring m_root;
};

} // namespace varnex::test
