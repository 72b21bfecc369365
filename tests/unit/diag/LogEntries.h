#pragma once

#include "diag/SPLogger.h"

#include <vector>

namespace varnex::test
{

struct NarrowEntry
{
    int nLevel;
    void (SPLogger::*pfnLog)(const char* pszFormat, ...) noexcept;
};

struct WideEntry
{
    int nLevel;
    void (SPLogger::*pfnLog)(const wchar_t* pwszFormat, ...) noexcept;
};

// The logger's eight entries, levels ascending.
const std::vector<NarrowEntry>& NarrowEntries();
const std::vector<WideEntry>& WideEntries();

// Logs "line <level> narrow" and "line <level> wide" through all of them, level by level.
void LogThroughEveryEntry(SPLogger& logger);

} // namespace varnex::test
