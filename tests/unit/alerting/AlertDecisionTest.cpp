#include "alerting/AlertDecision.h"

#include <catch2/catch.hpp>

#include <climits>

namespace varnex::test
{

namespace
{

// Known when the program is compiled: the decision asks nobody.
static_assert(Decide(90, 85, false, 0, 5) == AlertDecision::Fire);

struct Row
{
    int nAverage;
    int nThreshold;
    bool bReachedLastTime;
    int nTodaySent;
    int nMaxAlertNum;
    AlertDecision decision;
};

} // namespace

TEST_CASE("an average is judged by threshold and state and by the count of the day")
{
    const auto row = GENERATE(values<Row>({
        // The crossing fires, equality included.
        {84, 85, false, 0, 5, AlertDecision::Rearm},
        {85, 85, false, 0, 5, AlertDecision::Fire},
        {86, 85, false, 0, 5, AlertDecision::Fire},
        // Reported once is enough until the average falls below.
        {85, 85, true, 1, 5, AlertDecision::Keep},
        {100, 85, true, 1, 5, AlertDecision::Keep},
        {84, 85, true, 1, 5, AlertDecision::Rearm},
        // The limit of the day.
        {90, 85, false, 4, 5, AlertDecision::Fire},
        {90, 85, false, 5, 5, AlertDecision::Keep},
        {90, 85, false, 6, 5, AlertDecision::Keep},
        {90, 85, false, 0, 0, AlertDecision::Keep},
        {90, 85, false, 0, -2, AlertDecision::Keep},
        {84, 85, true, 5, 5, AlertDecision::Rearm},
        // Policies are not checked for sense.
        {100, 101, false, 0, 5, AlertDecision::Rearm},
        {0, -2, false, 0, 5, AlertDecision::Fire},
        {INT_MIN, INT_MAX, false, 0, 1, AlertDecision::Rearm},
        {INT_MAX, INT_MIN, false, 0, 1, AlertDecision::Fire},
        {90, 85, false, -1, 0, AlertDecision::Fire},
    }));
    CAPTURE(row.nAverage, row.nThreshold, row.bReachedLastTime, row.nTodaySent, row.nMaxAlertNum);
    CHECK(Decide(row.nAverage, row.nThreshold, row.bReachedLastTime, row.nTodaySent, row.nMaxAlertNum) == row.decision);
}

} // namespace varnex::test
