#include "Rows.h"
#include "StandIns.h"

#include "support/TestFiles.h"

#include <catch2/catch.hpp>

#include <cstdio>
#include <cstdlib>

namespace varnex::bench
{

namespace
{

constexpr Effort FULL = {3.0, 15, 2'000, true};
constexpr Effort SHORT = {0.05, 3, 50, false};

// Rows as they come, so that a long run shows that it lives; the table follows.
template <class Measure>
void Run(const char* pszWhat, Measure measure, Setting& setting, Results& results)
{
    std::fprintf(stderr, "%s ...\n", pszWhat);
    measure(setting, results);
}

void RunAll(const Effort& effort)
{
    Results results;
    {
        Setting setting(effort);
        InstallStandIns(GetModuleHandleW(nullptr));
        Run("log", MeasureLog, setting, results);
        Run("configuration", MeasureConfig, setting, results);
        Run("alerts", MeasureAlerts, setting, results);
        Run("cycles", MeasureCycleRows, setting, results);
        Run("reports", MeasureReports, setting, results);
        Run("load and unload", MeasureEntry, setting, results);
        Run("footprint", MeasureFootprint, setting, results);
    }
    Print(results);
    const char* const pszJson = std::getenv("VARNEX_BENCH_JSON");
    if (pszJson != nullptr)
    {
        const std::string json(pszJson);
        test::WriteFileBytes(std::wstring(json.begin(), json.end()), JsonOf(results));
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
