#include "ConfigFixture.h"
#include "ScriptedDom.h"

#include "config/DailyCounters.h"
#include "config/XmlConfig.h"

#include <catch2/catch.hpp>

#include <windows.h>

namespace varnex::test
{

namespace
{

constexpr wchar_t TODAY[] = L"2026-01-31";

ConfigBuilder FullDay()
{
    return ConfigBuilder()
        .SetCounter("Date", "2026-01-31")
        .SetCounter("CPU", "11")
        .SetCounter("PH", "15")
        .SetCounter("PF", "16")
        .SetCounter("Disk", "13")
        .SetCounter("Network", "14");
}

std::string Mismatch(const std::string& given, const std::string& stored)
{
    return Line(4, "GetAlertNumFromLocal -- input date(%s) doesn't match configure date(%s), exit...", {given, stored});
}

std::string ReadFailed(int nCount, int nCounter, const std::string& status)
{
    return Line(2,
                "GetAlertNumFromLocal -- get alert number(%s) failed. alert type(%s), date(2026-01-31), error "
                "code(%s).",
                {std::to_string(nCount), std::to_string(nCounter), status});
}

} // namespace

TEST_CASE("each counter is read from its own node")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    for (const auto& [nCounter, nStored] :
         {std::pair{1, 11}, std::pair{3, 13}, std::pair{4, 14}, std::pair{5, 15}, std::pair{6, 16}})
    {
        CAPTURE(nCounter);
        int nCount = 77;
        CHECK(GetAlertNumFromLocal(TODAY, nCounter, &nCount) == 0);
        CHECK(nCount == nStored);
        CHECK(
            config.TakeLog() ==
            Lines{Line(4, "GetAlertNumFromLocal -- get alert number(%s) successful, alert type(%s), date(2026-01-31).",
                       {std::to_string(nStored), std::to_string(nCounter)})});
    }
}

TEST_CASE("a count without a date or a place to go is refused before the file is looked for")
{
    ConfigFixture config;
    int nCount = 77;
    const auto message = [](const void* pDate, const void* pCount, int nCounter)
    {
        return Lines{Line(2,
                          "GetAlertNumFromLocal -- checking parameters failed, pwszDate(%s), pnAlertNum(%s), "
                          "nAlertType(%s).",
                          {PointerText(pDate), PointerText(pCount), std::to_string(nCounter)})};
    };
    CHECK(GetAlertNumFromLocal(nullptr, 3, &nCount) == -1);
    CHECK(config.TakeLog() == message(nullptr, &nCount, 3));
    CHECK(GetAlertNumFromLocal(TODAY, 6, nullptr) == -1);
    CHECK(config.TakeLog() == message(TODAY, nullptr, 6));
    CHECK(nCount == 77);
}

TEST_CASE("a count of a missing file is -2")
{
    ConfigFixture config;
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == -2);
    CHECK(nCount == 77);
    CHECK(config.TakeLog() ==
          Lines{Line(2, "GetAlertNumFromLocal -- global configure file(%s) doesn't exist.", {config.FileInLog()})});
}

TEST_CASE("a count of another date is -1: a later one, an earlier one, and any other text")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    for (const char* const pszDate : {"2026-02-01", "2026-01-30", "2026-1-31", "2026-01-31 ", "2026-01-3", ""})
    {
        CAPTURE(pszDate);
        const std::string given = pszDate;
        int nCount = 77;
        CHECK(GetAlertNumFromLocal(std::wstring(given.begin(), given.end()).c_str(), 1, &nCount) == -1);
        CHECK(nCount == 77);
        CHECK(config.TakeLog() == Lines{Mismatch(given, "2026-01-31")});
    }
}

TEST_CASE("a count of a file without a date is -1, whether the node is empty or missing")
{
    ConfigFixture config;
    for (const ConfigBuilder& builder : {ConfigBuilder().SetCounter("Date", "").SetCounter("CPU", "5"),
                                         ConfigBuilder().SetCounter("CPU", "5"), ConfigBuilder().Set("CPUInterval", 1)})
    {
        config.tree.WriteConfig(builder);
        int nCount = 77;
        CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == -1);
        CHECK(nCount == 77);
        CHECK(config.TakeLog() == Lines{Mismatch("2026-01-31", "")});
    }
}

TEST_CASE("dates are compared without case, and are not parsed")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay().SetCounter("Date", "31-Jan, any text"));
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(L"31-JAN, ANY TEXT", 1, &nCount) == 0);
    CHECK(nCount == 11);
}

TEST_CASE("an empty date is not the date of a file that has none, or that does not load")
{
    ConfigFixture config;
    for (const std::string& text :
         {ConfigBuilder().SetCounter("CPU", "5").Build(),
          ConfigBuilder().SetCounter("Date", "").SetCounter("CPU", "5").Build(), std::string("<KPMConfiguration>")})
    {
        CAPTURE(text);
        config.tree.WriteConfigText(text);
        int nCount = 77;
        CHECK(GetAlertNumFromLocal(L"", 1, &nCount) == -1);
        CHECK(nCount == 77);
        CHECK(config.TakeLog().back() == Mismatch("", ""));
    }
}

TEST_CASE("31 characters of the stored date count")
{
    ConfigFixture config;
    const std::wstring date(31, L'd');
    int nCount = 77;
    config.tree.WriteConfig(FullDay().SetCounter("Date", std::string(31, 'd')));
    CHECK(GetAlertNumFromLocal(date.c_str(), 1, &nCount) == 0);
    config.tree.WriteConfig(FullDay().SetCounter("Date", std::string(31, 'd') + "more"));
    CHECK(GetAlertNumFromLocal(date.c_str(), 1, &nCount) == 0);
    CHECK(GetAlertNumFromLocal((date + L"more").c_str(), 1, &nCount) == -1);
}

TEST_CASE("a count is the integer that the first 15 characters of its text begin with")
{
    ConfigFixture config;
    struct CountText
    {
        std::string text;
        int nCount;
    };
    for (const CountText& row : {CountText{"0", 0},
                                 {"12", 12},
                                 {"-1", -1},
                                 {"abc", 0},
                                 {"", 0},
                                 {"7 of 9", 7},
                                 {std::string(14, '0') + "9", 9},
                                 {std::string(15, '0') + "9", 0}})
    {
        CAPTURE(row.text);
        config.tree.WriteConfig(FullDay().SetCounter("CPU", row.text));
        int nCount = 77;
        CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == 0);
        CHECK(nCount == row.nCount);
    }
}

TEST_CASE("a count without a node is 100, and the message has the caller's number")
{
    ConfigFixture config;
    config.tree.WriteConfig(ConfigBuilder().SetCounter("Date", "2026-01-31").SetCounter("CPU", "1"));
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(TODAY, 4, &nCount) == 100);
    CHECK(nCount == 77);
    CHECK(config.TakeLog() == Lines{ReadFailed(77, 4, "0x00000064")});
}

TEST_CASE("an unknown counter has no node: the node operation's refusal is the result")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    for (const int nCounter : {2, 0, 7, -1})
    {
        CAPTURE(nCounter);
        int nCount = 77;
        CHECK(GetAlertNumFromLocal(TODAY, nCounter, &nCount) == E_INVALIDARG);
        CHECK(nCount == 77);
        CHECK(config.TakeLog() == Lines{ReadFailed(77, nCounter, "0x80070057")});
    }
}

TEST_CASE("a count of a file that does not load is -1, as of another date")
{
    ConfigFixture config;
    config.tree.WriteConfigText("<KPMConfiguration>");
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == -1);
    CHECK(nCount == 77);
    CHECK(config.TakeLog() ==
          Lines{Line(4, "GetXMLNodeValue -- fail to load XML file(%s)(0x00000000).", {config.FileInLog()}),
                Mismatch("2026-01-31", "")});
}

TEST_CASE("a date that cannot be read ends the reading of a count with that result")
{
    ConfigFixture config(ConfigFixture::Com::Absent);
    config.tree.WriteConfig(FullDay());
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == CO_E_NOTINITIALIZED);
    CHECK(nCount == 77);
    CHECK(config.TakeLog() ==
          Lines{"[1] - GetXMLNodeValue -- DocumentPtr CreateInstance failed(0x800401f0)",
                "[2] - GetAlertNumFromLocal -- get date in configure file failed(0x800401f0), exit..."});
}

TEST_CASE("a count that cannot be read ends the reading with that result")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    ScriptedDom dom;
    dom.FailCall(DomMethod::GetText, 2, FailMode::Once, E_OUTOFMEMORY); // the first one is the date's
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == E_OUTOFMEMORY);
    CHECK(nCount == 77);
    CHECK(config.TakeLog() == Lines{ReadFailed(77, 1, "0x8007000e")});
}

} // namespace varnex::test
