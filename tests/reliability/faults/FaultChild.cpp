// The child's side of the fault loop: goes through fault points, one life of the module each, and ends at the first
// that shows something wrong.

#include "FaultOrder.h"
#include "FaultScenario.h"

#include "support/ProcessMeter.h"

#include "common/Com.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <iostream>
#include <map>

namespace varnex::test
{

namespace
{

// A mutex that is never given back is waited for by whoever needs it next, the log's at each line. A configuration that
// cannot be opened is tried for a second at each of the seven saves that begin a day, and each of the five counters
// begins it anew, one after the other.
unsigned SecondsMore(const std::string& target, int nLogLevel)
{
    if (target == "CreateFileW")
    {
        return 5 * 7;
    }
    const unsigned nLines = nLogLevel == 1 ? 10 : 200;
    return target == "ReleaseMutex" ? STORE_MUTEX_SECONDS + COUNTS_MUTEX_SECONDS + nLines * LOG_MUTEX_SECONDS : 0;
}

FaultTarget Find(const std::vector<FaultTarget>& targets, const std::string& name)
{
    const auto found =
        std::find_if(targets.begin(), targets.end(), [&](const FaultTarget& target) { return target.name == name; });
    REQUIRE(found != targets.end());
    return *found;
}

std::map<std::string, ULONGLONG> CountCallsOfALife(int nLogLevel)
{
    FaultScenario scenario(nLogLevel);
    const std::vector<FaultTarget> targets = scenario.Targets();
    scenario.Run();
    std::map<std::string, ULONGLONG> counts;
    for (const FaultTarget& target : targets)
    {
        counts[target.name] = target.calls();
    }
    return counts;
}

// --- the ways to do wrong on purpose ---------------------------------------------------------------------------------

void DoWrong(const std::string& sabotage, FaultScenario& scenario)
{
    if (sabotage == "crash")
    {
        TerminateProcess(GetCurrentProcess(), 0xC0000005);
    }
    else if (sabotage == "handle")
    {
        (void)CreateEventW(nullptr, TRUE, FALSE, nullptr); // never closed, that is the point
    }
    else if (sabotage == "thread")
    {
        scenario.clock.RunOnOtherThread([&scenario]
                                        { scenario.clock.Block(CreateEventW(nullptr, TRUE, FALSE, nullptr)); });
    }
    else if (sabotage == "wait")
    {
        // Of the host's own calls only the fetch replaces a file.
        scenario.imports.Replace<decltype(::MoveFileExA)>("MoveFileExA",
                                                          [&scenario](LPCSTR pszFrom, LPCSTR pszTo, DWORD dwFlags)
                                                          {
                                                              scenario.clock.Advance(STORE_MUTEX_SECONDS +
                                                                                     STORE_FILE_SECONDS + 1);
                                                              return MoveFileExA(pszFrom, pszTo, dwFlags);
                                                          });
    }
    else if (sabotage == "line")
    {
        scenario.tree.WriteAlerts("1;50;90;17067");
    }
    else if (sabotage == "configuration")
    {
        scenario.imports.Replace<decltype(::DeleteFileW)>("DeleteFileW",
                                                          [&scenario](LPCWSTR)
                                                          {
                                                              scenario.tree.WriteConfigText("<KPMConf");
                                                              return TRUE;
                                                          });
        scenario.tree.WriteConfigText("<KPMConf");
    }
}

// --- the points ------------------------------------------------------------------------------------------------------

class FaultPoints
{
public:
    explicit FaultPoints(const FaultOrder& order) : m_order(order), m_calls(CountCallsOfALife(order.nLogLevel)) {}

    void GoThrough()
    {
        for (const std::string& target : m_order.targets)
        {
            GoThrough(target);
        }
    }

private:
    void GoThrough(const std::string& target)
    {
        const ULONGLONG ullCalls = m_calls.at(target);
        const ULONGLONG ullStep =
            m_order.ullPoints == 0 ? 1 : std::max<ULONGLONG>(1, (ullCalls + m_order.ullPoints - 1) / m_order.ullPoints);
        const ULONGLONG ullFirst = m_order.ullPoints == 1 ? std::max<ULONGLONG>(1, ullCalls / 2) : 1;
        for (FaultPoint point = {target, m_order.mode, ullFirst}; IsBehind(point) || Try(point);
             point.ullCall += ullStep)
        {
            if (m_order.ullPoints != 0 && point.ullCall + ullStep > ullCalls)
            {
                return;
            }
        }
    }

    // Whether another child has come to it, or past it.
    bool IsBehind(const FaultPoint& point) const
    {
        const FaultPoint& last = m_order.last;
        return point.target == last.target && point.ullCall <= last.ullCall;
    }

    // False when the life made fewer calls.
    bool Try(const FaultPoint& point)
    {
        std::cout << POINT_BEGINS << point.Text() << std::endl;
        const std::size_t nHandles = CountHandles();
        const std::size_t nThreads = CountThreads();
        ULONGLONG ullFailures = 0;
        const ScenarioOutcome outcome = Live(point, ullFailures);
        if (ullFailures != 0)
        {
            CHECK(CountHandles() <= nHandles + outcome.nKept);
            CHECK(CountThreads() <= nThreads);
            std::cout << POINT_ENDS << point.Text() << " after " << outcome.nSecondsToEnd << " s" << std::endl;
        }
        return ullFailures != 0;
    }

    ScenarioOutcome Live(const FaultPoint& point, ULONGLONG& ullFailures)
    {
        FaultScenario scenario(m_order.nLogLevel);
        scenario.nMoreSeconds = SecondsMore(point.target, m_order.nLogLevel);
        const FaultTarget target = Find(scenario.Targets(), point.target);
        scenario.failing = point.target;
        target.fail(point.ullCall, point.mode);
        DoWrong(m_order.sabotage, scenario);
        const ScenarioOutcome outcome = scenario.Run();
        ullFailures = target.failures();
        return outcome;
    }

    const FaultOrder& m_order;
    const std::map<std::string, ULONGLONG> m_calls;
};

} // namespace

TEST_CASE("child: goes through fault points", "[.]")
{
    const ThreadApartment apartment(E_FAIL);
    const FaultOrder order = FaultOrder::OfThisProcess();
    REQUIRE_FALSE(order.targets.empty());
    // What is opened once for the process is opened now.
    OutputDebugStringA("fault points");
    CountCallsOfALife(order.nLogLevel);
    FaultPoints(order).GoThrough();
    std::cout << ORDER_ENDS << std::endl;
}

} // namespace varnex::test
