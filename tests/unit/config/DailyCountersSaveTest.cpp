#include "ConfigFixture.h"
#include "ScriptedDom.h"

#include "config/DailyCounters.h"
#include "config/XmlConfig.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <oleauto.h>

#include <msxml2.h>

#include <climits>

namespace varnex::test
{

namespace
{

constexpr wchar_t TODAY[] = L"2026-01-31";
constexpr wchar_t COUNTS[] = L"KPMConfiguration/PkiAlertNum/";

// The names in the order in which a new day resets them.
constexpr const wchar_t* NODE_NAMES[] = {L"Date", L"CPU", L"PH", L"PF", L"Disk", L"Network"};

const char* const RESET_MESSAGES[] = {
    "[2] - SaveAlertNumIntoLocal -- Reset new date failed, continue reset alert number.",
    "[2] - SaveAlertNumIntoLocal -- Reset CPU alert number to zero failed, continue...",
    "[2] - SaveAlertNumIntoLocal -- Reset physical memory alert number to zero failed, continue...",
    "[2] - SaveAlertNumIntoLocal -- Reset paging file alert number to zero failed, continue...",
    "[2] - SaveAlertNumIntoLocal -- Reset disk alert number to zero failed, continue...",
    "[2] - SaveAlertNumIntoLocal -- Reset network alert number to zero failed, continue...",
};

constexpr char NEW_DAY[] =
    "[2] - SaveAlertNumIntoLocal -- New date coming, reset all alert number and date information.";
constexpr char LOCKED[] = "[4] - SaveAlertNumIntoLocal -- get the control of KPMcfg.xml.";

ConfigBuilder FullDay()
{
    return ConfigBuilder()
        .Set("CPUInterval", 60)
        .SetCounter("Date", "2026-01-31")
        .SetCounter("CPU", "1")
        .SetCounter("PH", "2")
        .SetCounter("PF", "3")
        .SetCounter("Disk", "4")
        .SetCounter("Network", "5");
}

// The stored date and counts, in the order of a reset; "-" for a node that is not there.
using Day = std::vector<std::wstring>;

Day StoredDay(const ConfigFixture& config)
{
    Day day;
    for (const wchar_t* const pwszName : NODE_NAMES)
    {
        day.push_back(config.tree.ConfigNode(std::wstring(COUNTS) + pwszName).value_or(L"-"));
    }
    return day;
}

std::string Input(const std::string& date, int nCounter, const std::string& count)
{
    return Line(4, "SaveAlertNumIntoLocal -- input parameter: date(%s), Alert Type(%s), Alert number(%s)",
                {date, std::to_string(nCounter), count});
}

std::string StoredDate(const std::string& date)
{
    return Line(4, "SaveAlertNumIntoLocal -- Alert Date in configure file(%s).", {date});
}

std::string SameDate(const std::string& given, const std::string& stored)
{
    return Line(4,
                "SaveAlertNumIntoLocal -- input date(%s) is identical with dateInCfgFile(%s), just change related "
                "alert number.",
                {given, stored});
}

std::string Saved(int nCounter, const std::string& count, const std::string& date)
{
    return Line(4, "SaveAlertNumIntoLocal -- Set type(%s) alert number(%s) successfully, date(%s)..",
                {std::to_string(nCounter), count, date});
}

std::string NotSaved(int nCounter, const std::string& count, const std::string& status)
{
    return Line(2, "SaveAlertNumIntoLocal -- Set type(%s) alert number(%s) failed, date(2026-01-31), error code(%s)",
                {std::to_string(nCounter), count, status});
}

std::string SaveRefused(const ConfigFixture& config, const std::string& status)
{
    return Line(1, "SetXMLNodeValue -- DocumentPtr save to file(%s) fail(%s)", {config.FileInLog(), status});
}

} // namespace

TEST_CASE("a count of the stored date is saved, and nothing else changes")
{
    ConfigFixture config;
    struct Saving
    {
        int nCounter;
        Day day;
    };
    for (const Saving& saving : {Saving{1, {TODAY, L"9", L"2", L"3", L"4", L"5"}},
                                 {3, {TODAY, L"1", L"2", L"3", L"9", L"5"}},
                                 {4, {TODAY, L"1", L"2", L"3", L"4", L"9"}},
                                 {5, {TODAY, L"1", L"9", L"3", L"4", L"5"}},
                                 {6, {TODAY, L"1", L"2", L"9", L"4", L"5"}}})
    {
        CAPTURE(saving.nCounter);
        config.tree.WriteConfig(FullDay());
        CHECK(SaveAlertNumIntoLocal(TODAY, saving.nCounter, 9) == 0);
        CHECK(StoredDay(config) == saving.day);
        CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlert/CPUInterval") == L"60");
        CHECK(config.TakeLog() == Lines{Input("2026-01-31", saving.nCounter, "9"), LOCKED, StoredDate("2026-01-31"),
                                        SameDate("2026-01-31", "2026-01-31"),
                                        Saved(saving.nCounter, "9", "2026-01-31")});
    }
}

TEST_CASE("a count of another date, later, earlier or any other text, begins a new day")
{
    ConfigFixture config;
    for (const wchar_t* const pwszDate : {L"2026-02-01", L"2026-01-30", L"any <text> & more", L"2026-1-31"})
    {
        const std::wstring wideDate = pwszDate;
        const std::string date(wideDate.begin(), wideDate.end());
        CAPTURE(date);
        config.tree.WriteConfig(FullDay());
        CHECK(SaveAlertNumIntoLocal(pwszDate, 3, 7) == 0);
        CHECK(StoredDay(config) == Day{pwszDate, L"0", L"0", L"0", L"7", L"0"});
        CHECK(config.TakeLog() ==
              Lines{Input(date, 3, "7"), LOCKED, StoredDate("2026-01-31"), NEW_DAY, Saved(3, "7", date)});
        int nCount = 77;
        CHECK(GetAlertNumFromLocal(pwszDate, 3, &nCount) == 0);
        CHECK(nCount == 7);
        config.TakeLog();
    }
}

TEST_CASE(
    "a save of the day before that comes behind one of the new date begins that day anew: the file holds one date")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    CHECK(SaveAlertNumIntoLocal(L"2026-02-01", 3, 1) == 0);
    CHECK(SaveAlertNumIntoLocal(TODAY, 6, 4) == 0);
    CHECK(StoredDay(config) == Day{TODAY, L"0", L"0", L"4", L"0", L"0"});
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(L"2026-02-01", 3, &nCount) == COUNTERS_FAILED);
    CHECK(nCount == 77);
}

TEST_CASE("a new day is written in a fixed order, the saved count last")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    ScriptedDom dom;
    std::vector<std::wstring> written;
    dom.Replace<HRESULT(IXMLDOMNode*, BSTR)>(DomMethod::PutText,
                                             [&](IXMLDOMNode* pNode, BSTR bstrText)
                                             {
                                                 BSTR bstrName = nullptr;
                                                 pNode->get_nodeName(&bstrName);
                                                 written.push_back(std::wstring(bstrName) + L"=" + bstrText);
                                                 SysFreeString(bstrName);
                                                 return pNode->put_text(bstrText);
                                             });
    CHECK(SaveAlertNumIntoLocal(L"2026-02-01", 5, 3) == 0);
    CHECK(written ==
          std::vector<std::wstring>{L"Date=2026-02-01", L"CPU=0", L"PH=0", L"PF=0", L"Disk=0", L"Network=0", L"PH=3"});
}

TEST_CASE("the date of the same day is not written again, though it differs in case")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay().SetCounter("Date", "31-jan"));
    CHECK(SaveAlertNumIntoLocal(L"31-JAN", 1, 8) == 0);
    CHECK(StoredDay(config) == Day{L"31-jan", L"8", L"2", L"3", L"4", L"5"});
    CHECK(config.TakeLog() == Lines{Input("31-JAN", 1, "8"), LOCKED, StoredDate("31-jan"), SameDate("31-JAN", "31-jan"),
                                    Saved(1, "8", "31-JAN")});
}

TEST_CASE("a file without counts gets the date, the five counts and the saved one")
{
    ConfigFixture config;
    config.tree.WriteConfig(ConfigBuilder().Set("CPUInterval", 60));
    CHECK(SaveAlertNumIntoLocal(TODAY, 6, 2) == 0);
    CHECK(StoredDay(config) == Day{TODAY, L"0", L"0", L"2", L"0", L"0"});
    CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlert/CPUInterval") == L"60");
    CHECK(config.TakeLog() ==
          Lines{Input("2026-01-31", 6, "2"), LOCKED, StoredDate(""), NEW_DAY, Saved(6, "2", "2026-01-31")});
}

TEST_CASE("a count is saved as a signed decimal number")
{
    ConfigFixture config;
    struct CountText
    {
        unsigned nCount;
        const char* pszText;
    };
    for (const CountText& row :
         {CountText{0, "0"}, {1, "1"}, {INT_MAX, "2147483647"}, {0x80000000, "-2147483648"}, {UINT_MAX, "-1"}})
    {
        CAPTURE(row.pszText);
        config.tree.WriteConfig(FullDay());
        config.TakeLog();
        CHECK(SaveAlertNumIntoLocal(TODAY, 1, row.nCount) == 0);
        const std::string text = row.pszText;
        CHECK(StoredDay(config)[1] == std::wstring(text.begin(), text.end()));
        const Lines log = config.TakeLog();
        REQUIRE(log.size() == 5);
        CHECK(log.front() == Input("2026-01-31", 1, text));
        CHECK(log.back() == Saved(1, text, "2026-01-31"));
    }
}

TEST_CASE("a save without a date is refused before the file is looked for")
{
    ConfigFixture config;
    const wchar_t* const pwszEmpty = L"";
    for (const wchar_t* const pwszDate : {static_cast<const wchar_t*>(nullptr), pwszEmpty})
    {
        CHECK(SaveAlertNumIntoLocal(pwszDate, 4, 1) == -1);
        CHECK(config.TakeLog() ==
              Lines{Line(2, "SaveAlertNumIntoLocal -- checking parameters failed, pwszDate(%s), nAlertType(4).",
                         {PointerText(pwszDate)})});
    }
}

TEST_CASE("a save into a missing file is -2, and the file stays missing")
{
    ConfigFixture config;
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 1) == -2);
    CHECK(config.TakeLog() ==
          Lines{Input("2026-01-31", 1, "1"),
                Line(2, "SaveAlertNumIntoLocal -- global configure file(%s) doesn't exist.", {config.FileInLog()})});
    CHECK(config.tree.FilesInBin().empty());
}

TEST_CASE("an unknown counter has no node: the save ends in the node operation's refusal")
{
    ConfigFixture config;
    for (const int nCounter : {2, 0, 7, -1})
    {
        CAPTURE(nCounter);
        config.tree.WriteConfig(FullDay());
        const std::string before = config.FileBytes();
        CHECK(SaveAlertNumIntoLocal(TODAY, nCounter, 9) == E_INVALIDARG);
        CHECK(config.FileBytes() == before);
        CHECK(config.TakeLog() == Lines{Input("2026-01-31", nCounter, "9"), LOCKED, StoredDate("2026-01-31"),
                                        SameDate("2026-01-31", "2026-01-31"), NotSaved(nCounter, "9", "0x80070057")});
    }
}

TEST_CASE("an unknown counter begins a new day all the same")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay().SetCounter("Date", "2026-01-30"));
    CHECK(SaveAlertNumIntoLocal(TODAY, 2, 9) == E_INVALIDARG);
    CHECK(StoredDay(config) == Day{TODAY, L"0", L"0", L"0", L"0", L"0"});
    CHECK(config.TakeLog() == Lines{Input("2026-01-31", 2, "9"), LOCKED, StoredDate("2026-01-30"), NEW_DAY,
                                    NotSaved(2, "9", "0x80070057")});
}

TEST_CASE("a file that does not load: a new day whose every write fails, and -1")
{
    ConfigFixture config;
    const std::string text = "<KPMConfiguration><PkiAlertNum>";
    config.tree.WriteConfigText(text);
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 1) == -1);
    const std::string notRead =
        Line(4, "GetXMLNodeValue -- fail to load XML file(%s)(0x00000000).", {config.FileInLog()});
    const std::string notWritten =
        Line(4, "SetXMLNodeValue -- fail to load XML file(%s)(0x00000000).", {config.FileInLog()});
    Lines expected = {Input("2026-01-31", 1, "1"), LOCKED, notRead, StoredDate(""), NEW_DAY};
    for (const char* const pszMessage : RESET_MESSAGES)
    {
        expected.insert(expected.end(), {notWritten, pszMessage});
    }
    expected.insert(expected.end(), {notWritten, NotSaved(1, "1", "0xffffffff")});
    CHECK(config.TakeLog() == expected);
    CHECK(config.FileBytes() == text);
}

TEST_CASE("a reset that fails stops neither the others nor the saving of the count")
{
    ConfigFixture config;
    for (std::size_t i = 0; i < 6; ++i)
    {
        CAPTURE(RESET_MESSAGES[i]);
        config.tree.WriteConfig(FullDay());
        config.TakeLog();
        config.redirector.FailCall("FlushFileBuffers", i + 1, FailMode::Once, ERROR_DISK_FULL);
        CHECK(SaveAlertNumIntoLocal(L"2026-02-01", 3, 7) == 0);
        Day day = {L"2026-02-01", L"0", L"0", L"0", L"0", L"0"};
        const Day before = {TODAY, L"1", L"2", L"3", L"4", L"5"};
        day[i] = before[i];
        day[4] = L"7";
        CHECK(StoredDay(config) == day);
        CHECK(config.TakeLog() == Lines{Input("2026-02-01", 3, "7"), LOCKED, StoredDate("2026-01-31"), NEW_DAY,
                                        SaveRefused(config, "0x80070070"), RESET_MESSAGES[i],
                                        Saved(3, "7", "2026-02-01")});
    }
}

TEST_CASE("a count that cannot be written ends the save with that result")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    const std::string before = config.FileBytes();
    config.redirector.FailCall("FlushFileBuffers", 1, FailMode::Once, ERROR_DISK_FULL);
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    CHECK(config.FileBytes() == before);
    CHECK(config.TakeLog() == Lines{Input("2026-01-31", 1, "7"), LOCKED, StoredDate("2026-01-31"),
                                    SameDate("2026-01-31", "2026-01-31"), SaveRefused(config, "0x80070070"),
                                    NotSaved(1, "7", "0x80070070")});
}

TEST_CASE("a date that cannot be read ends the save with that result, and no new day begins")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    const std::string before = config.FileBytes();
    ScriptedDom dom;
    dom.FailCall(DomMethod::GetText, 1, FailMode::Once, E_OUTOFMEMORY);
    CHECK(SaveAlertNumIntoLocal(L"2026-02-01", 1, 7) == E_OUTOFMEMORY);
    CHECK(config.FileBytes() == before);
    CHECK(config.TakeLog() ==
          Lines{Input("2026-02-01", 1, "7"), LOCKED,
                "[2] - SaveAlertNumIntoLocal -- get date in configure file failed(0x8007000e), exit..."});
}

TEST_CASE("a save on a thread without COM ends with the failure to make a document")
{
    ConfigFixture config(ConfigFixture::Com::Absent);
    config.tree.WriteConfig(FullDay());
    const std::string before = config.FileBytes();
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == CO_E_NOTINITIALIZED);
    CHECK(config.FileBytes() == before);
    CHECK(config.TakeLog() ==
          Lines{Input("2026-01-31", 1, "7"), LOCKED,
                "[1] - GetXMLNodeValue -- DocumentPtr CreateInstance failed(0x800401f0)",
                "[2] - SaveAlertNumIntoLocal -- get date in configure file failed(0x800401f0), exit..."});
}

} // namespace varnex::test
