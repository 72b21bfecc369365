#include "ModuleLibrary.h"

#include "HostError.h"
#include "LoadError.h"
#include "ReportClient.h"
#include "common/Com.h"

namespace varnex::host
{

namespace
{

UniqueModule LoadModule(const ModuleFiles& files)
{
    if (!FileExists(files.module))
    {
        throw HostError(L"There is no " + files.module.wstring() + L". Name the module's folder with --module-dir.");
    }
    if (IsReportServed())
    {
        // Loading clears the report section, under the feet of whoever uses it.
        throw HostError(L"Another process on this machine has Varnex.dll loaded, and there may be only one at a time. "
                        L"End it first; varnexhost report asks it for a report meanwhile.");
    }
    // Before the module's own, which comes from its library entry and then only counts; ends with the process.
    const ThreadApartment apartment(S_OK);
    UniqueModule module(LoadLibraryW(files.module.c_str()));
    if (!module)
    {
        throw HostError(LoadErrorText(files, GetLastError()));
    }
    return module;
}

} // namespace

ModuleLibrary::ModuleLibrary(const ModuleFiles& files)
    : m_path(files.module), m_module(LoadModule(files)), m_pfnStart(Export<decltype(m_pfnStart)>("StartWorkingThread")),
      m_pfnStop(Export<decltype(m_pfnStop)>("StopWorkingThread")),
      m_pfnFetch(Export<decltype(m_pfnFetch)>("GetAlertRecord")),
      m_pfnStartReporting(Export<decltype(m_pfnStartReporting)>("StartPKIUtlThread")),
      m_pfnStopReporting(Export<decltype(m_pfnStopReporting)>("StopPKIUtlThread"))
{
}

bool ModuleLibrary::Unload()
{
    m_module.Reset();
    return GetModuleHandleW(m_path.c_str()) == nullptr;
}

void* ModuleLibrary::FindExport(const char* pszName) const
{
    const auto pfnExport = GetProcAddress(m_module.Get(), pszName);
    if (pfnExport == nullptr)
    {
        throw HostError(m_path.wstring() + L" does not export " + FromUtf8(pszName) +
                        L": it is not the Varnex module, or another version of it.");
    }
    return reinterpret_cast<void*>(pfnExport);
}

} // namespace varnex::host
