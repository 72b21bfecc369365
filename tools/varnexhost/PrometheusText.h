#pragma once

#include <cstdint>
#include <string>

namespace varnex::host
{

// What a report does not say of itself.
struct ReportCircumstances
{
    std::int64_t nUnixSeconds = 0;  // when it came
    std::uint32_t nSpanSeconds = 0; // what each average covers
};

// The report in Prometheus' text exposition format, in base units. Throws HostError when the text is not a report.
std::string ReportAsPrometheus(const std::wstring& xml, const ReportCircumstances& circumstances);

} // namespace varnex::host
