#pragma once

#include "HostUnderAttack.h"
#include "HostileObject.h"

namespace varnex::test
{

// A name of the module's that it cannot have for an object of its own, and what that takes away.
struct LostName
{
    const wchar_t* pwszName;
    HostileObject::Kind own;
    const char* pszLine; // begins the line that tells; null where only the counts' own line does
    bool bReports;
    bool bCounts;
};

// Begin event, finish event, section; the alert file's mutex, the counts'.
inline constexpr LostName LOST_NAMES[] = {
    {BEGIN_NAME, HostileObject::Kind::Event, "PrepareSendingMMFAndEvent -- CreateEvent fail", false, true},
    {FINISH_NAME, HostileObject::Kind::Event, "PrepareSendingMMFAndEvent -- CreateEvent fail", false, true},
    {SECTION_NAME, HostileObject::Kind::Section, "PrepareSendingMMFAndEvent -- CreateFileMapping fail", false, true},
    {ALERT_MUTEX_NAME, HostileObject::Kind::Mutex, "PrePKIAlertInf -- Failed to create event for alert local file ",
     true, true},
    {COUNTS_MUTEX_NAME, HostileObject::Kind::Mutex, nullptr, true, false},
};

// A host's whole life without that name. Everything that does not need it works, and the log tells what failed.
// pszError: what comes behind the line's begin.
void CheckLifeWithout(const LostName& name, const char* pszError);

// A host's whole life while objects of that kind, for those whom the access list names, have every name that its log's
// mutex can have. It does all its work and writes no line.
void CheckLifeWithoutLog(HostileObject::Kind kind, const char* pszAccess);

} // namespace varnex::test
