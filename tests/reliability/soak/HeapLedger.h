#pragma once

#include "support/ImportRedirector.h"

#include <cstddef>
#include <memory>

namespace varnex::test
{

// Every block that the module has taken from a heap and not given back. Make it before the module is attached.
class HeapLedger
{
public:
    explicit HeapLedger(ImportRedirector& redirector);
    ~HeapLedger();
    HeapLedger(const HeapLedger&) = delete;
    HeapLedger& operator=(const HeapLedger&) = delete;

    struct Blocks
    {
        long long llCount = 0;
        long long llBytes = 0; // as asked for
    };
    // Of the run-time library and LocalAlloc.
    Blocks Ordinary() const;
    // Of GlobalAlloc, which the module gives nothing back to.
    Blocks Global() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
    RestoredImports m_imports;
};

} // namespace varnex::test
