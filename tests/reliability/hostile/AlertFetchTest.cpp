#include "AlertReading.h"
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
#include <cstring>

namespace varnex::test
{

namespace
{

constexpr ULONGLONG PROMPT_MS = 5000;
constexpr std::size_t MORE_BYTES = 4 * 1024 * 1024;
constexpr int ROOM = 40; // of the arrays for the largest limits, which no file here reaches
constexpr long long NOW = 1'769'903'999;
constexpr long long THREE_DAYS = 259'200;

std::string AlertOf(FuzzRun& run)
{
    const std::string type = std::to_string(run.Upto(6));
    const std::string threshold = std::to_string(run.Upto(100));
    const std::string value = std::to_string(run.Upto(100));
    const long long llAge = run.Upto(4) == 0 ? THREE_DAYS - static_cast<long long>(run.Upto(1)) : 0;
    const std::string name = run.Upto(3) == 0 ? "PF" : std::to_string(run.Upto(9)) + " C:";
    return type + ";" + threshold + ";" + value + ";" + std::to_string(NOW - llAge) + "(2024-01-31 23:59:59);" + name +
           ";\r\n";
}

std::string AlertFile(FuzzRun& run)
{
    const std::string time = std::to_string(NOW);
    const std::string expired = std::to_string(NOW - THREE_DAYS);
    const std::string kept = std::to_string(NOW - THREE_DAYS + 1);
    std::string file;
    for (std::size_t nLines = run.Upto(12); nLines != 0; --nLines)
    {
        file += AlertOf(run);
    }
    return Mutated(file,
                   {";", ";;;;;", "\r\n", "\n", "\r", "\x1A", std::string(1, '\0'), "%s%n%s", "4000000000", time,
                    expired, kept, "pf"},
                   run);
}

std::wstring HostName()
{
    wchar_t wszHost[260];
    DWORD cchHost = 260;
    REQUIRE(GetComputerNameExW(ComputerNameDnsHostname, wszHost, &cchHost));
    return wszHost;
}

// What the caller is told of an alert: its moment, the host, and the name of a disk or an adapter.
std::wstring TextOf(const AlertText& alert, unsigned cchText)
{
    constexpr std::size_t NAME_CHARS = 259;
    wchar_t wszTime[TIME_CHARS];
    // Of a time after 2037 the 32 bits are those of NOW and a difference.
    FormatLocalTimeW(NOW + static_cast<int>(static_cast<unsigned>(alert.nHappenTime) - static_cast<unsigned>(NOW)),
                     wszTime);
    static const std::wstring host = HostName();
    std::wstring text = wszTime + (L", " + host);
    if ((alert.nType == ALERT_TYPE_DISK || alert.nType == ALERT_TYPE_NETWORK) && !alert.name.empty())
    {
        text += L", " + WideFromAnsi(alert.name.substr(0, NAME_CHARS));
    }
    return text.substr(0, cchText - 1);
}

// Every record that was fetched is the one that a second reading has in its place.
void CheckFetched(const GuardedArrays& arrays, unsigned cchText, const std::vector<AlertText>& expected)
{
    for (std::size_t i = 0; i < expected.size(); ++i)
    {
        const AlertText& alert = expected[i];
        const bool bPagingFile = alert.nType == ALERT_TYPE_MEMORY && _stricmp(alert.name.c_str(), "PF") == 0;
        CAPTURE(i, alert.name);
        REQUIRE(arrays.types.As<int>()[i] == (bPagingFile ? ALERT_TYPE_PAGING_FILE : alert.nType));
        REQUIRE(arrays.thresholds.As<int>()[i] == alert.nThreshold);
        REQUIRE(arrays.values.As<int>()[i] == alert.nValue);
        if (cchText != 0)
        {
            const wchar_t* const pwszText = arrays.texts.As<wchar_t*>()[i];
            REQUIRE(wcsnlen(pwszText, cchText) < cchText);
            REQUIRE(std::wstring(pwszText) == TextOf(alert, cchText));
        }
    }
}

void WINAPI TellNow(FILETIME* pTime)
{
    ULARGE_INTEGER nTicks;
    nTicks.QuadPart = static_cast<ULONGLONG>((NOW + 11'644'473'600) * 10'000'000);
    *pTime = {nTicks.LowPart, nTicks.HighPart};
}

bool EndsWith(const std::string& text, const std::string& ending)
{
    return text.size() >= ending.size() && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

} // namespace

TEST_CASE("of any alert file each alert is fetched, within the caller's arrays and in bounded time, and the rest stays")
{
    constexpr int LIMITS[] = {1, 2, 3, 7, INT_MAX - 1, INT_MAX};
    constexpr unsigned TEXT_SIZES[] = {0, 1, 2, 20, 512};
    ModuleTree tree;
    ModuleInChild module(tree.ModulePath());
    module.Imports().Replace<decltype(::GetSystemTimeAsFileTime)>("GetSystemTimeAsFileTime", &TellNow);
    Log()->Configure(AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
    FuzzRun run(15);
    const std::size_t cbBefore = PrivateBytes();
    long long llRecords = 0;
    int nLeft = 0; // files with lines that stayed
    ULONGLONG ullLongest = 0;
    while (run.Next())
    {
        const std::string file = AlertFile(run);
        const int nLimit = LIMITS[run.Upto(5)];
        const unsigned cchText = TEXT_SIZES[run.Upto(4)];
        const int nEntries = nLimit < ROOM ? nLimit + 1 : ROOM;
        const GuardedArrays arrays(nEntries, cchText);
        const AlertsRead expected = ReadAlertTexts(file, NOW, nLimit + 1LL);
        REQUIRE(expected.alerts.size() <= ROOM);
        tree.WriteAlerts(file);
        const ULONGLONG ullBegin = GetTickCount64();
        const int nCount = GetAlertRecord(arrays.types.As<int>(), arrays.texts.As<wchar_t*>(), cchText,
                                          arrays.thresholds.As<int>(), arrays.values.As<int>(), nLimit);
        ullLongest = (std::max)(ullLongest, GetTickCount64() - ullBegin);
        CAPTURE(run.Cases(), nLimit, cchText);
        REQUIRE(nCount == static_cast<int>(expected.alerts.size()));
        CheckFetched(arrays, cchText, expected.alerts);
        REQUIRE(EndsWith(file, tree.Alerts())); // byte for byte
        REQUIRE(ReadAlertTexts(tree.Alerts(), NOW, 0).rest == expected.rest);
        llRecords += nCount;
        nLeft += expected.rest.empty() ? 0 : 1;
    }
    CHECK(ullLongest < PROMPT_MS);
    CHECK(PrivateBytes() < cbBefore + MORE_BYTES);
    CHECK(llRecords > 100);
    CHECK(nLeft > 10);
    CHECK(LogFile(tree).CountContaining("ReadLocalAlertInf -- Translate buffer string(") > 0);
    PrintFigure("hostile alert files: " + std::to_string(run.Cases()) + " fetched, " + std::to_string(llRecords) +
                " records as a second reading has them; longest fetch " + std::to_string(ullLongest) + " ms");
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
