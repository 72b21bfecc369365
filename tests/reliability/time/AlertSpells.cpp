#include "AlertSpells.h"

#include "support/AlertLines.h"
#include "support/LogFile.h"

#include <catch2/catch.hpp>

#include <cstdio>
#include <regex>
#include <sstream>

namespace varnex::test
{

namespace
{

std::string LocalText(long long llUnix, const TIME_ZONE_INFORMATION& zone)
{
    const auto ullUnits = static_cast<ULONGLONG>((llUnix + 11'644'473'600) * 10'000'000);
    const FILETIME time{static_cast<DWORD>(ullUnits), static_cast<DWORD>(ullUnits >> 32)};
    SYSTEMTIME utc{};
    SYSTEMTIME local{};
    FileTimeToSystemTime(&time, &utc);
    SystemTimeToTzSpecificLocalTime(&zone, &utc, &local);
    char szText[32];
    std::snprintf(szText, sizeof szText, "%04u-%02u-%02u %02u:%02u:%02u", local.wYear, local.wMonth, local.wDay,
                  local.wHour, local.wMinute, local.wSecond);
    return szText;
}

// Every line behind the header is a stamp and numbers; each ends in CR LF.
void CheckTrace(const std::string& bytes)
{
    static const std::regex line("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}(\t[0-9]+)+\r");
    std::istringstream stream(bytes);
    std::string text;
    std::getline(stream, text);
    CHECK_THAT(text, Catch::StartsWith("Time\t"));
    while (std::getline(stream, text))
    {
        CHECK(std::regex_match(text, line));
    }
    CHECK((bytes.empty() || bytes.back() == '\n'));
}

} // namespace

std::vector<AlertSpell> ReadSpells(const TimedMachine& machine, const TIME_ZONE_INFORMATION& zone)
{
    std::vector<AlertSpell> spells;
    for (const AlertLine& line : ReadAlertLines(machine.tree))
    {
        CHECK(line.localTime == LocalText(line.llHappenTime, zone));
        const std::string date = line.localTime.substr(0, 10);
        if (spells.empty() || spells.back().date != date)
        {
            spells.push_back({date, {}});
        }
        ++spells.back().counts[{line.nType, line.resource}];
    }
    return spells;
}

std::vector<std::string> DatesOf(const std::vector<AlertSpell>& spells)
{
    std::vector<std::string> dates;
    for (const AlertSpell& spell : spells)
    {
        dates.push_back(spell.date);
    }
    return dates;
}

int CheckEachKindHas(const std::vector<AlertSpell>& spells, int nAlerts)
{
    int nKinds = 0;
    for (const AlertSpell& spell : spells)
    {
        CAPTURE(spell.date);
        CHECK(spell.counts.size() == ALERT_KINDS);
        for (const auto& [kind, nCount] : spell.counts)
        {
            CAPTURE(kind.first, kind.second);
            CHECK(nCount == nAlerts);
            nKinds += nCount == nAlerts ? 1 : 0;
        }
    }
    return nKinds;
}

void CheckStored(const TimedMachine& machine, const std::wstring& date, int nCount)
{
    CHECK(machine.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/Date") == date);
    for (const wchar_t* pwszName : {L"CPU", L"PH", L"PF", L"Disk", L"Network"})
    {
        CHECK(machine.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/" + std::wstring(pwszName)) ==
              std::to_wstring(nCount));
    }
}

std::size_t CountResets(const TimedMachine& machine)
{
    return LogFile(machine.tree).CountContaining("New date coming");
}

void CheckFiles(const TimedMachine& machine)
{
    const LogFile log(machine.tree);
    CHECK(log.CountOfLevel(1) <= 1);                        // the report thread's end
    CHECK(log.RawLines().size() <= log.Lines().size() + 3); // the empty lines of the load
    for (const wchar_t* pwszName : {L"CPUUtil.log", L"MemoryUtil.log", L"DiskUtil.log", L"NetworkUtil.log"})
    {
        if (FileExists(machine.tree.InLogs(pwszName)))
        {
            CheckTrace(ReadFileBytes(machine.tree.InLogs(pwszName)));
        }
    }
}

} // namespace varnex::test
