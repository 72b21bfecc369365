#include "HostUnderAttack.h"
#include "HostileObject.h"

#include "support/TestText.h"

#include <catch2/catch.hpp>

// Objects of the right kind that somebody made first, with an access list that keeps the module out.

namespace varnex::test
{

namespace
{

using Kind = HostileObject::Kind;

struct AccessRule
{
    const wchar_t* pwszName;
    Kind kind;
    const char* pszLine;
    bool bReports;
    bool bCounts;
};

const AccessRule RULES[] = {
    {BEGIN_NAME, Kind::Event, "PrepareSendingMMFAndEvent -- CreateEvent fail(5)", false, true},
    {FINISH_NAME, Kind::Event, "PrepareSendingMMFAndEvent -- CreateEvent fail(5)", false, true},
    {SECTION_NAME, Kind::Section, "PrepareSendingMMFAndEvent -- CreateFileMapping fail(5)", false, true},
    {ALERT_MUTEX_NAME, Kind::Mutex, "PrePKIAlertInf -- Failed to create event for alert local file (5)", true, true},
    {COUNTS_MUTEX_NAME, Kind::Mutex, "Failed to get KPMcfg.xml control", true, false},
};

} // namespace

TEST_CASE("an object that nobody may use takes away what it is for, and nothing else of the host's")
{
    const std::size_t nRule = GENERATE(range(std::size_t{0}, std::size(RULES)));
    const AccessRule& rule = RULES[nRule];
    CAPTURE(nRule);
    const HostileObject closed(rule.kind, rule.pwszName, "D:");
    HostUnderAttack host;
    host.Begin();
    CHECK(host.AwaitAlerts());
    CHECK(host.FetchAll() == 2);
    if (rule.bReports)
    {
        CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    }
    host.End();
    CHECK_THAT(host.Log(), HasLineContaining(rule.pszLine));
    CHECK((host.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/PH") == L"1") == rule.bCounts);
}

TEST_CASE("a section that may only be read is refused, and reports are not made")
{
    const HostileObject section(Kind::Section, SECTION_NAME, "D:(A;;GR;;;WD)");
    HostUnderAttack host;
    host.Begin();
    CHECK(host.AwaitAlerts());
    host.End();
    CHECK_THAT(host.Log(), HasLineContaining("PrepareSendingMMFAndEvent -- CreateFileMapping fail(5)"));
}

} // namespace varnex::test
