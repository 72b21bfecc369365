#pragma once

#include "alerting/AlertRecord.h"

#include <vector>

namespace varnex
{

// The alert file beside the module. Writers and the fetch take turns by a named mutex, also across processes; each
// waits for it at most 60 seconds and then goes on without it.

// Makes the mutex; the library entry calls this at attach and closes the handle at detach. Returns 0 or -1 (logged).
int PrePKIAlertInf() noexcept;

// Appends one alert. pszResourceName and pszExtra: ANSI, null for none; cut to the record's fields at a whole
// character.
// Returns 0 when the line was written, else -1. A nHappenTime of 0 is refused without a message.
int SaveLocalAlertInfo(int nAlertType, int nThreshold, int nValue, const char* pszResourceName, int nHappenTime,
                       const char* pszExtra);

// Takes alerts out of the file, oldest first, and appends them to records: as many as nMaxCount and one more, so none
// for a negative one. Expired and unreadable lines before the last one taken go too; what was not read stays, in a file
// rewritten as a whole.
// The move of that file over the other waits up to a second for a program that has one of them open.
// Returns 0; -1 when a file cannot be opened; or the system error of a rewrite that failed, and then the alert file
// is as it was and the records must not be handed out.
int ReadLocalAlertInf(std::vector<VARNEX_ALERT_BUF>& records, int nMaxCount);

} // namespace varnex
