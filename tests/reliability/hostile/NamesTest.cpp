#include "HostileInput.h"
#include "reliability/LongForm.h"
#include "reliability/processes/ModuleInChild.h"

#include "alerting/AlertLine.h"
#include "alerting/AlertMessage.h"
#include "alerting/AlertStore.h"
#include "common/BoundedText.h"
#include "common/LocalTime.h"
#include "diag/SPLogger.h"
#include "reporting/ReportXml.h"
#include "reporting/UtilizationReport.h"
#include "support/LogFile.h"
#include "support/TestText.h"
#include "support/XmlReader.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <sstream>

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

constexpr int REPORTS = 300; // of the short form: Wine writes a complaint for each odd character
constexpr char TOLD[] = "ReadLocalAlertInf -- Translate buffer string(";

// The lines that an alert of that name takes in the file, without their ends and without empty ones.
std::vector<std::string> LinesOf(const std::string& name, int nHappenTime)
{
    VARNEX_ALERT_BUF record{};
    CopyTextA(record.ResourceName, name.c_str());
    char szTime[TIME_CHARS];
    FormatLocalTimeA(nHappenTime, szTime);
    std::istringstream text("4;50;1;" + std::to_string(nHappenTime) + "(" + szTime + ");" + record.ResourceName +
                            ";\n");
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
    {
        if (!line.empty())
        {
            lines.push_back(line);
        }
    }
    return lines;
}

// A line with less than five fields that end is none of an alert.
bool IsAlert(const std::string& line)
{
    return std::count(line.begin(), line.end(), ';') >= 5;
}

// The lines that the log says were none, since the last time.
std::vector<std::string> TakeTold(const ModuleTree& tree)
{
    std::vector<std::string> told;
    const LogFile log(tree);
    for (const LogLine& line : log.Lines())
    {
        REQUIRE(line.text.rfind(TOLD, 0) == 0);
        told.push_back(line.text.substr(sizeof TOLD - 1));
    }
    if (!told.empty())
    {
        DeleteFileW(tree.InLogs(L"Varnex.log").c_str());
    }
    return told;
}

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

// Wine's reader drops an attribute's value of line ends only, whoever wrote it; that one is looked for in the text.
void CheckAddress(const XmlReader& document, const std::wstring& text, const std::wstring& address)
{
    if (address.empty() || address.find_first_not_of(L'\n') != std::wstring::npos)
    {
        CHECK(document.Text(L"ServerPKIInformation/NetworkUtil/@MACAddress") == address);
        return;
    }
    std::wstring value;
    for (std::size_t i = 0; i < address.size(); ++i)
    {
        value += L"&#10;";
    }
    CHECK(text.find(L" MACAddress=\"" + value + L"\"") != std::wstring::npos);
}

} // namespace

TEST_CASE("an alert of any resource name is one that the fetch gives back or names in the log, and no other suffers")
{
    ModuleTree tree;
    const ModuleInChild module(tree.ModulePath());
    Log()->Configure(AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
    Log()->Level = 1;
    FuzzRun run(5);
    ULONGLONG ullNames = 0;
    ULONGLONG ullBack = 0;
    ULONGLONG ullTold = 0;
    ULONGLONG ullNext = 0;
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
        const std::vector<std::string> lines = LinesOf(name, nNow);
        std::vector<std::string> expected;
        std::remove_copy_if(lines.begin(), lines.end(), std::back_inserter(expected), IsAlert);
        REQUIRE(TakeTold(tree) == expected);
        REQUIRE_FALSE(records.empty());
        if (IsAlert(lines.front()))
        {
            const std::string shown = lines.front().substr(lines.front().find(");") + 2);
            REQUIRE(records.size() > 1);
            REQUIRE(records.front().Value == 1);
            REQUIRE(records.front().ResourceName == shown.substr(0, shown.find(';')));
            ++ullBack;
        }
        else
        {
            ++ullTold; // its first line is the first one expected of the log
        }
        REQUIRE(records.back().Value == 2); // whatever the name before it was
        REQUIRE(std::strcmp(records.back().ResourceName, "next") == 0);
        ++ullNext;
        for (const VARNEX_ALERT_BUF& record : records)
        {
            const GuardedBytes message(64 * sizeof(wchar_t));
            ComposeAlertMessage(record, message.As<wchar_t>(), 64);
            REQUIRE(wcsnlen(message.As<wchar_t>(), 64) < 64);
        }
        ++ullNames;
    }
    CHECK(ullNames > 20);
    CHECK(ullBack > 0);
    CHECK(ullTold > 0);
    PrintFigure("hostile names: " + std::to_string(ullNames) + " alerts, " + std::to_string(ullBack) + " came back, " +
                std::to_string(ullTold) + " told in the log; " + std::to_string(ullNext) +
                " times the next one came, too");
}

TEST_CASE("a report of any names is a whole document, with a mark for each character that XML has no place for")
{
    ModuleTree tree;
    const ModuleInChild module(tree.ModulePath());
    FuzzRun run(5);
    int nWhole = 0;
    while ((IsLongForm() || run.Cases() < REPORTS) && run.Next())
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
        const bool bWhole = document.Count(L"ServerPKIInformation/*") == 5;
        CHECK(bWhole);
        nWhole += bWhole ? 1 : 0;
        CheckAddress(document, text.Text(), Readable(report.cards[0].wszMACAddress));
    }
    CHECK(run.Cases() > 10);
    PrintFigure("hostile names: " + std::to_string(run.Cases()) + " reports, " + std::to_string(nWhole) +
                " of them whole documents");
}

} // namespace varnex::test
