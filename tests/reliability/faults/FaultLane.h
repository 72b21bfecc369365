#pragma once

#include "FaultOrder.h"

#include "support/ChildProcess.h"

#include <memory>
#include <string>
#include <vector>

namespace varnex::test
{

// A fault point that showed something wrong, with the child's words.
struct FaultFinding
{
    std::string point;
    std::string words;
};

// A row of child processes that goes through one order. A child that dies, fails or hangs is a finding at the point it
// was in, and another one goes on behind it.
class FaultLane
{
public:
    explicit FaultLane(FaultOrder order);

    // Looks after the child; false when the order is done.
    bool Attend();

    std::size_t Points() const noexcept { return m_nPoints; }
    unsigned LongestEnd() const noexcept { return m_nLongestEnd; }
    const std::vector<FaultFinding>& Findings() const noexcept { return m_findings; }

private:
    void StartChild();
    bool HasHung(const std::string& output);
    void TakeResults(const std::string& output);
    void TakeFinding(const std::string& output, const std::string& end);

    FaultOrder m_order;
    std::unique_ptr<ChildProcess> m_child;
    std::size_t m_cbSeen = 0;
    ULONGLONG m_ullSeenAt = 0;
    std::size_t m_nPoints = 0;
    unsigned m_nLongestEnd = 0;
    std::vector<FaultFinding> m_findings;
};

} // namespace varnex::test
