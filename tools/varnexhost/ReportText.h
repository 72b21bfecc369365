#pragma once

#include <string>

namespace varnex::host
{

// The report's XML in other forms. Each throws HostError when the text is not a report.

// For people: a line for each processor, memory kind, disk and adapter.
std::wstring ReportAsTable(const std::wstring& xml);

// For programs: one object, with the report's own names.
std::wstring ReportAsJson(const std::wstring& xml);

} // namespace varnex::host
