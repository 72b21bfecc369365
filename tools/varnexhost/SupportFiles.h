#pragma once

#include "ModuleFiles.h"

#include <filesystem>
#include <vector>

namespace varnex::host
{

// The files of the module that belong to a support case: configuration, alert file, log with its rolled-over
// predecessors, trace files. No two have the same name.
struct SupportFile
{
    std::filesystem::path path;
    bool bStore = false; // guarded by the alert file's mutex
};

// Those that there may be by their names; a log that was rolled over only when it is there.
std::vector<SupportFile> ListSupportFiles(const ModuleFiles& files);

} // namespace varnex::host
