#include "HostileInput.h"
#include "reliability/LongForm.h"
#include "reliability/processes/ModuleInChild.h"

#include "alerting/AlertLine.h"
#include "alerting/AlertMessage.h"
#include "alerting/AlertStore.h"
#include "common/BoundedText.h"
#include "common/LocalTime.h"
#include "reporting/ReportXml.h"
#include "reporting/UtilizationReport.h"
#include "support/TestText.h"
#include "support/XmlReader.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <cstring>

namespace varnex::test
{

namespace
{

const std::vector<std::string> NAMES = {"",
                                        "%s%s%n%d",
                                        "a;b;c;d;e;f;g",
                                        "a\r\nb\nc\r",
                                        "\x1A",
                                        "\xFF\xFE\x80",
                                        std::string(10'000, 'x'),
                                        std::string(383, '%'),
                                        "PF",
                                        ";"};

constexpr int REPORTS = 300; // Wine writes a complaint for each odd character

std::wstring WideName(FuzzRun& run)
{
    std::wstring name;
    for (std::size_t nLength = run.Upto(40); nLength != 0; --nLength)
    {
        constexpr wchar_t UNITS[] = {L'<', L'&', L'"', L'%', L';', L'\n', L'a', 0xD800, 0xDC00, 0xFFFE, 0x4E2D, 0x1};
        name += UNITS[run.Upto(11)];
    }
    return name;
}

} // namespace

TEST_CASE("an alert of any resource name is one that the fetch gives back or names in the log, and no other suffers")
{
    ModuleTree tree;
    const ModuleInChild module(tree.ModulePath());
    FuzzRun run(5);
    ULONGLONG ullNames = 0;
    while (run.Next())
    {
        std::string name = Mutated(NAMES[run.Upto(NAMES.size() - 1)], NAMES, run);
        const GuardedBytes text(name);
        const int nNow = AsHappenTime(SecondsNow());
        REQUIRE(SaveLocalAlertInfo(4, 50, 1, text.As<char>(), nNow, nullptr) == 0);
        REQUIRE(SaveLocalAlertInfo(4, 50, 2, "next", nNow, nullptr) == 0);
        std::vector<VARNEX_ALERT_BUF> records;
        REQUIRE(ReadLocalAlertInf(records, 1000) == 0);
        CAPTURE(run.Cases(), name);
        REQUIRE_FALSE(records.empty());
        REQUIRE(records.back().Value == 2); // whatever the name before it was
        REQUIRE(std::strcmp(records.back().ResourceName, "next") == 0);
        for (const VARNEX_ALERT_BUF& record : records)
        {
            const GuardedBytes message(64 * sizeof(wchar_t));
            ComposeAlertMessage(record, message.As<wchar_t>(), 64);
            REQUIRE(wcsnlen(message.As<wchar_t>(), 64) < 64);
        }
        ++ullNames;
    }
    CHECK(ullNames > 20);
    PrintFigure("hostile names: " + std::to_string(ullNames) + " alerts, none took another one with it");
}

TEST_CASE("a report of any names is a whole document, with a mark for each character that XML has no place for")
{
    ModuleTree tree;
    const ModuleInChild module(tree.ModulePath());
    FuzzRun run(5);
    while (run.Cases() < REPORTS && run.Next())
    {
        UtilizationReport report;
        CopyTextW(report.wszTime, L"2026-01-31 12:00:00");
        report.cpus.resize(1);
        report.disks.resize(1);
        report.cards.resize(1);
        CopyTextW(report.cpus[0].wszIndex, WideName(run).c_str());
        CopyTextW(report.disks[0].wszIndex, WideName(run).c_str());
        CopyTextW(report.cards[0].wszMACAddress, WideName(run).c_str());
        const ULONGLONG ullBegin = GetTickCount64();
        const UniqueBstr text = CreateKAPKIUtilizationXML(&report);
        CAPTURE(run.Cases());
        REQUIRE(GetTickCount64() - ullBegin < 5000);
        REQUIRE(text);
        CAPTURE(Utf8FromWide(text.Text()));
        const XmlReader document = XmlReader::FromText(text.Text());
        CHECK(document.Count(L"ServerPKIInformation/*") == 5);
        CHECK(document.Text(L"ServerPKIInformation/NetworkUtil/@MACAddress") ==
              Readable(report.cards[0].wszMACAddress));
    }
    CHECK(run.Cases() > 10);
    PrintFigure("hostile names: " + std::to_string(run.Cases()) + " reports, all of them whole documents");
}

} // namespace varnex::test
