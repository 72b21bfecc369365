#pragma once

namespace varnex
{

// The number of alerts raised today, per kind, kept in KpmCfg.xml under one date, so that the daily limit survives
// restarts and holds across processes. The calling thread must have initialised COM.

// Which count.
enum AlertCounter : int
{
    ALERT_COUNTER_CPU = 1,
    ALERT_COUNTER_DISK = 3,
    ALERT_COUNTER_NETWORK = 4,
    ALERT_COUNTER_PHYSICAL_MEMORY = 5,
    ALERT_COUNTER_PAGING_FILE = 6,
};

constexpr int COUNTERS_FAILED = -1; // bad argument, or (reading) the counts belong to another date
constexpr int COUNTERS_NO_FILE = -2;
constexpr int COUNTERS_NOT_LOCKED = -3;

// Reads one count of a date ("2026-01-31"; compared without case, never parsed). nCounter: an AlertCounter. Takes no
// lock. Returns 0 with *pnCount set; or, with *pnCount unchanged, COUNTERS_FAILED; COUNTERS_NO_FILE; or the result of
// the node's reading (see ReadXMLNodeValue): a file in use for longer than a second is a sharing error.
int GetAlertNumFromLocal(const wchar_t* pwszDate, int nCounter, int* pnCount);

// Stores one count of a date. nCounter: an AlertCounter. A date other than the stored one begins a new day: all counts
// are set to 0 first, but never because the stored date could not be read.
// Holds the named mutex of the counts, for which it waits at most 90 seconds.
// Returns 0; COUNTERS_FAILED; COUNTERS_NO_FILE; COUNTERS_NOT_LOCKED; or the result of the date's reading or the
// count's writing (see SetXMLNodeValue).
int SaveAlertNumIntoLocal(const wchar_t* pwszDate, int nCounter, unsigned nCount);

} // namespace varnex
