#pragma once

#include "ModuleLibrary.h"

#include <string>
#include <vector>

namespace varnex::host
{

// One alert as the module handed it out.
struct FetchedAlert
{
    unsigned nType;
    std::wstring text; // time, host and resource
    int nThreshold;
    int nValue;
};

// Takes alerts out of the module's store. Whoever calls owns them from then on: they are in no store any more.
class AlertFetcher
{
public:
    explicit AlertFetcher(const ModuleLibrary& library);

    // The oldest alerts in the store, up to a few dozen at once.
    std::vector<FetchedAlert> Fetch();

    // True when the last fetch was full, so that the next may bring more at once.
    bool MayHaveMore() const noexcept;

private:
    decltype(&GetAlertRecord) m_pfnFetch;
    std::vector<int> m_types;
    std::vector<int> m_thresholds;
    std::vector<int> m_values;
    std::vector<wchar_t> m_characters; // the text buffers, one after the other
    std::vector<wchar_t*> m_texts;
    int m_nLastCount = 0;
};

} // namespace varnex::host
