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
    static constexpr int USUAL_BATCH = 32;

    // nBatch: how many alerts a fetch asks for, at least 1.
    explicit AlertFetcher(const ModuleLibrary& library, int nBatch = USUAL_BATCH);

    // The oldest alerts in the store: as many as were asked for, and sometimes one more. The module waits a minute for a
    // store that another process holds, then takes them all the same; a SlowNotice tells of it.
    std::vector<FetchedAlert> Fetch();

    // True when the last fetch was full, so that the next may bring more at once.
    bool MayHaveMore() const noexcept;

    // True when the last fetch brought nothing. The store is empty then, else it could not be read or rewritten.
    bool CameBackEmpty() const noexcept { return m_nLastCount == 0; }

private:
    decltype(&GetAlertRecord) m_pfnFetch;
    int m_nBatch;
    std::vector<int> m_types;
    std::vector<int> m_thresholds;
    std::vector<int> m_values;
    std::vector<wchar_t> m_characters; // the text buffers, one after the other
    std::vector<wchar_t*> m_texts;
    int m_nLastCount = 0;
};

} // namespace varnex::host
