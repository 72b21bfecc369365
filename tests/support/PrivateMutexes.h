#pragma once

#include "support/ImportRedirector.h"

namespace varnex::test
{

// Leads the module's named mutexes to names of this process. In its own, tests that run side by side would wait for
// each other, and under a virtual clock such a wait lets other workers go first, or even time pass.
//
//     LoadedModule module(tree, LoadedModule::Start::Later); // the log's mutex is made while the module is attached
//     ImportRedirector redirector(module.Handle());
//     PrivateMutexes mutexes(redirector);
//     module.Attach();
class PrivateMutexes
{
public:
    explicit PrivateMutexes(ImportRedirector& redirector);

private:
    RestoredImports m_imports;
};

} // namespace varnex::test
