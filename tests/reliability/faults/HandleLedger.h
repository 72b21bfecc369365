#pragma once

#include "FaultTarget.h"

#include "support/ImportRedirector.h"

#include <cstddef>
#include <memory>

namespace varnex::test
{

// Stands in front of the module's CloseHandle, and knows what the module keeps open on purpose: the two events and the
// section of a load, and what its run-time library leaves open.
class HandleLedger
{
public:
    explicit HandleLedger(ImportRedirector& imports);
    ~HandleLedger();
    HandleLedger(const HandleLedger&) = delete;
    HandleLedger& operator=(const HandleLedger&) = delete;

    // A handle is closed and the call says that it was not: kept open, a file would be shut to the checks as well.
    FaultTarget CloseTarget() const;
    // Events, sections and semaphores that the module has made and not closed.
    std::size_t Kept() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
    ImportRedirector& m_imports;
    RestoredImports m_scripts;
};

} // namespace varnex::test
