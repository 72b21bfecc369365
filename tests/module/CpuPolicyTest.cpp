// What the CPU monitor makes of its configuration, and how it follows changes while it runs.

#include "CpuMonitor.h"

#include "common/Handles.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr int INTERVAL = static_cast<int>(CpuMonitor::SECONDS);

struct PolicyValue
{
    const char* pszNode;
    const char* pszInLog;
    int nDefault;
    std::size_t nInBeginLine;
};

const std::vector<PolicyValue> POLICY = {{"CPUInterval", "Interval", 90, 0},
                                         {"CPUThreshold", "threshold", 85, 1},
                                         {"CPUSamplingAmount", "SamplingAmount", 5, 2},
                                         {"CPUMaxAlertNum", "MaxAlertNum", 5, 3}};

std::string DefaultLine(const PolicyValue& value, int nRead)
{
    return std::string("2 CMonCPUThread::UpdateAlertPolicy -- Get ") + value.pszInLog + " policy fail, return value(" +
           std::to_string(nRead) + "), using default value(" + std::to_string(value.nDefault) + ")";
}

// "[ID:44]Monitor ..." without the thread: the begin line for these values.
std::string BeginText(const std::vector<int>& values)
{
    return "]Monitor CPU Usage thread begin: Interval(" + std::to_string(values[0]) + ")S, Threshold(" +
           std::to_string(values[1]) + "%), SamplingAmount InADay(" + std::to_string(values[2]) + "), MaxAlertNum(" +
           std::to_string(values[3]) + ")";
}

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Lets the monitor go through its cycles without a pause for a while, each with a new reading, and holds it then.
class Treadmill
{
public:
    Treadmill(CpuMonitor& monitor, unsigned nReadings)
    {
        monitor.redirector.Replace<decltype(::GetTickCount)>("GetTickCount",
                                                             [this, &monitor, nReadings]
                                                             {
                                                                 if (monitor.cpu.Reads() >= nReadings)
                                                                 {
                                                                     monitor.clock.Block(m_mayGoOn.Get());
                                                                 }
                                                                 return m_dwTick += 1000;
                                                             });
    }
    void LetGo() { SetEvent(m_mayGoOn.Get()); }

private:
    UniqueHandle m_mayGoOn{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    DWORD m_dwTick = 0;
};

} // namespace

TEST_CASE("a policy value of 0 or -1, or one that is missing, is logged and replaced by its default")
{
    struct Unset
    {
        const char* pszText; // null: no node
        int nRead;
    };
    const auto unset = GENERATE(values<Unset>({{nullptr, -1}, {"0", 0}, {"-1", -1}, {"abc", 0}, {"", 0}}));
    const PolicyValue value = GENERATE(from_range(POLICY));
    const std::vector<int> configured = {60, 70, 3, 4};
    ConfigBuilder config;
    config.SetLogLevel(4);
    std::vector<int> expected = configured;
    for (const PolicyValue& each : POLICY)
    {
        if (each.pszNode != value.pszNode)
        {
            config.Set(each.pszNode, configured[each.nInBeginLine]);
        }
        else if (unset.pszText != nullptr)
        {
            config.Set(each.pszNode, unset.pszText);
        }
    }
    expected[value.nInBeginLine] = value.nDefault;
    CpuMonitor monitor(config);
    const Lines lines = monitor.StartWith(50);
    // At the start and in the first cycle.
    REQUIRE(lines.size() == 3);
    CHECK(lines[0] == DefaultLine(value, unset.nRead));
    CHECK(EndsWith(lines[1], BeginText(expected)));
    CHECK(lines[2] == DefaultLine(value, unset.nRead));
    monitor.End();
}

TEST_CASE("any other policy value is taken as it is")
{
    struct Taken
    {
        const char* pszText;
        int nValue;
    };
    const auto taken = GENERATE(values<Taken>({{"1", 1}, {"101", 101}, {"12x", 12}, {"2147483647", 2147483647}}));
    ConfigBuilder config;
    config.SetLogLevel(4);
    for (const PolicyValue& value : POLICY)
    {
        config.Set(value.pszNode, taken.pszText);
    }
    CpuMonitor monitor(config);
    const Lines lines = monitor.StartWith(0);
    REQUIRE_FALSE(lines.empty());
    CHECK(EndsWith(lines[0], BeginText({taken.nValue, taken.nValue, taken.nValue, taken.nValue})));
    monitor.End();
}

TEST_CASE("all defaults are logged in order: interval, threshold, sampling amount, maximum")
{
    CpuMonitor monitor(ConfigBuilder().SetLogLevel(4));
    Lines defaults;
    for (const PolicyValue& value : POLICY)
    {
        defaults.push_back(DefaultLine(value, -1));
    }
    Lines lines = monitor.StartWith(50);
    REQUIRE(lines.size() == 9);
    CHECK(Lines(lines.begin(), lines.begin() + 4) == defaults);
    CHECK(EndsWith(lines[4], BeginText({90, 85, 5, 5})));
    CHECK(Lines(lines.begin() + 5, lines.end()) == defaults);
    monitor.End();
}

TEST_CASE("an interval of 0 means the default of 90 seconds between two samples")
{
    CpuMonitor monitor(CpuConfig(0, 85, 1, 5));
    monitor.StartWith(50);
    CHECK(monitor.cpu.Reads() == 1);
    monitor.clock.Advance(89);
    CHECK(monitor.cpu.Reads() == 1);
    monitor.clock.Advance(1);
    CHECK(monitor.cpu.Reads() == 2);
    CHECK(monitor.clock.SleepCount(1000) == 91); // one for each second, and the one begun
    monitor.End();
}

TEST_CASE("an interval of -5 means no pause at all between two samples")
{
    CpuMonitor monitor(CpuConfig(-5, 101, 1, 5));
    Treadmill treadmill(monitor, 20);
    monitor.StartWith(50);
    CHECK(monitor.cpu.Reads() == 20);
    CHECK(monitor.clock.SleepCount(1000) == 0);
    CHECK(monitor.clock.ElapsedMs() == 0);
    monitor.Stop(VARNEX_ALERT_CPU);
    treadmill.LetGo();
    monitor.clock.AdvanceUntilWorkersEnd(1);
    CHECK(Last(monitor.OwnNews()) == Lines{END_LINE});
}

TEST_CASE("a sampling amount of -1 means the default of 5")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, -1, 5));
    monitor.StartWith(90);
    for (int i = 0; i < 3; ++i)
    {
        monitor.Cycle();
    }
    CHECK(monitor.cpu.Reads() == 4);
    const Lines fifth = monitor.Cycle();
    REQUIRE(fifth.size() == 3);
    CHECK(fifth[1] == CheckLine(90, 85, 0, 0, 5));
    monitor.End();
}

TEST_CASE("a sampling amount of -2 means that no sample is taken, and nothing is said about it")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 85, -2, 5));
    monitor.StartWith(90);
    CHECK(monitor.Cycle().empty());
    CHECK(monitor.Cycle().empty());
    CHECK(monitor.cpu.Reads() == 0);
    CHECK(monitor.clock.SleepCount(1000) == 2 * CpuMonitor::SECONDS + 1); // it waits all the same
    monitor.End();
}

TEST_CASE("a sampling amount lowered from 5 to 3 drops the two oldest samples in the next cycle")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 101, 5, 5));
    monitor.StartWith(10);
    for (const int nLoad : {20, 30, 40})
    {
        CHECK(monitor.CycleWith(nLoad).empty());
    }
    CHECK(monitor.CycleWith(50) == Lines{CheckLine(30, 101, 0, 0, 5)});
    monitor.tree.WriteConfig(CpuConfig(INTERVAL, 101, 3, 5));
    CHECK(monitor.CycleWith(60) == Lines{CheckLine(50, 101, 0, 0, 5)}); // 40 50 60
    monitor.tree.WriteConfig(CpuConfig(INTERVAL, 101, 5, 5));
    // Raised again: the dropped samples are gone, and filling up is silent.
    CHECK(monitor.CycleWith(70).empty());
    CHECK(monitor.CycleWith(80) == Lines{CheckLine(60, 101, 0, 0, 5)}); // 40 50 60 70 80
    monitor.End();
}

TEST_CASE("a sampling amount that turns negative says nothing and keeps the samples for later")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 101, 2, 5));
    monitor.StartWith(10);
    CHECK(monitor.CycleWith(20) == Lines{CheckLine(15, 101, 0, 0, 5)});
    monitor.tree.WriteConfig(CpuConfig(INTERVAL, 101, -2, 5));
    CHECK(monitor.CycleWith(30).empty());
    monitor.tree.WriteConfig(CpuConfig(INTERVAL, 101, 2, 5));
    CHECK(monitor.CycleWith(40) == Lines{CheckLine(30, 101, 0, 0, 5)}); // 20 40
    monitor.End();
}

TEST_CASE("a changed threshold, maximum and interval count from the next cycle on")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 95, 1, 5));
    monitor.StartWith(90);
    monitor.tree.WriteConfig(CpuConfig(30, 90, 1, 7));
    CHECK(monitor.Cycle() == Lines{CheckLine(90, 90, 0, 0, 7), AlertText(90, 90, 0, 7)});
    monitor.clock.Advance(29);
    CHECK(monitor.OwnNews().empty());
    monitor.clock.Advance(1);
    CHECK(monitor.OwnNews() == Lines{CheckLine(90, 90, 1, 1, 7)});
    monitor.End();
}

TEST_CASE("the configured log level counts from the monitor's start on, for all four levels and none")
{
    struct Level
    {
        const char* pszText;
        int nLevel;
    };
    const auto level = GENERATE(values<Level>({{"0", 0}, {"1", 1}, {"2", 2}, {"3", 3}, {"4", 4}, {"abc", 0}}));
    CpuMonitor monitor(CpuConfig(0, 85, 1, 5).SetNode("KPMConfiguration/VarnexLog/Level", level.pszText));
    const Lines begin = monitor.StartWith(0);
    // The refusal of the interval comes before the refresh, so at the level of the load.
    REQUIRE_FALSE(begin.empty());
    CHECK(begin[0] == DefaultLine(POLICY[0], 0));
    CHECK((begin.size() > 1 && EndsWith(begin[1], BeginText({90, 85, 1, 5}))) == (level.nLevel >= 3));

    Lines expected;
    if (level.nLevel >= 2)
    {
        expected.push_back(DefaultLine(POLICY[0], 0));
    }
    if (level.nLevel >= 4)
    {
        expected.push_back(CheckLine(90, 85, 0, 0, 5));
    }
    if (level.nLevel >= 3)
    {
        expected.push_back(AlertText(90, 85, 0, 5));
    }
    monitor.cpu.SetUtilization(90);
    monitor.clock.Advance(90);
    CHECK(monitor.OwnNews() == expected);

    monitor.Start(5); // a line of level 1
    CHECK(monitor.News().size() == (level.nLevel >= 1 ? 1U : 0U));
    monitor.End();
}

TEST_CASE("a log level that is none is left alone, and so is one that cannot be read")
{
    CpuMonitor monitor(CpuConfig(INTERVAL, 101, 1, 5));
    monitor.StartWith(90);
    for (const char* pszLevel : {"5", "-1", "2147483647"})
    {
        monitor.tree.WriteConfig(CpuConfig(INTERVAL, 101, 1, 5).SetNode("KPMConfiguration/VarnexLog/Level", pszLevel));
        CHECK(monitor.Cycle() == Lines{CheckLine(90, 101, 0, 0, 5)});
    }
    monitor.tree.WriteConfig(
        ConfigBuilder().SetPolicy("CPU", INTERVAL, 101, 1, 5).SetCounter("Date", "2026-01-31").SetCounter("CPU", "0"));
    CHECK(monitor.Cycle() == Lines{CheckLine(90, 101, 0, 0, 5)});
    monitor.tree.WriteConfig(CpuConfig(INTERVAL, 101, 1, 5).SetLogLevel(3));
    CHECK(monitor.Cycle().empty());
    monitor.End();
}

} // namespace varnex::test
