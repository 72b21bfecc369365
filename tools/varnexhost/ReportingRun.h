#pragma once

#include "ModuleLibrary.h"

namespace varnex::host
{

// Utilization reporting, from its start to its end. The end waits until the module's samplers have ended, usually a
// second and at most 15.
class ReportingRun
{
public:
    explicit ReportingRun(const ModuleLibrary& library) : m_library(library) { m_library.StartReporting(); }
    ~ReportingRun() { m_library.StopReporting(); }
    ReportingRun(const ReportingRun&) = delete;
    ReportingRun& operator=(const ReportingRun&) = delete;

private:
    const ModuleLibrary& m_library;
};

} // namespace varnex::host
