#pragma once

#include <filesystem>
#include <string>

namespace varnex::host
{

// The module and the files that it keeps, by its own rules. Nothing here says that they exist.
struct ModuleFiles
{
    std::filesystem::path module;      // Varnex.dll
    std::filesystem::path config;      // KpmCfg.xml beside it
    std::filesystem::path store;       // LocalAlt.dat, the stored alerts, beside it
    std::filesystem::path log;         // Varnex.log in the folder Logs beside the module's folder
    std::filesystem::path traceFolder; // that folder, where the trace files lie
};

// folder: where Varnex.dll lies; empty for varnexhost's own folder.
ModuleFiles LocateModule(const std::wstring& folder);

bool FileExists(const std::filesystem::path& file) noexcept;

} // namespace varnex::host
