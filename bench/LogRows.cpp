#include "Rows.h"

#include "floors/EmptyCall.h"
#include "floors/FloorLog.h"

#include "diag/SPLogger.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

namespace varnex::bench
{

namespace
{

constexpr int HEADER_BYTES = 26; // "2026-01-31 12:00:00 [3] - "

void MeasureLine(Setting& setting, Results& results, const FloorLog& floor, int cchMessage, bool bWide)
{
    const std::string message(static_cast<std::size_t>(cchMessage), 'm');
    const std::wstring wide(message.begin(), message.end());
    const std::string line(static_cast<std::size_t>(HEADER_BYTES + cchMessage + 2), 'l');
    Row row;
    row.operation = bWide ? "log line written, wide" : "log line written";
    row.work = std::to_string(line.size()) + " bytes";
    row.dWork = static_cast<double>(line.size());
    row.goal = {GoalKind::Ratio, 1.05};
    results.Add(Compare(
        row, setting.effort, 5,
        [&]
        {
            if (bWide)
            {
                Log()->Level3W(L"%s", wide.c_str());
            }
            else
            {
                Log()->Level3A("%s", message.c_str());
            }
        },
        [&] { floor.Write(line.data(), static_cast<DWORD>(line.size())); },
        // Both files stay small; a long one is a matter of the file system.
        [&]
        {
            if (test::ReadFileBytes(setting.tree.InLogs(L"Varnex.log")).size() > 1'000'000)
            {
                DeleteFileW(setting.tree.InLogs(L"Varnex.log").c_str());
                DeleteFileW(setting.tree.InLogs(L"Floors.log").c_str());
            }
        }));
}

} // namespace

void MeasureLog(Setting& setting, Results& results)
{
    Log()->Level = 3;
    Row below;
    below.operation = "log call below the level";
    below.work = "4 arguments";
    below.goal = {GoalKind::NanosecondsOver, 1.5};
    results.Add(Compare(
        below, setting.effort, 100'000, [] { Log()->Level4A("%d %d %d %s", 1, 2, 3, "four"); },
        [] { EmptyCall("%d %d %d %s", 1, 2, 3, "four"); }));

    SPLogger* const pLogger = Log();
    below.work = "4 arguments, logger at hand";
    below.goal = {};
    results.Add(Compare(
        below, setting.effort, 100'000, [=] { pLogger->Level4A("%d %d %d %s", 1, 2, 3, "four"); },
        [] { EmptyCall("%d %d %d %s", 1, 2, 3, "four"); }));

    const FloorLog floor(test::AnsiFromWide(setting.tree.LogsPath()));
    MeasureLine(setting, results, floor, 60, false);
    MeasureLine(setting, results, floor, 600, false);
    MeasureLine(setting, results, floor, 60, true);
    MeasureLine(setting, results, floor, 600, true);
    REQUIRE(setting.tree.Log().size() > 600);
    Log()->Level = 0;
}

} // namespace varnex::bench
