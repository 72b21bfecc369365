#include "Rows.h"

#include "floors/FloorConfig.h"

#include "common/LocalTime.h"
#include "config/DailyCounters.h"
#include "config/XmlConfig.h"

#include <catch2/catch.hpp>

namespace varnex::bench
{

namespace
{

Row RowOf(const char* pszOperation, const char* pszWork, double dGoal)
{
    Row row;
    row.operation = pszOperation;
    row.work = pszWork;
    row.goal = {GoalKind::Ratio, dGoal};
    return row;
}

void MeasureReads(Setting& setting, Results& results, const FloorConfig& floor)
{
    results.Add(Compare(
        RowOf("policy value", "1 load", 1.05), setting.effort, 1, [] { GetAlertConfValue(1, 1); },
        [&] { floor.ReadPolicyValue(); }));
    results.Add(Compare(
        RowOf("log level", "1 load", 1.05), setting.effort, 1,
        []
        {
            int nLevel = 0;
            GetLogLevel(&nLevel);
        },
        [&] { floor.ReadLogLevel(); }));
    wchar_t wszToday[DATE_CHARS];
    FormatLocalDateW(SecondsNow(), wszToday);
    int nCount = -1;
    results.Add(Compare(
        RowOf("counter read", "2 loads", 1.05), setting.effort, 1,
        [&] { GetAlertNumFromLocal(wszToday, ALERT_COUNTER_CPU, &nCount); }, [&] { floor.ReadCount(); }));
    REQUIRE(nCount == 0); // not turned away by the date
}

// Twice: against saves that replace the file whole, as the module's do; and against plain saves into it, which a kill or
// a full disk can leave torn.
void MeasureSaves(Setting& setting, Results& results, const FloorConfig& floor)
{
    int nResult = 0;
    for (const bool bSafe : {true, false})
    {
        const char* const pszSame = bSafe ? "2 loads, 1 safe save" : "2 loads, 1 plain save";
        results.Add(Compare(
            RowOf("counter saved, same day", pszSame, 1.10), setting.effort, 1,
            [&] { nResult |= SaveAlertNumIntoLocal(L"2026-01-31", ALERT_COUNTER_CPU, 3); },
            [&] { floor.SaveCount(false, bSafe); }));
        bool bOdd = false;
        const char* const pszNew = bSafe ? "8 loads, 7 safe saves" : "8 loads, 7 plain saves";
        results.Add(Compare(
            RowOf("counter saved, new day", pszNew, 1.10), setting.effort, 1,
            [&]
            {
                bOdd = !bOdd;
                nResult |= SaveAlertNumIntoLocal(bOdd ? L"2026-02-01" : L"2026-01-31", ALERT_COUNTER_CPU, 3);
            },
            [&] { floor.SaveCount(true, bSafe); }));
    }
    REQUIRE(nResult == 0);
}

} // namespace

std::wstring FloorConfigFile(Setting& setting)
{
    const std::wstring file = setting.tree.InBin(L"Floor__.xml"); // as long as the module's
    REQUIRE(CopyFileW(setting.tree.InBin(L"KpmCfg.xml").c_str(), file.c_str(), FALSE));
    return file;
}

void MeasureConfig(Setting& setting, Results& results)
{
    const ComScope com;
    setting.WriteConfig();
    const FloorConfig floor(FloorConfigFile(setting));
    MeasureReads(setting, results, floor);
    MeasureSaves(setting, results, floor);
    setting.WriteConfig();
}

} // namespace varnex::bench
