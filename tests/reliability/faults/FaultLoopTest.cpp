#include "../LongForm.h"
#include "FaultLane.h"
#include "FaultScenario.h"
#include "ImportFaults.h"
#include "UncalledTargets.h"

#include "common/Com.h"
#include "support/AlertLines.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

// Of each target: the first call and the one in the middle. The long form takes every call.
constexpr ULONGLONG SHORT_POINTS = 2;
constexpr int HIGHEST_LEVEL = 4;
constexpr std::size_t LANES = 4; // they wait for Wine's server more than they work

struct CalledTarget
{
    std::string name;
    ULONGLONG ullCalls;
};

// Without any memory the run-time library cannot throw std::bad_alloc, and ends the process.
bool CanFailForGood(const std::string& target)
{
    return target != "malloc" && target != "calloc";
}

// The targets that a healthy life calls, most called first. It calls all but those that are listed; a test below sees to
// it.
std::vector<CalledTarget> TargetsOfALife(FailMode mode, int nLogLevel)
{
    const ThreadApartment apartment(E_FAIL);
    FaultScenario scenario(nLogLevel);
    const std::vector<FaultTarget> targets = scenario.Targets();
    scenario.Run();
    std::vector<CalledTarget> called;
    for (const FaultTarget& target : targets)
    {
        if (!IsUncalled(target.name) && (mode == FailMode::Once || CanFailForGood(target.name)))
        {
            called.push_back({target.name, target.calls()});
        }
    }
    std::sort(called.begin(), called.end(),
              [](const CalledTarget& a, const CalledTarget& b) { return a.ullCalls > b.ullCalls; });
    return called;
}

// How many points of each target; the environment may say it for a form between the short and the long one.
ULONGLONG PointsOfEach()
{
    wchar_t wszPoints[16] = L"";
    if (GetEnvironmentVariableW(L"VARNEX_FAULT_POINTS", wszPoints, 16) != 0)
    {
        return wcstoul(wszPoints, nullptr, 10);
    }
    return IsLongForm() ? 0 : SHORT_POINTS;
}

// The form of an order, dealt out to the lanes.
std::vector<FaultLane> DealOut(const std::vector<CalledTarget>& targets, const FaultOrder& form)
{
    std::vector<FaultOrder> orders(LANES, form);
    for (std::size_t i = 0; i < targets.size(); ++i)
    {
        orders[i % LANES].targets.push_back(targets[i].name);
    }
    std::vector<FaultLane> lanes;
    for (const FaultOrder& order : orders)
    {
        lanes.emplace_back(order);
    }
    return lanes;
}

void AttendAll(std::vector<FaultLane>& lanes)
{
    for (bool bAny = true; bAny;)
    {
        bAny = false;
        for (FaultLane& lane : lanes)
        {
            bAny = lane.Attend() || bAny;
        }
        Sleep(50);
    }
}

ULONGLONG CallsOf(const std::vector<CalledTarget>& targets)
{
    ULONGLONG ullCalls = 0;
    for (const CalledTarget& target : targets)
    {
        ullCalls += target.ullCalls;
    }
    return ullCalls;
}

// The points that there must be at least: each target has one, and a call that fails alone leaves the most of a life as
// it was.
std::size_t LeastPoints(const std::vector<CalledTarget>& targets, const FaultOrder& form)
{
    const bool bEvery = form.ullPoints == 0 && form.mode == FailMode::Once;
    return bEvery ? static_cast<std::size_t>(CallsOf(targets) * 9 / 10) : targets.size();
}

void GoThroughAll(FailMode mode, int nLogLevel, ULONGLONG ullPoints)
{
    FaultOrder form;
    form.mode = mode;
    form.nLogLevel = nLogLevel;
    form.ullPoints = ullPoints;
    const std::vector<CalledTarget> targets = TargetsOfALife(mode, nLogLevel);
    std::vector<FaultLane> lanes = DealOut(targets, form);
    AttendAll(lanes);
    std::size_t nPoints = 0;
    unsigned nLongestEnd = 0;
    std::size_t nFindings = 0;
    for (const FaultLane& lane : lanes)
    {
        nPoints += lane.Points();
        nLongestEnd = std::max(nLongestEnd, lane.LongestEnd());
        nFindings += lane.Findings().size();
        for (const FaultFinding& finding : lane.Findings())
        {
            FAIL_CHECK(finding.point << ": " << finding.words);
        }
    }
    PrintFigure("faults: " + std::to_string(nPoints) + " fault points at " + std::to_string(targets.size()) +
                " functions and methods, each call that fails " +
                (mode == FailMode::Once ? "alone" : "with all later ones") + ", log level " +
                std::to_string(nLogLevel) + ", " + std::to_string(nFindings) +
                " findings, the last thread gone after " + std::to_string(nLongestEnd) + " virtual seconds at most");
    CHECK(nPoints >= LeastPoints(targets, form));
}

} // namespace

TEST_CASE("a life without a fault raises five alerts, hands out two, answers with a report and ends in two seconds")
{
    const ThreadApartment apartment(E_FAIL);
    FaultScenario scenario;
    const ScenarioOutcome outcome = scenario.Run();
    CHECK(outcome.bLoaded);
    CHECK(outcome.nStored == 5);
    CHECK(outcome.nFetched == 2);
    CHECK(outcome.bReport);
    CHECK(outcome.nSecondsToEnd <= 2);
    CHECK(ParseAlertLines(scenario.tree.Alerts()).size() == 3);
    CHECK(outcome.nKept == 3); // two events and the section
}

TEST_CASE("every import is known either to be able to fail or not")
{
    const ThreadApartment apartment(E_FAIL);
    const FaultScenario scenario;
    CHECK(UnknownImports(scenario.imports) == std::vector<std::string>{});
}

TEST_CASE("a life makes every call that can fail, but for those that are listed with a reason")
{
    const ThreadApartment apartment(E_FAIL);
    FaultScenario scenario;
    const std::vector<FaultTarget> targets = scenario.Targets();
    scenario.Run();
    for (const FaultTarget& target : targets)
    {
        CAPTURE(target.name, target.calls());
        CHECK((target.calls() == 0) == IsUncalled(target.name));
    }
}

TEST_CASE("what the module looks up by name is made to fail as well")
{
    const ThreadApartment apartment(E_FAIL);
    FaultScenario scenario;
    scenario.Run();
    CHECK(scenario.exports.LookedUp() == std::vector<std::string>(EXPORTS_LOOKED_UP.begin(), EXPORTS_LOOKED_UP.end()));
}

TEST_CASE("whichever call fails, nothing crashes, hangs, tears a line, loses the configuration or keeps a handle")
{
    GoThroughAll(FailMode::Once, 1, PointsOfEach());
}

TEST_CASE("whichever call fails with all later ones, nothing crashes, hangs, tears a line or keeps a handle")
{
    GoThroughAll(FailMode::FromThereOn, 1, PointsOfEach());
}

// The calls within the lines themselves: some under a lock.
TEST_CASE("whichever call fails while the log tells everything, the same holds")
{
    REQUIRE(CallsOf(TargetsOfALife(FailMode::Once, HIGHEST_LEVEL)) > CallsOf(TargetsOfALife(FailMode::Once, 1)));
    GoThroughAll(FailMode::Once, HIGHEST_LEVEL, IsLongForm() ? 4 : 1);
}

TEST_CASE("the fault loop notices what it is there to notice")
{
    struct Sabotage
    {
        const char* pszName;
        const char* pszWords; // of the finding that it must lead to
    };
    const auto sabotage = GENERATE(values<Sabotage>({{"crash", "exit code 3221225477"},
                                                     {"handle", "CHECK( CountHandles() <="},
                                                     {"thread", "workers still live after 15 s"},
                                                     {"wait", "62 <= 61"},
                                                     {"line", "alert line: 1;50;90;17067"},
                                                     {"configuration", "Not an XML file"}}));
    CAPTURE(sabotage.pszName);
    FaultOrder order;
    order.targets = {"ReadFile"};
    order.ullPoints = 2;
    order.sabotage = sabotage.pszName;
    FaultLane lane(order);
    while (lane.Findings().empty() && lane.Attend())
    {
        Sleep(50);
    }
    REQUIRE_FALSE(lane.Findings().empty());
    CHECK(lane.Findings()[0].point == "ReadFile once 1");
    CHECK_THAT(lane.Findings()[0].words, Catch::Contains(sabotage.pszWords));
}

} // namespace varnex::test
