#include "HostileInput.h"
#include "reliability/LongForm.h"
#include "reliability/processes/ModuleInChild.h"

#include "alerting/AlertStore.h"
#include "common/LocalTime.h"
#include "diag/SPLogger.h"
#include "support/LogFile.h"
#include "support/ProcessMeter.h"
#include "support/TestText.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <algorithm>
#include <climits>

namespace varnex::test
{

namespace
{

constexpr ULONGLONG PROMPT_MS = 5000;
constexpr std::size_t MORE_BYTES = 4 * 1024 * 1024;
constexpr int ROOM = 200; // of the arrays for the largest limits, which no file here reaches

std::string AlertFile(FuzzRun& run)
{
    const std::string time = std::to_string(SecondsNow());
    std::string file;
    for (std::size_t nLines = run.Upto(12); nLines != 0; --nLines)
    {
        file += std::to_string(run.Upto(6)) + ";50;72;" + time + "(2024-01-31 23:59:59);0 C:;\r\n";
    }
    return Mutated(file, {";", ";;;;;", "\r\n", "\n", "\r", "\x1A", std::string(1, '\0'), "%s%n%s", "4000000000", time},
                   run);
}

// A caller's arrays, each just large enough.
struct Arrays
{
    Arrays(int nEntries, unsigned cchText)
        : types(sizeof(int) * static_cast<std::size_t>(nEntries)),
          texts(sizeof(wchar_t*) * static_cast<std::size_t>(nEntries)),
          thresholds(sizeof(int) * static_cast<std::size_t>(nEntries)),
          values(sizeof(int) * static_cast<std::size_t>(nEntries)), text(sizeof(wchar_t) * cchText)
    {
        // All records write the same text; what counts is that none writes past it.
        std::fill_n(texts.As<wchar_t*>(), nEntries, text.As<wchar_t>());
    }

    GuardedBytes types;
    GuardedBytes texts;
    GuardedBytes thresholds;
    GuardedBytes values;
    GuardedBytes text;
};

bool EndsWith(const std::string& text, const std::string& ending)
{
    return text.size() >= ending.size() && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

} // namespace

TEST_CASE("any alert file is fetched within the caller's arrays, in bounded time, and what was not read stays")
{
    constexpr int LIMITS[] = {1, 2, 3, 7, INT_MAX - 1, INT_MAX};
    constexpr unsigned TEXT_SIZES[] = {0, 1, 2, 20, 512};
    ModuleTree tree;
    const ModuleInChild module(tree.ModulePath());
    Log()->Configure(AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
    FuzzRun run(15);
    const std::size_t cbBefore = PrivateBytes();
    long long llRecords = 0;
    ULONGLONG ullLongest = 0;
    while (run.Next())
    {
        const std::string file = AlertFile(run);
        const int nLimit = LIMITS[run.Upto(5)];
        const unsigned cchText = TEXT_SIZES[run.Upto(4)];
        const int nEntries = nLimit < ROOM ? nLimit + 1 : ROOM;
        const Arrays arrays(nEntries, cchText);
        tree.WriteAlerts(file);
        const ULONGLONG ullBegin = GetTickCount64();
        const int nCount = GetAlertRecord(arrays.types.As<int>(), arrays.texts.As<wchar_t*>(), cchText,
                                          arrays.thresholds.As<int>(), arrays.values.As<int>(), nLimit);
        ullLongest = (std::max)(ullLongest, GetTickCount64() - ullBegin);
        CAPTURE(run.Cases(), nLimit, cchText);
        REQUIRE(nCount >= 0);
        REQUIRE(nCount <= nEntries);
        REQUIRE(EndsWith(file, tree.Alerts()));
        REQUIRE((nCount == nLimit + 1LL || tree.Alerts().empty())); // it stops early for a full fetch only
        if (nCount > 0 && cchText > 0)
        {
            REQUIRE(wcsnlen(arrays.text.As<wchar_t>(), cchText) < cchText);
        }
        llRecords += nCount;
    }
    CHECK(ullLongest < PROMPT_MS);
    CHECK(PrivateBytes() < cbBefore + MORE_BYTES);
    CHECK(llRecords > 100);
    CHECK(LogFile(tree).CountContaining("ReadLocalAlertInf -- Translate buffer string(") > 0);
    PrintFigure("hostile alert files: " + std::to_string(run.Cases()) + " fetched, " + std::to_string(llRecords) +
                " records; longest fetch " + std::to_string(ullLongest) + " ms");
}

TEST_CASE("limits and arrays that make no sense fetch nothing and leave the file alone")
{
    ModuleTree tree;
    const ModuleInChild module(tree.ModulePath());
    const std::string file = "1;85;90;" + std::to_string(SecondsNow()) + "(t);;\r\n";
    tree.WriteAlerts(file);
    int nNumber = 77;
    wchar_t* pwszText = nullptr;
    for (const int nLimit : {0, -1, INT_MIN})
    {
        CHECK(GetAlertRecord(&nNumber, &pwszText, 0, &nNumber, &nNumber, nLimit) == 0);
    }
    CHECK(GetAlertRecord(nullptr, &pwszText, 0, &nNumber, &nNumber, 1) == 0);
    CHECK(GetAlertRecord(&nNumber, nullptr, 0, &nNumber, &nNumber, 1) == 0);
    CHECK(GetAlertRecord(&nNumber, &pwszText, 0, nullptr, &nNumber, 1) == 0);
    CHECK(GetAlertRecord(&nNumber, &pwszText, 0, &nNumber, nullptr, 1) == 0);
    CHECK(nNumber == 77);
    CHECK(tree.Alerts() == file);
}

} // namespace varnex::test
