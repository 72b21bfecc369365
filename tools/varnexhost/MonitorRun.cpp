#include "MonitorRun.h"

#include "AlertKinds.h"
#include "HostError.h"
#include "ModuleThreads.h"

#include <cstdint>

namespace varnex::host
{

namespace
{

constexpr std::uint64_t END_BOUND_MS = 60000;
constexpr DWORD END_POLL_MS = 50;

} // namespace

MonitorRun::MonitorRun(ModuleLibrary& library, const StopSignal& stop) noexcept : m_library(library), m_stop(stop) {}

MonitorRun::~MonitorRun()
{
    StopAndWait();
}

void MonitorRun::Start(const std::vector<unsigned>& selectors)
{
    m_started.reserve(selectors.size());
    for (const unsigned nSelector : selectors)
    {
        if (m_library.StartMonitors(nSelector) != VARNEX_OK)
        {
            throw HostError(L"The module does not know how to watch " + AlertKindName(nSelector) + L".");
        }
        m_started.push_back(nSelector);
    }
}

bool MonitorRun::StopAndWait() noexcept
{
    if (m_started.empty())
    {
        return true;
    }
    for (const unsigned nSelector : m_started)
    {
        m_library.StopMonitors(nSelector);
    }
    m_started.clear();
    const bool bEnded = WaitForThreads();
    if (!bEnded)
    {
        m_library.KeepLoaded();
    }
    return bEnded;
}

bool MonitorRun::WaitForThreads() const noexcept
{
    m_stop.Rearm();
    const std::uint64_t nBegin = GetTickCount64();
    while (!FindModuleThreads(m_library.Handle()).NoneLeft())
    {
        if (GetTickCount64() - nBegin >= END_BOUND_MS || m_stop.WaitFor(END_POLL_MS))
        {
            return false;
        }
    }
    return true;
}

} // namespace varnex::host
