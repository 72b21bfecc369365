#pragma once

#include "common/Handles.h"

#include <cstddef>
#include <cstdint>

namespace varnex
{

// The named objects by which another process asks for a report and gets it, and the layout of the section between them.
constexpr wchar_t BEGIN_EVENT_NAME[] = L"Global\\{0362D603-1A78-45f6-92F9-A070F876338A}";
constexpr wchar_t FINISH_EVENT_NAME[] = L"Global\\{6E0677E3-DC12-4591-81E3-E63E95E4D023}";
constexpr wchar_t REPORT_SECTION_NAME[] = L"Global\\{EA7425FD-1ED7-4e48-B0CD-EE962879E787}";
constexpr DWORD REPORT_SECTION_BYTES = 32'768;

struct ReportSection
{
    std::uint32_t TotalSamplingNum; // by the asking process: the newest samples that each average covers
    std::uint32_t minSamplingNum;   // by the asking process: the valid samples that an average needs
    std::uint32_t nTextLength;      // by the module: UTF-16 units of the text, which is not terminated
    wchar_t awchText[(REPORT_SECTION_BYTES - 12) / sizeof(wchar_t)];
};
static_assert(sizeof(ReportSection) == REPORT_SECTION_BYTES && offsetof(ReportSection, awchText) == 12);

constexpr std::size_t MAX_REPORT_CHARS = sizeof(ReportSection::awchText) / sizeof(wchar_t);

// Makes the locks of the sample stores, the two events and the section, open to every account; called once at attach.
// The handles are never closed: the objects live until the process ends, after an unload of the module too. Failures
// are logged and end it; always returns 1.
int PrepareSendingMMFAndEvent() noexcept;

// Maps the whole section; null, with the reason as last error, when that cannot be done or when the section is not one
// whose memory can be touched.
UniqueView MapReportSection(HANDLE hSection) noexcept;

} // namespace varnex
