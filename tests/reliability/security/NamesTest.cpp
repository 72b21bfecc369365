#include "HostUnderAttack.h"
#include "HostileObject.h"

#include "support/TestText.h"

#include <catch2/catch.hpp>

// Names of the module that something else has already.

namespace varnex::test
{

namespace
{

using Kind = HostileObject::Kind;

constexpr char TAKEN[] = "(6"; // ERROR_INVALID_HANDLE: an object of another kind has the name

struct NameRule
{
    const wchar_t* pwszName;
    Kind own;
    const char* pszLine; // begins the line that tells
    bool bReports;
    bool bCounts;
};

const NameRule RULES[] = {
    {BEGIN_NAME, Kind::Event, "PrepareSendingMMFAndEvent -- CreateEvent fail", false, true},
    {FINISH_NAME, Kind::Event, "PrepareSendingMMFAndEvent -- CreateEvent fail", false, true},
    {SECTION_NAME, Kind::Section, "PrepareSendingMMFAndEvent -- CreateFileMapping fail", false, true},
    {ALERT_MUTEX_NAME, Kind::Mutex, "PrePKIAlertInf -- Failed to create event for alert local file ", true, true},
    {COUNTS_MUTEX_NAME, Kind::Mutex, nullptr, true, false},
};

bool CanOpenAll()
{
    return UniqueHandle(OpenEventW(SYNCHRONIZE, FALSE, BEGIN_NAME)) &&
           UniqueHandle(OpenEventW(SYNCHRONIZE, FALSE, FINISH_NAME)) &&
           UniqueHandle(OpenFileMappingW(FILE_MAP_READ, FALSE, SECTION_NAME));
}

// A host's whole life beside the object. Everything that does not need the name works.
void CheckLife(const NameRule& rule)
{
    HostUnderAttack host;
    host.Begin();
    CHECK(host.AwaitAlerts());
    CHECK(host.FetchAll() == 2);
    if (rule.bReports)
    {
        CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    }
    else
    {
        CHECK_FALSE(CanOpenAll());
    }
    host.End();
    if (rule.pszLine != nullptr)
    {
        CHECK_THAT(host.Log(), HasLineContaining(std::string(rule.pszLine) + TAKEN));
    }
    CHECK((host.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/PH") == L"1") == rule.bCounts);
    CHECK((host.Log().CountContaining("Failed to get KPMcfg.xml control") > 0) == !rule.bCounts);
}

void CheckLifeBeside(Kind kind, const NameRule& rule)
{
    if (kind == rule.own)
    {
        return;
    }
    CAPTURE(Utf8FromWide(rule.pwszName), TextOf(kind));
    const HostileObject taken(kind, rule.pwszName);
    CheckLife(rule);
}

} // namespace

TEST_CASE("an event's or the section's name that an object of another kind has takes reports away, and nothing else")
{
    const std::size_t nRule = GENERATE(0, 1, 2);
    const Kind kind = GENERATE(from_range(std::begin(HostileObject::KINDS), std::end(HostileObject::KINDS)));
    CheckLifeBeside(kind, RULES[nRule]);
}

TEST_CASE("a mutex's name that an object of another kind has takes that mutex away, and nothing else of the host's")
{
    const std::size_t nRule = GENERATE(3, 4);
    const Kind kind = GENERATE(from_range(std::begin(HostileObject::KINDS), std::end(HostileObject::KINDS)));
    CheckLifeBeside(kind, RULES[nRule]);
}

TEST_CASE("a host whose log's name an object of another kind has writes no line and does all its work")
{
    const Kind kind = GENERATE(Kind::Event, Kind::Section);
    CAPTURE(TextOf(kind));
    std::vector<HostileObject> taken;
    for (const std::wstring& name : LogMutexNames(10))
    {
        taken.emplace_back(kind, name);
    }
    HostUnderAttack host;
    host.Begin();
    CHECK(host.AwaitAlerts());
    CHECK(host.FetchAll() == 2);
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    host.End();
    CHECK(host.Log().Bytes() == "\r\n\r\n");
    CHECK(host.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/PH") == L"1");
}

TEST_CASE("a host beside which nobody does anything has all of it")
{
    HostUnderAttack host;
    host.Begin();
    CHECK(host.AwaitAlerts());
    CHECK(host.FetchAll() == 2);
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    CHECK(host.CanLog());
    host.End();
    CHECK(host.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/PH") == L"1");
    CHECK(host.LongestWaitMs() >= 60'000); // the waits are the module's own
    CHECK(host.Log().CountContaining("PrepareSendingMMFAndEvent") == 0);
}

} // namespace varnex::test
