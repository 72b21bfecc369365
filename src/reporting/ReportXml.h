#pragma once

#include "common/Com.h"

namespace varnex
{

struct UtilizationReport;

// Writes a report as an XML document without a declaration; docs/interfaces.md has its form. Returns the text, or null
// for a null report and a document that could not be built (logged). The calling thread has initialised COM.
UniqueBstr CreateKAPKIUtilizationXML(const UtilizationReport* pReport) noexcept;

} // namespace varnex
