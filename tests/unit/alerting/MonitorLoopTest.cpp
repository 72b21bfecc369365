#include "alerting/MonitorLoop.h"

#include "MonitorBench.h"
#include "ZoneScript.h"

#include "alerting/AlertRecord.h"
#include "config/DailyCounters.h"
#include "support/LogMatchers.h"

#include <catch2/catch.hpp>

#include <cwchar>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr wchar_t COUNT_FAILURE[] = L"Count fail, input date(%s), error code(0x%08x). ";

// A judgement at MOMENT.
AlertMoment MomentOfTest(MonitorBench& bench)
{
    UseUtc(bench.imports);
    AlertMoment moment;
    moment.nSeconds = MOMENT;
    std::wcscpy(moment.wszDate, L"2024-01-31");
    return moment;
}

void SetCounters(MonitorBench& bench, const std::string& date, int nCpu)
{
    bench.tree.WriteConfig(
        ConfigBuilder().Set("CPUInterval", 1).SetCounter("Date", date).SetCounter("CPU", std::to_string(nCpu)));
}

// Raises an alert whose dispatch fails at that import.
void CheckCountsAsSentWithout(const char* pszImport)
{
    MonitorBench bench;
    SetCounters(bench, "2024-01-31", 2);
    AlertState state;
    state.nTodaySentAlertNum = 2;
    bench.imports.FailCall(pszImport, 1, FailMode::FromThereOn, ERROR_NOT_ENOUGH_MEMORY);

    RaiseAlert(bench.monitor, state, MomentOfTest(bench), ALERT_TYPE_CPU, ALERT_COUNTER_CPU, 90, "");
    CHECK(bench.imports.Failures(pszImport) == 1);
    CHECK(state.nTodaySentAlertNum == 3);
    CHECK(state.bReachThreshold_LastTime == 1);
    CHECK(bench.Counter(L"CPU") == "3");
    CHECK_FALSE(bench.HasData());
}

// What one cycle of a watch does is the test's.
class ScriptedWatch : public MonitorWatch
{
public:
    explicit ScriptedWatch(std::function<void()> onCycle) : m_onCycle(std::move(onCycle)) {}
    void Cycle() { m_onCycle(); }
    bool AfterWait() { return !onAfterWait || onAfterWait(); }
    std::function<bool()> onAfterWait;

private:
    std::function<void()> m_onCycle;
};

} // namespace

TEST_CASE("a moment is the current time with its local date")
{
    StoreBench bench;
    UseCentralEurope(bench.imports);
    bench.clock.Advance(static_cast<unsigned>(MOMENT + 86400 - bench.clock.UnixNow()));

    const AlertMoment moment;
    CHECK(moment.nSeconds == MOMENT + 86400);
    CHECK(moment.wszDate == std::wstring(L"2024-02-02")); // 23:59:59 UTC is the next day there
}

TEST_CASE("the count of the day is read from the configuration")
{
    MonitorBench bench;
    SetCounters(bench, "2024-01-31", 4);
    AlertState state;

    ReadTodaysCount(state, MomentOfTest(bench), ALERT_COUNTER_CPU, COUNT_FAILURE);
    CHECK(state.nTodaySentAlertNum == 4);
    CHECK(state.bReachThreshold_LastTime == 0);
    CHECK_FALSE(bench.ReadLog().CountContaining("Count fail") != 0);
}

TEST_CASE("a count of another day is 0 and the log says so")
{
    MonitorBench bench;
    SetCounters(bench, "2024-01-30", 4);
    AlertState state;
    state.bReachThreshold_LastTime = 1;
    state.nTodaySentAlertNum = 3;

    ReadTodaysCount(state, MomentOfTest(bench), ALERT_COUNTER_CPU, COUNT_FAILURE);
    CHECK(state.nTodaySentAlertNum == 0);
    CHECK(state.bReachThreshold_LastTime == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(4, "Count fail, input date(2024-01-31), error code(0xffffffff). "));
}

TEST_CASE("a count without a configuration file is 0 and the log says so")
{
    MonitorBench bench;
    AlertState state;
    state.nTodaySentAlertNum = 3;

    ReadTodaysCount(state, MomentOfTest(bench), ALERT_COUNTER_CPU, COUNT_FAILURE);
    CHECK(state.nTodaySentAlertNum == 0);
    CHECK_THAT(bench.ReadLog(), HasLine(4, "Count fail, input date(2024-01-31), error code(0xfffffffe). "));
}

TEST_CASE("a count that is not in the file is 0 and the log shows the result of the reading")
{
    MonitorBench bench;
    SetCounters(bench, "2024-01-31", 4);
    AlertState state;
    state.nTodaySentAlertNum = 3;

    ReadTodaysCount(state, MomentOfTest(bench), ALERT_COUNTER_DISK, COUNT_FAILURE);
    CHECK(state.nTodaySentAlertNum == 0);
    CHECK_THAT(bench.ReadLog(), HasLine(4, "Count fail, input date(2024-01-31), error code(0x00000064). "));
}

TEST_CASE("a judgement goes by the policy at that moment")
{
    ScriptedMonitor monitor;
    monitor.SetPolicy(1, 85, 5, 2);
    AlertState state;

    CHECK_FALSE(JudgeAverage(monitor, state, 84));
    CHECK(JudgeAverage(monitor, state, 85));
    monitor.SetThreshold(86);
    CHECK_FALSE(JudgeAverage(monitor, state, 85));
    monitor.SetThreshold(85);
    state.nTodaySentAlertNum = 2;
    CHECK_FALSE(JudgeAverage(monitor, state, 85));
    monitor.SetMaxAlertNum(3);
    CHECK(JudgeAverage(monitor, state, 85));
}

TEST_CASE("a judgement clears the flag below the threshold and leaves it alone otherwise")
{
    ScriptedMonitor monitor;
    monitor.SetPolicy(1, 85, 5, 5);
    AlertState state;

    // The one who raises the alert sets it.
    CHECK(JudgeAverage(monitor, state, 90));
    CHECK(state.bReachThreshold_LastTime == 0);
    state.bReachThreshold_LastTime = 1;
    CHECK_FALSE(JudgeAverage(monitor, state, 90));
    CHECK(state.bReachThreshold_LastTime == 1);
    CHECK_FALSE(JudgeAverage(monitor, state, 84));
    CHECK(state.bReachThreshold_LastTime == 0);
    CHECK(JudgeAverage(monitor, state, 85));
    // With the limit of the day used up the flag stays clear, so that the next day fires.
    state.nTodaySentAlertNum = 5;
    CHECK_FALSE(JudgeAverage(monitor, state, 90));
    CHECK(state.bReachThreshold_LastTime == 0);
    state.nTodaySentAlertNum = 0;
    CHECK(JudgeAverage(monitor, state, 90));
}

TEST_CASE("a raised alert is counted and stored with the policy and the moment of the judgement")
{
    MonitorBench bench;
    SetCounters(bench, "2024-01-31", 2);
    bench.monitor.SetPolicy(1, 85, 5, 5);
    AlertState state;
    state.nTodaySentAlertNum = 2;

    RaiseAlert(bench.monitor, state, MomentOfTest(bench), ALERT_TYPE_DISK, ALERT_COUNTER_CPU, 90, "D1");
    bench.clock.AdvanceUntilWorkersEnd(1);
    CHECK(state.nTodaySentAlertNum == 3);
    CHECK(state.bReachThreshold_LastTime == 1);
    CHECK(bench.Counter(L"CPU") == "3");
    CHECK(bench.tree.Alerts() == "3;85;90;1706745599(2024-01-31 23:59:59);D1;\r\n");
}

TEST_CASE("the count is stored before the record is dispatched")
{
    MonitorBench bench;
    SetCounters(bench, "2024-01-31", 2);
    AlertState state;
    state.nTodaySentAlertNum = 2;
    std::string countAtDispatch;
    bench.imports.Replace<decltype(::LocalAlloc)>("LocalAlloc",
                                                  [&](UINT nFlags, SIZE_T cbBlock)
                                                  {
                                                      countAtDispatch = bench.Counter(L"CPU");
                                                      return LocalAlloc(nFlags, cbBlock);
                                                  });

    RaiseAlert(bench.monitor, state, MomentOfTest(bench), ALERT_TYPE_CPU, ALERT_COUNTER_CPU, 90, "");
    CHECK(countAtDispatch == "3");
}

TEST_CASE("the first alert of a day begins the counts of that day")
{
    MonitorBench bench;
    SetCounters(bench, "2024-01-30", 5);
    AlertState state;

    RaiseAlert(bench.monitor, state, MomentOfTest(bench), ALERT_TYPE_CPU, ALERT_COUNTER_CPU, 90, "");
    CHECK(bench.Counter(L"Date") == "2024-01-31");
    CHECK(bench.Counter(L"CPU") == "1");
}

TEST_CASE("an alert goes out whatever becomes of its count")
{
    MonitorBench bench; // no configuration file
    bench.monitor.SetPolicy(1, 85, 5, 5);
    AlertState state;

    RaiseAlert(bench.monitor, state, MomentOfTest(bench), ALERT_TYPE_CPU, ALERT_COUNTER_CPU, 90, "");
    bench.clock.AdvanceUntilWorkersEnd(1);
    CHECK(bench.tree.Alerts() == LineOf(90));
    CHECK(state.nTodaySentAlertNum == 1);
    CHECK(state.bReachThreshold_LastTime == 1);
}

TEST_CASE("an alert for which there is no record counts as sent")
{
    CheckCountsAsSentWithout("LocalAlloc");
}

TEST_CASE("an alert for which there is no writer counts as sent")
{
    CheckCountsAsSentWithout("_beginthreadex");
}

TEST_CASE("a monitor waits its interval in steps of a second")
{
    const auto nInterval = GENERATE(1, 3, 90);
    StoreBench bench;
    ScriptedMonitor monitor;
    monitor.SetInterval(nInterval);

    WaitInterval(monitor);
    CHECK(bench.clock.SleepCount(1000) == static_cast<ULONGLONG>(nInterval));
    CHECK(bench.clock.ElapsedMs() == static_cast<ULONGLONG>(nInterval) * 1000);
}

TEST_CASE("an interval below a second is no wait at all")
{
    const auto nInterval = GENERATE(0, -1, -5);
    StoreBench bench;
    ScriptedMonitor monitor;
    monitor.SetInterval(nInterval);
    bench.imports.CountCalls("Sleep");

    WaitInterval(monitor);
    CHECK(bench.imports.Calls("Sleep") == 0);
}

TEST_CASE("a monitor that is asked to stop notices within a second of its wait")
{
    StoreBench bench;
    ScriptedMonitor monitor;
    monitor.SetInterval(90);
    bench.clock.RunOnOtherThread([&] { WaitInterval(monitor); });
    bench.clock.Advance(10);
    CHECK(bench.clock.Workers() == 1);

    monitor.ClearRunning();
    bench.clock.AdvanceUntilWorkersEnd(1);
    CHECK(bench.clock.ElapsedMs() == 11000);
}

TEST_CASE("a monitor that was asked to stop does not wait")
{
    StoreBench bench;
    ScriptedMonitor monitor;
    monitor.SetInterval(90);
    monitor.ClearRunning();

    WaitInterval(monitor);
    CHECK(bench.clock.ElapsedMs() == 0);
}

TEST_CASE("an interval that changes during the wait counts from the next second on")
{
    StoreBench bench;
    ScriptedMonitor monitor;
    monitor.SetInterval(90);
    bench.clock.RunOnOtherThread([&] { WaitInterval(monitor); });
    bench.clock.Advance(10);

    monitor.SetInterval(12);
    bench.clock.AdvanceUntilWorkersEnd(90);
    CHECK(bench.clock.ElapsedMs() == 12000);
}

TEST_CASE("a monitor's thread enters COM or says why not")
{
    struct Row
    {
        HRESULT nResult;
        bool bEntered;
        const char* pszLine; // null: none
    };
    const auto row = GENERATE(values<Row>({
        {S_OK, true, nullptr},
        {S_FALSE, true, nullptr},
        {RPC_E_CHANGED_MODE, true, nullptr},
        {E_OUTOFMEMORY, false, "Monitor -- COM(0x8007000e)."},
        {E_INVALIDARG, false, "Monitor -- COM(0x80070057)."},
    }));
    StoreBench bench;
    std::vector<LPVOID> reserved;
    bench.imports.Replace<decltype(::CoInitialize)>("CoInitialize",
                                                    [&](LPVOID pReserved)
                                                    {
                                                        reserved.push_back(pReserved);
                                                        return row.nResult;
                                                    });

    CHECK(EnterMonitorApartment(L"Monitor -- COM(0x%08x).") == row.bEntered);
    CHECK(reserved == std::vector<LPVOID>{nullptr});
    CHECK(bench.ReadLog().Lines().size() == (row.pszLine != nullptr ? 1U : 0U));
    CHECK((row.pszLine == nullptr || bench.ReadLog().Has(1, row.pszLine)));
}

TEST_CASE("a monitor begins with its policy and a line that shows it")
{
    StoreBench bench;
    ScriptedMonitor monitor;
    monitor.onUpdate = [&]
    {
        monitor.SetPolicy(90, 85, 5, 4);
        return 0;
    };

    BeginMonitor(monitor, L"[ID:%d]Begin: (%d)S, (%d%%), (%d), (%d)");
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(),
               HasLine(3, "[ID:" + std::to_string(GetCurrentThreadId()) + "]Begin: (90)S, (85%), (5), (4)"));
}

TEST_CASE("a monitor whose first policy throws begins all the same")
{
    StoreBench bench;
    ScriptedMonitor monitor;
    monitor.onUpdate = []() -> int { throw std::runtime_error("no policy"); };

    BeginMonitor(monitor, L"[ID:%d]Begin: (%d)S, (%d%%), (%d), (%d)");
    CHECK_THAT(bench.ReadLog(),
               HasLinesInOrder({{1, "UpdateAlertPolicy -- exception stopped(no policy)."},
                                {3, "[ID:" + std::to_string(GetCurrentThreadId()) + "]Begin: (0)S, (0%), (0), (0)"}}));
}

TEST_CASE("a pass is judged with enough samples, and called a failure only with a full history")
{
    struct Pass
    {
        int nAmount;
        std::size_t nBefore; // samples
        bool bTaken;
        bool bJudged;
        bool bFailure;
    };
    const auto pass = GENERATE(values<Pass>({
        {3, 2, true, true, false},
        {3, 3, true, true, false},
        {3, 1, true, false, false},  // still filling
        {3, 3, false, false, true},  // no sample
        {3, 2, false, false, false}, // no sample while filling
        {0, 0, true, false, true},   // any history holds none
        {-1, 3, true, false, false}, // no history is that long
    }));
    CAPTURE(pass.nAmount, pass.nBefore, pass.bTaken);
    StoreBench bench;
    ScriptedMonitor monitor;
    monitor.SetSamplingAmount(pass.nAmount);
    SampleHistory history;
    for (std::size_t i = 0; i < pass.nBefore; ++i)
    {
        history.Append(1);
    }
    int nAsked = 0;
    std::vector<int> judged;
    SampleAndJudge(
        monitor, history, L"Pass fail, next loop.",
        [&](int)
        {
            ++nAsked;
            if (pass.bTaken)
            {
                history.Append(2);
            }
            return pass.bTaken;
        },
        [&](int nAmount) { judged.push_back(nAmount); });
    CHECK(nAsked == (pass.nAmount < 1 ? 0 : 1));
    CHECK(judged == (pass.bJudged ? std::vector<int>{pass.nAmount} : std::vector<int>{}));
    CHECK(bench.ReadLog().Lines().size() == (pass.bFailure ? 1U : 0U));
    CHECK(bench.ReadLog().Has(2, "Pass fail, next loop.") == pass.bFailure);
}

TEST_CASE("the sampling amount is read anew for a pass that fails")
{
    StoreBench bench;
    ScriptedMonitor monitor;
    monitor.SetSamplingAmount(2);
    SampleHistory history;
    history.Append(1);
    SampleAndJudge(
        monitor, history, L"Pass fail, next loop.",
        [&](int)
        {
            monitor.SetSamplingAmount(1);
            return false;
        },
        [](int) {});
    CHECK_THAT(bench.ReadLog(), HasLine(2, "Pass fail, next loop."));
}

TEST_CASE("a cycle reads the policy and takes its pass and waits")
{
    StoreBench bench;
    ScriptedMonitor monitor;
    std::string order;
    monitor.onUpdate = [&]
    {
        order += 'p';
        monitor.SetInterval(2);
        return 0;
    };
    int nCycles = 0;
    ScriptedWatch watch([&] { order += 'c'; });
    watch.onAfterWait = [&]
    {
        order += static_cast<char>('0' + bench.clock.ElapsedMs() / 1000);
        if (++nCycles == 3)
        {
            monitor.ClearRunning();
        }
        return true;
    };

    RunCycles(monitor, watch, "CTestMonitor");
    CHECK(order == "pc2pc4pc6");
    CHECK(bench.ReadLog().Bytes().empty());
}

TEST_CASE("a watch that has enough after a wait ends the monitor")
{
    StoreBench bench;
    ScriptedMonitor monitor;
    monitor.SetInterval(2);
    int nCycles = 0;
    ScriptedWatch watch([&] { ++nCycles; });
    watch.onAfterWait = [&] { return nCycles < 2; };

    RunCycles(monitor, watch, "CTestMonitor");
    CHECK(nCycles == 2);
    CHECK(bench.clock.ElapsedMs() == 4000);
    CHECK(monitor.IsRunning());
}

TEST_CASE("a watch without a word of its own lets the monitor go on")
{
    MonitorWatch watch;
    CHECK(watch.AfterWait());
}

TEST_CASE("a monitor that was stopped before it began takes no pass")
{
    StoreBench bench;
    ScriptedMonitor monitor;
    bool bCalled = false;
    monitor.onUpdate = [&]
    {
        bCalled = true;
        return 0;
    };
    ScriptedWatch watch([&] { bCalled = true; });
    monitor.ClearRunning();

    RunCycles(monitor, watch, "CTestMonitor");
    CHECK_FALSE(bCalled);
    CHECK(bench.clock.ElapsedMs() == 0);
}

TEST_CASE("an exception costs a monitor its cycle but not its wait and not its life")
{
    const auto pszThrower = GENERATE("policy", "cycle", "after the wait");
    const std::string thrower = pszThrower;
    StoreBench bench;
    ScriptedMonitor monitor;
    monitor.SetInterval(3);
    int nRounds = 0;
    const auto throwFirst = [&](const char* pszPlace)
    {
        if (thrower == pszPlace && nRounds == 1)
        {
            throw std::runtime_error(pszPlace);
        }
    };
    monitor.onUpdate = [&]
    {
        ++nRounds;
        throwFirst("policy");
        return 0;
    };
    ScriptedWatch watch([&] { throwFirst("cycle"); });
    watch.onAfterWait = [&]
    {
        throwFirst("after the wait");
        return nRounds < 2;
    };

    RunCycles(monitor, watch, "CTestMonitor");
    CHECK(nRounds == 2);
    CHECK(bench.clock.ElapsedMs() == 6000);
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "CTestMonitor -- exception stopped(" + thrower + ")."));
}

TEST_CASE("a monitor that ends leaves its slot and is freed and says so and leaves COM")
{
    StoreBench bench;
    WorkerSlot slot;
    auto* const pMonitor = new ScriptedMonitor;
    REQUIRE(slot.Publish(pMonitor));
    std::vector<std::string> order;
    pMonitor->onDelete = [&] { order.push_back(slot.IsSet() ? "freed in its slot" : "freed out of its slot"); };
    bench.imports.Replace<decltype(::CoUninitialize)>(
        "CoUninitialize", [&]
        { order.push_back(bench.ReadLog().Has(4, "Monitor end...") ? "COM after the line" : "COM before the line"); });

    EndMonitor(pMonitor, slot, "Monitor end...");
    CHECK(order == std::vector<std::string>{"freed out of its slot", "COM after the line"});
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_FALSE(slot.IsSet());
}

TEST_CASE("a monitor that is no longer in its slot takes no other one out of it, and is not its own owner any more")
{
    StoreBench bench;
    WorkerSlot slot;
    ScriptedMonitor next;
    ScriptedMonitor monitor;
    bool bFreed = false;
    monitor.onDelete = [&] { bFreed = true; };
    REQUIRE(slot.Publish(&next));

    DismantleWorker(&monitor, slot);
    CHECK_FALSE(bFreed);
    CHECK(slot.IsSet());
    monitor.onDelete = [] {};
}

} // namespace varnex::test
