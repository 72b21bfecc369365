#pragma once

#include "common/Handles.h"
#include "support/ChildProcess.h"
#include "support/ModuleTree.h"

#include <varnex/Varnex.h>

namespace varnex::test
{

// For hidden test cases that play a host process: the module of the tree that the parent names in the environment.
class ModuleInHost
{
public:
    ModuleInHost();

    // What the parent starts such a test case with.
    static ChildOptions OptionsFor(const ModuleTree& tree);

    int Start(unsigned nAlertType) const
    {
        return Export<decltype(::StartWorkingThread)>("StartWorkingThread")(nAlertType);
    }
    int Stop(unsigned nAlertType) const
    {
        return Export<decltype(::StopWorkingThread)>("StopWorkingThread")(nAlertType);
    }
    HMODULE Handle() const noexcept { return m_module.Get(); }

private:
    template <class Signature>
    Signature* Export(const char* pszName) const
    {
        return reinterpret_cast<Signature*>(reinterpret_cast<void*>(GetProcAddress(m_module.Get(), pszName)));
    }

    UniqueModule m_module;
};

} // namespace varnex::test
