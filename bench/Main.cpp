#include "Rows.h"
#include "StandIns.h"

#include "support/TestFiles.h"

#include <catch2/catch.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace varnex::bench
{

namespace
{

constexpr Effort FULL = {2.0, 15, 2'000, true};
constexpr Effort SHORT = {0.05, 3, 50, false};

// A part of the table, unless only others were asked for. Says so on the error stream: a long run shows that it lives.
void Run(const char* pszPart, void (*pfnMeasure)(Setting&, Results&), Setting& setting, Results& results)
{
    const char* const pszWanted = std::getenv("VARNEX_BENCH_PARTS");
    if (pszWanted == nullptr || std::strstr(pszWanted, pszPart) != nullptr)
    {
        std::fprintf(stderr, "%s ...\n", pszPart);
        pfnMeasure(setting, results);
    }
}

void RunAll(const Effort& effort)
{
    Results results;
    {
        Setting setting(effort);
        InstallStandIns(GetModuleHandleW(nullptr));
        Run("log", MeasureLog, setting, results);
        Run("config", MeasureConfig, setting, results);
        Run("alerts", MeasureAlerts, setting, results);
        Run("cycles", MeasureCycleRows, setting, results);
        Run("reports", MeasureReports, setting, results);
        Run("entry", MeasureEntry, setting, results);
        Run("footprint", MeasureFootprint, setting, results);
    }
    Print(results);
    const char* const pszFiles = std::getenv("VARNEX_BENCH_FILES"); // a path but for its ending
    if (pszFiles != nullptr)
    {
        const std::wstring files(pszFiles, pszFiles + std::strlen(pszFiles));
        test::WriteFileBytes(files + L".json", JsonOf(results));
        test::WriteFileBytes(files + L".md", MarkdownOf(results));
    }
}

} // namespace

TEST_CASE("full run")
{
    RunAll(FULL);
}

TEST_CASE("short form", "[.]")
{
    RunAll(SHORT);
}

} // namespace varnex::bench
