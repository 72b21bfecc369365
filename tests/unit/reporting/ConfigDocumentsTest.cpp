#include "ComScope.h"
#include "ReportDocument.h"
#include "ReportingBench.h"

#include "config/DailyCounters.h"
#include "config/XmlConfig.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

void KeepConfig(const ReportingBench& bench)
{
    KeepDocument(L"configurations", ReadFileBytes(bench.tree.InBin(L"KpmCfg.xml")));
}

} // namespace

TEST_CASE("a configuration to which the module has added counts is kept for its schema")
{
    ReportingBench bench;
    const ComScope com;
    bench.tree.WriteConfig(
        ConfigBuilder().SetPolicy("CPU", 90, 85, 5, 5).SetPolicy("Disk", 0, -1, 5, 5).SetLogLevel(3));
    CHECK(SetXMLNodeValue(L"", L"KPMConfiguration/PkiAlertNum/Disk", L"3") == 0);
    KeepConfig(bench);
    CHECK(SaveAlertNumIntoLocal(L"2026-01-31", ALERT_COUNTER_PAGING_FILE, 2) == 0);
    KeepConfig(bench);
    CHECK(bench.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/PF") == L"2");
}

TEST_CASE("a configuration in which the module has changed counts is kept for its schema")
{
    ReportingBench bench;
    const ComScope com;
    bench.tree.WriteConfig(
        ConfigBuilder().SetCounter("Date", "2026-01-30").SetCounter("CPU", "5").SetCounter("PH", "1").SetLogLevel(4));
    CHECK(SaveAlertNumIntoLocal(L"2026-01-31", ALERT_COUNTER_CPU, 1) == 0);
    KeepConfig(bench);
    CHECK(bench.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/Date") == L"2026-01-31");
}

} // namespace varnex::test
