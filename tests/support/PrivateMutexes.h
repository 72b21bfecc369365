#pragma once

#include "common/Handles.h"
#include "support/ImportRedirector.h"

#include <string>

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

// Somebody else has the mutex of that name of the module's, as PrivateMutexes leads to it, until it is let go.
class HeldMutex
{
public:
    explicit HeldMutex(const std::wstring& name);
    void LetGo() noexcept { m_hold.Reset(); }

private:
    UniqueHandle m_mutex;
    MutexHold m_hold;
};

} // namespace varnex::test
