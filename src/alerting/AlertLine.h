#pragma once

#include "alerting/AlertRecord.h"

#include <cstddef>

namespace varnex
{

// One line of the alert file:
//   AlertType;Threshold;Value;HappenTime(local time);ResourceName;Extra
// Nothing escapes a ";" in a name.
constexpr std::size_t ALERT_LINE_CHARS = 1024;

// The line of a record with its closing "\n", cut to the buffer.
void FormatAlertLine(const VARNEX_ALERT_BUF& record, char (&szLine)[ALERT_LINE_CHARS]) noexcept;

// Reads a line back; numbers are taken whatever their range. Returns -1, with part of the record written perhaps, for
// null arguments and a line without five separators; else 0.
int ParseAlertLine(const char* pszLine, VARNEX_ALERT_BUF* pRecord) noexcept;

} // namespace varnex
