#pragma once

#include "TimedMachine.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace varnex::test
{

// A kind of alert: its type and the name of its resource. Each has a count of its own.
using AlertKind = std::pair<int, std::string>;
constexpr std::size_t ALERT_KINDS = 5;

// The stored alerts of one date, as long as no alert of another date came between.
struct AlertSpell
{
    std::string date;
    std::map<AlertKind, int> counts;
};

// In file order. Fails the test at a line that has not its form, or whose local time is not that of its moment.
std::vector<AlertSpell> ReadSpells(const TimedMachine& machine, const TIME_ZONE_INFORMATION& zone = Utc());
std::vector<std::string> DatesOf(const std::vector<AlertSpell>& spells);
// Fails the test unless each spell has exactly that many alerts of each of the five kinds. The number of kinds, of all
// spells, that have it.
int CheckEachKindHas(const std::vector<AlertSpell>& spells, int nAlerts);

// Fails the test unless the configuration holds this date and this count of each kind.
void CheckStored(const TimedMachine& machine, const std::wstring& date, int nCount);
// How often a new day was begun.
std::size_t CountResets(const TimedMachine& machine);
// Fails the test when a line of the log or of a trace file has not its form; an error in the log fails it, too.
void CheckFiles(const TimedMachine& machine);

} // namespace varnex::test
