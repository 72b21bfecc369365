#pragma once

#include "support/VirtualClock.h"

namespace varnex::test
{

TIME_ZONE_INFORMATION Utc();
// An hour ahead of UTC, two from the last Sunday of March to the last of October; the jumps are at 01:00 UTC.
TIME_ZONE_INFORMATION CentralEurope();
// Three hours behind UTC, two from the third Sunday of October to the third of February; the jumps are at midnight: to
// 01:00 in October, back to 23:00 of the day before in February.
TIME_ZONE_INFORMATION JumpsAtMidnight();

// The time zone of the module under a virtual clock, whatever the machine's own is. Declare it behind the clock.
class LocalZone
{
public:
    LocalZone(ImportRedirector& redirector, VirtualClock& clock, const TIME_ZONE_INFORMATION& zone);
    LocalZone(const LocalZone&) = delete;
    LocalZone& operator=(const LocalZone&) = delete;

    // Sets the clock to a moment that is given in UTC.
    void SetUtc(const LocalTime& utc);
    // What a clock on the wall shows.
    LocalTime Now() const;

private:
    VirtualClock& m_clock;
    const TIME_ZONE_INFORMATION m_zone;
    RestoredImports m_imports;
};

} // namespace varnex::test
