// The names by which the disk monitor asks for counters, in each system language.

#include "MonitoredModule.h"

#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <cstdlib>

namespace varnex::test
{

namespace
{

struct LanguageFacts
{
    LANGID wLanguage;
    const char* pszName; // as each-language.sh asks for it
    const wchar_t* pwszObject;
    const wchar_t* pwszCounter;
};

const std::vector<LanguageFacts>& AllLanguages()
{
    static const std::vector<LanguageFacts> languages = {
        {MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_UK), "en", L"PhysicalDisk", L"Disk Bytes/sec"},
        {MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN_SWISS), "de", L"physikalischer Datentr\x00E4ger",
         L"Bytes auf Festplatte/Sek"},
        {MAKELANGID(LANG_SPANISH, SUBLANG_SPANISH_MODERN), "es", L"DiscoF\x00EDsico", L"Bytes de s."},
        {MAKELANGID(LANG_FRENCH, SUBLANG_FRENCH), "fr", L"Disque physique", L"Octets disque/s"},
        {MAKELANGID(LANG_ITALIAN, SUBLANG_ITALIAN), "it", L"Disco fisico", L"Byte da/a disco/sec"},
        {MAKELANGID(LANG_PORTUGUESE, SUBLANG_PORTUGUESE_BRAZILIAN), "pt", L"PhysicalDisk", L"Bytes de disco/s"},
        {MAKELANGID(LANG_DUTCH, SUBLANG_DUTCH), "nl", L"PhysicalDisk", L"Disk Bytes/sec"}, // no names of its own
    };
    return languages;
}

// A machine that knows its disk by these names only.
void CheckNames(MonitoredModule& host, const LanguageFacts& facts)
{
    const std::wstring path = std::wstring(L"\\") + facts.pwszObject + L"(0 C:)\\" + facts.pwszCounter;
    host.pdh.SetInstances(facts.pwszObject, {L"0 C:", L"_Total"});
    host.pdh.SetValue(path, 60 * 1048576.0);
    host.Start(VARNEX_ALERT_DISK);
    host.clock.Advance(1);
    CHECK(host.Alerts() == Lines{"3;50;60;0 C:"});
    for (const PdhCall& call : host.pdh.Calls())
    {
        if (call.function == "PdhAddCounterA")
        {
            CHECK(call.subject == path);
        }
    }
    CHECK(host.pdh.CountCalls("PdhAddCounterA") == 1);
    host.StopAndEnd(VARNEX_ALERT_DISK);
}

ConfigBuilder OnePassJudged()
{
    return ConfigBuilder().SetPolicy("Disk", 60, 50, 1, 5).SetCounter("Date", "");
}

} // namespace

TEST_CASE("disks are asked for by the names of the system's language")
{
    const LanguageFacts facts = GENERATE(from_range(AllLanguages()));
    INFO(facts.pszName);
    MonitoredModule host(OnePassJudged());
    host.imports.Replace<decltype(::GetSystemDefaultLangID)>("GetSystemDefaultLangID",
                                                             [wLanguage = facts.wLanguage] { return wLanguage; });
    CheckNames(host, facts);
}

// Nothing stands in for the system's language here: each-language.sh runs this case in a process of each language.
TEST_CASE("real language: disks are asked for by the names of this process's system language", "[.]")
{
    const char* pszWanted = std::getenv("VARNEX_LANGUAGE");
    REQUIRE(pszWanted != nullptr);
    for (const LanguageFacts& facts : AllLanguages())
    {
        if (std::string(facts.pszName) == pszWanted)
        {
            REQUIRE(PRIMARYLANGID(GetSystemDefaultLangID()) == PRIMARYLANGID(facts.wLanguage));
            MonitoredModule host(OnePassJudged());
            CheckNames(host, facts);
            return;
        }
    }
    FAIL("no such language: " << pszWanted);
}

} // namespace varnex::test
