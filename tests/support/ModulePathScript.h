#pragma once

#include "support/ImportRedirector.h"

#include <memory>
#include <string>

namespace varnex::test
{

// Tells the code under test where "its module file" lies, by answering for GetModuleFileNameA and GetModuleFileNameW:
//
//     ModuleTree tree;
//     ModulePathScript path(redirector, tree.ModulePath());
//     path.Set(L"Varnex.dll");          // a path without a backslash
//     path.Fail(ERROR_INVALID_HANDLE);  // no path at all
//
// As on Windows a path that does not fit is cut, terminated and reported as ERROR_INSUFFICIENT_BUFFER.
class ModulePathScript
{
public:
    ModulePathScript(ImportRedirector& redirector, const std::wstring& path);
    ~ModulePathScript();
    ModulePathScript(const ModulePathScript&) = delete;
    ModulePathScript& operator=(const ModulePathScript&) = delete;

    void Set(const std::wstring& path);
    void Fail(DWORD dwLastError);

private:
    struct State;
    std::shared_ptr<State> m_state;
    RestoredImports m_imports;
};

} // namespace varnex::test
