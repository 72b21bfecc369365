#pragma once

#include "ScriptedDom.h"
#include "support/ImportRedirector.h"

#include <windows.h>

#include <cstddef>
#include <memory>

namespace varnex::test
{

// Keeps the books on what the document object model hands out: interfaces and texts.
//
//     OwnershipLedger ledger(redirector, dom);
//     SetXMLNodeValue(...);
//     CHECK(ledger.Handed() != 0);
//     CHECK(ledger.TakeUnreturned() == 0);
class OwnershipLedger
{
public:
    OwnershipLedger(ImportRedirector& redirector, ScriptedDom& dom);
    ~OwnershipLedger();
    OwnershipLedger(const OwnershipLedger&) = delete;
    OwnershipLedger& operator=(const OwnershipLedger&) = delete;

    // Interfaces and texts that were handed out so far.
    std::size_t Handed() const;
    // How many of them were not released or freed; begins anew.
    std::size_t TakeUnreturned();

private:
    struct State;
    std::shared_ptr<State> m_state;
    RestoredImports m_imports;
};

} // namespace varnex::test
