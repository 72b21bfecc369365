#pragma once

#include "ConfigAdvice.h"

#include <string>
#include <vector>

namespace varnex::host
{

struct ConfigReport
{
    std::wstring file;
    ConfigTree tree;
    ConfigReading reading; // empty when the file does not load
    std::vector<ConfigFinding> findings;

    bool HasProblems() const noexcept;
};

// For people.
std::wstring ConfigReportAsTable(const ConfigReport& report);

// For programs: one object.
std::wstring ConfigReportAsJson(const ConfigReport& report);

} // namespace varnex::host
