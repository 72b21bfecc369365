#pragma once

namespace varnex
{

// Hands an alert to a short-lived thread that stores it, so that a monitor never waits on the file.
// pszResourceName: ANSI, null or empty for none, cut to 383 bytes at a whole character. nHappenTime: seconds since
// 1970-01-01 UTC.
// Returns 0 when the thread was started (what the store says is logged there), -1 when there is no memory or no
// thread: then the alert is lost.
int SendAlertToAllServer(int nAlertType, int nThreshold, int nValue, const char* pszResourceName,
                         int nHappenTime) noexcept;

// The body of that thread; owns the VARNEX_ALERT_BUF that it is given. Ends with the store's result, or with
// 0xFFFFFFFF for a null record.
unsigned __stdcall WriteAlertRecord_Thread(void* pRecord) noexcept;

} // namespace varnex
