#include "alerting/AlertPolicy.h"

#include "MonitorBench.h"

#include "alerting/MonDiskThread.h"
#include "alerting/MonNetworkThread.h"
#include "support/LogMatchers.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr AlertPolicy DISK_POLICY = {3, L"CTestMonitor", 90, 85, 5, 7};

void CheckPolicy(const CAlertReachPKIThread& monitor, int nInterval, int nThreshold, int nSamplingAmount,
                 int nMaxAlertNum)
{
    CHECK(monitor.GetInterval() == nInterval);
    CHECK(monitor.GetThreshold() == nThreshold);
    CHECK(monitor.GetSamplingAmount() == nSamplingAmount);
    CHECK(monitor.GetMaxAlertNum() == nMaxAlertNum);
}

HasLinesInOrder DefaultsLogged(const std::string& value)
{
    const std::string head = "CTestMonitor::UpdateAlertPolicy -- Get ";
    const std::string middle = " policy fail, return value(" + value + "), using default value(";
    return HasLinesInOrder({{2, head + "Interval" + middle + "90)"},
                            {2, head + "threshold" + middle + "85)"},
                            {2, head + "SamplingAmount" + middle + "5)"},
                            {2, head + "MaxAlertNum" + middle + "7)"}});
}

} // namespace

TEST_CASE("a policy is what the configuration says")
{
    MonitorBench bench;
    bench.tree.WriteConfig(ConfigBuilder().SetPolicy("CPU", 1, 2, 3, 4).SetPolicy("Disk", 30, 50, 4, 2));

    ReadAlertPolicy(bench.monitor, DISK_POLICY);
    CheckPolicy(bench.monitor, 30, 50, 4, 2);
    CHECK(bench.ReadLog().Bytes().empty());
}

TEST_CASE("the alert type chooses the resource of a policy")
{
    MonitorBench bench;
    bench.tree.WriteConfig(ConfigBuilder()
                               .SetPolicy("CPU", 11, 12, 13, 14)
                               .SetPolicy("Memory", 21, 22, 23, 24)
                               .SetPolicy("Disk", 31, 32, 33, 34)
                               .SetPolicy("Network", 41, 42, 43, 44));
    for (int nType = 1; nType <= 4; ++nType)
    {
        AlertPolicy policy = DISK_POLICY;
        policy.nAlertType = nType;
        ReadAlertPolicy(bench.monitor, policy);
        CheckPolicy(bench.monitor, 10 * nType + 1, 10 * nType + 2, 10 * nType + 3, 10 * nType + 4);
    }
}

TEST_CASE("a policy value of 0 is not configured")
{
    MonitorBench bench;
    bench.tree.WriteConfig(ConfigBuilder().SetPolicy("Disk", 0, 0, 0, 0));

    ReadAlertPolicy(bench.monitor, DISK_POLICY);
    CheckPolicy(bench.monitor, 90, 85, 5, 7);
    CHECK_THAT(bench.ReadLog(), DefaultsLogged("0"));
    CHECK(bench.ReadLog().Lines().size() == 4);
}

TEST_CASE("a policy value of -1 is not configured")
{
    MonitorBench bench;
    bench.tree.WriteConfig(ConfigBuilder().SetPolicy("Disk", -1, -1, -1, -1));

    ReadAlertPolicy(bench.monitor, DISK_POLICY);
    CheckPolicy(bench.monitor, 90, 85, 5, 7);
    CHECK_THAT(bench.ReadLog(), DefaultsLogged("-1"));
}

TEST_CASE("any other policy value is taken as it is")
{
    MonitorBench bench;
    bench.tree.WriteConfig(ConfigBuilder().SetPolicy("Disk", -5, 101, -2, 2147483647));

    ReadAlertPolicy(bench.monitor, DISK_POLICY);
    CheckPolicy(bench.monitor, -5, 101, -2, 2147483647);
    CHECK(bench.ReadLog().Bytes().empty());
}

TEST_CASE("each policy value has its own default")
{
    MonitorBench bench;
    bench.tree.WriteConfig(
        ConfigBuilder().Set("DiskInterval", 30).Set("DiskSamplingAmount", "none").Set("DiskMaxAlertNum", 2));

    ReadAlertPolicy(bench.monitor, DISK_POLICY);
    CheckPolicy(bench.monitor, 30, 85, 5, 2);
    const LogFile log = bench.ReadLog();
    CHECK(log.CountOfLevel(2) == 2);
    CHECK_THAT(log, HasLinesInOrder({{2, "CTestMonitor::UpdateAlertPolicy -- Get threshold policy fail, return "
                                         "value(-1), using default value(85)"},
                                     {2, "CTestMonitor::UpdateAlertPolicy -- Get SamplingAmount policy fail, return "
                                         "value(0), using default value(5)"}}));
}

TEST_CASE("without a configuration file every policy value is the default")
{
    MonitorBench bench;
    bench.monitor.SetPolicy(1, 2, 3, 4);

    ReadAlertPolicy(bench.monitor, DISK_POLICY);
    CheckPolicy(bench.monitor, 90, 85, 5, 7);
    CHECK_THAT(bench.ReadLog(), DefaultsLogged("-1"));
    CHECK(bench.ReadLog().CountOfLevel(2) == 4);
}

TEST_CASE("a changed policy is read the next time")
{
    MonitorBench bench;
    bench.tree.WriteConfig(ConfigBuilder().SetPolicy("Disk", 30, 50, 4, 2));
    ReadAlertPolicy(bench.monitor, DISK_POLICY);
    bench.tree.WriteConfig(ConfigBuilder().SetPolicy("Disk", 31, 51, 5, 3));

    ReadAlertPolicy(bench.monitor, DISK_POLICY);
    CheckPolicy(bench.monitor, 31, 51, 5, 3);
}

TEST_CASE("a disk and a network monitor's policy is answered with 0")
{
    MonitorBench bench;
    bench.tree.WriteConfig(ConfigBuilder().SetPolicy("Disk", 1, 2, 3, 4).SetPolicy("Network", 5, 6, 7, 8));
    CMonDiskThread disk;
    CHECK(disk.UpdateAlertPolicy() == 0);
    CheckPolicy(disk, 1, 2, 3, 4);
    CMonNetworkThread network;
    CHECK(network.UpdateAlertPolicy() == 0);
    CheckPolicy(network, 5, 6, 7, 8);
}

} // namespace varnex::test
