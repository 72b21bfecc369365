#pragma once

#include <cstdint>
#include <string>

namespace varnex::host
{

struct ReportRequest
{
    std::uint32_t nSpan = 60;   // the newest one-minute samples that each average covers
    std::uint32_t nMinimum = 1; // fewer valid samples than this give an average of 0
    unsigned nTimeoutSeconds = 30;
};

// Asks the process that has the module loaded and returns its report, an XML text. Throws HostError when there is no
// such process, when it does not answer within the time-out, or when it could make no report.
std::wstring AskForReport(const ReportRequest& request);

// True while some process has the module loaded, and so serves the names by which a report is asked for.
bool IsReportServed() noexcept;

} // namespace varnex::host
