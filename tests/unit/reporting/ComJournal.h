#pragma once

#include "ReportingBench.h"

#include <memory>
#include <string>
#include <vector>

namespace varnex::test
{

// Notes which apartments the workers of a bench ask for and leave. With a failing answer nobody gets one.
class ComJournal
{
public:
    explicit ComJournal(ReportingBench& bench, HRESULT nAnswer = S_OK);
    ~ComJournal();
    ComJournal(const ComJournal&) = delete;
    ComJournal& operator=(const ComJournal&) = delete;

    // "single", "multi" or "leave", in order.
    std::vector<std::string> Steps() const;
    // The log as it was when an apartment was left last.
    std::string LogAtLeave() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
    RestoredImports m_imports;
};

} // namespace varnex::test
