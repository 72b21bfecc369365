#pragma once

#include "ModuleFiles.h"
#include "common/Handles.h"
#include "varnex/Varnex.h"

namespace varnex::host
{

// The loaded module. Loads and unloads on the thread that owns this object: the module initialises COM on the loading
// thread and uninitialises it on the unloading one, so they must be the same.
class ModuleLibrary
{
public:
    // Throws HostError in words that tell what to do about it.
    explicit ModuleLibrary(const ModuleFiles& files);

    int StartMonitors(unsigned nSelector) const { return m_pfnStart(nSelector); }
    int StopMonitors(unsigned nSelector) const { return m_pfnStop(nSelector); }
    decltype(&GetAlertRecord) Fetch() const noexcept { return m_pfnFetch; }
    void StartReporting() const { m_pfnStartReporting(); }
    void StopReporting() const { m_pfnStopReporting(); }
    HMODULE Handle() const noexcept { return m_module.Get(); }

    // Unloads; true when the module has really left the process. No thread may run its code any more.
    bool Unload();

    // The module stays in the process to its end, because a thread still runs its code.
    void KeepLoaded() noexcept { m_module.Release(); }

private:
    template <class Function>
    Function Export(const char* pszName) const
    {
        return reinterpret_cast<Function>(FindExport(pszName));
    }
    void* FindExport(const char* pszName) const;

    std::filesystem::path m_path;
    UniqueModule m_module;
    decltype(&StartWorkingThread) m_pfnStart = nullptr;
    decltype(&StopWorkingThread) m_pfnStop = nullptr;
    decltype(&GetAlertRecord) m_pfnFetch = nullptr;
    decltype(&StartPKIUtlThread) m_pfnStartReporting = nullptr;
    decltype(&StopPKIUtlThread) m_pfnStopReporting = nullptr;
};

static_assert(!std::is_copy_constructible_v<ModuleLibrary>);

} // namespace varnex::host
