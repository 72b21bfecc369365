#include "Rows.h"
#include "StandIns.h"

#include "support/TestFiles.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace varnex::bench
{

namespace
{

constexpr Effort FULL = {2.0, 15, 2'000, true};
constexpr Effort SHORT = {0.05, 3, 50, false};

// A part of the table.
struct Part
{
    const char* pszName;
    void (*pfnMeasure)(Setting& setting, Results& results);
};

constexpr Part PARTS[] = {
    {"log", MeasureLog},
    {"config", MeasureConfig},
    {"alerts", MeasureAlerts},
    {"cycles", MeasureCycleRows},
    {"reports", MeasureReports},
    {"entry", MeasureEntry},
    {"footprint", MeasureFootprint},
};

// The parts asked for, or all. A name that is none fails the run: it would measure less than it says.
std::set<std::string> WantedParts()
{
    std::set<std::string> known;
    for (const Part& part : PARTS)
    {
        known.insert(part.pszName);
    }
    const char* const pszWanted = std::getenv("VARNEX_BENCH_PARTS");
    if (pszWanted == nullptr)
    {
        return known;
    }
    std::istringstream words(pszWanted);
    const std::set<std::string> wanted{std::istream_iterator<std::string>(words), {}};
    INFO("asked for: '" << pszWanted << "'");
    REQUIRE_FALSE(wanted.empty());
    REQUIRE(std::includes(known.begin(), known.end(), wanted.begin(), wanted.end()));
    return wanted;
}

void RunAll(const Effort& effort)
{
    const std::set<std::string> wanted = WantedParts();
    Results results;
    {
        Setting setting(effort);
        InstallStandIns(GetModuleHandleW(nullptr));
        for (const Part& part : PARTS)
        {
            if (wanted.count(part.pszName) != 0)
            {
                std::fprintf(stderr, "%s ...\n", part.pszName); // a long run shows that it lives
                part.pfnMeasure(setting, results);
            }
        }
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
