#include "SampleFault.h"

#include "SampleStatus.h"

#include <iterator>
#include <utility>

#include <pdhmsg.h>
#include <wbemidl.h>

namespace varnex::host
{

namespace
{

constexpr wchar_t REBUILD_COUNTERS[] =
    L"Rebuild the performance counters: run lodctr /R as administrator, then restart "
    L"the host agent. lodctr /Q shows which are disabled.";
constexpr wchar_t ENABLE_DISK_COUNTERS[] = L"Switch the disk counters on: run lodctr /E:PerfDisk as administrator; if "
                                           L"that does not help, lodctr /R. Then restart the host agent. lodctr /Q "
                                           L"shows which are disabled.";
constexpr wchar_t ENABLE_PROCESSOR_COUNTERS[] = L"Switch the processor counters on: run lodctr /E:PerfOS as "
                                                L"administrator; if that does not help, lodctr /R. Then restart the "
                                                L"host agent. lodctr /Q shows which are disabled.";
constexpr wchar_t GRANT_COUNTERS[] =
    L"This account may not read performance counters: run varnexhost as administrator, "
    L"and the host agent as a service.";
constexpr wchar_t NO_COUNTERS_HERE[] = L"This system has no such counters, and there is nothing to repair. (Wine has "
                                       L"none; a pdh.dll beside the program can bring them.)";
constexpr wchar_t TOO_MANY_NAMES[] = L"Nothing is damaged: the names of all instances take more room than the module "
                                     L"has for them, 2048 characters.";
constexpr wchar_t REPAIR_WMI[] = L"Check WMI: sc query winmgmt tells whether its service runs, winmgmt "
                                 L"/verifyrepository whether its repository is consistent; if it is not, run winmgmt "
                                 L"/salvagerepository as administrator. Then restart the host agent.";
constexpr wchar_t GRANT_WMI[] =
    L"This account may not ask WMI: run varnexhost as administrator, and the host agent as a "
    L"service.";

const wchar_t* CounterRemedy(CounterRole object, DWORD dwStatus) noexcept
{
    switch (dwStatus)
    {
    case static_cast<DWORD>(PDH_ACCESS_DENIED):
    case ERROR_ACCESS_DENIED:
        return GRANT_COUNTERS;
    case static_cast<DWORD>(PDH_NOT_IMPLEMENTED):
        return NO_COUNTERS_HERE;
    case static_cast<DWORD>(PDH_MORE_DATA):
        return TOO_MANY_NAMES;
    case static_cast<DWORD>(PDH_CSTATUS_NO_OBJECT):
        return object == IDS_PHYSICAL_DISK_OBJECT ? ENABLE_DISK_COUNTERS : ENABLE_PROCESSOR_COUNTERS;
    default:
        return REBUILD_COUNTERS;
    }
}

std::wstring LanguageName(WORD wLanguage)
{
    wchar_t wszName[80] = L"";
    const LCID nLocale = MAKELCID(MAKELANGID(wLanguage, SUBLANG_DEFAULT), SORT_DEFAULT);
    GetLocaleInfoW(nLocale, LOCALE_SENGLANGUAGE, wszName, static_cast<int>(std::size(wszName)));
    return wszName;
}

// Counters that are asked for in one language and named in another are not found, and nothing is damaged.
std::wstring LanguageRule()
{
    return L" The module asked by the " + LanguageName(CounterLanguage()) +
           L" names: it takes those of the system locale, where that is German, Spanish, French, Italian or "
           L"Portuguese, else the English ones. Windows names its counters in its display language, which is " +
           LanguageName(PRIMARYLANGID(GetUserDefaultUILanguage())) +
           L" for this account. Where the two differ, lodctr does not help: make them the same, one of these six "
           L"(intl.cpl), and "
           L"restart the machine.";
}

bool MayBeWrongName(DWORD dwStatus) noexcept
{
    return dwStatus == static_cast<DWORD>(PDH_CSTATUS_NO_OBJECT) ||
           dwStatus == static_cast<DWORD>(PDH_CSTATUS_NO_COUNTER);
}

const wchar_t* PlainRemedy(PlainFault kind) noexcept
{
    switch (kind)
    {
    case PlainFault::InterfaceTable:
        return L"Check that the service of the network store interface runs: sc query nsi. Then restart the host "
               L"agent.";
    case PlainFault::ProcessorTimes:
    case PlainFault::MemoryStatus:
        break;
    }
    return L"The system itself does not answer; there is nothing to repair in the module. Restart the machine, and "
           L"open "
           L"a support case with varnexhost collect if that does not help.";
}

} // namespace

SampleFault PlainFaultOf(PlainFault kind, std::wstring what, DWORD dwError)
{
    return {std::move(what), StatusCode(dwError), StatusText(dwError), PlainRemedy(kind)};
}

SampleFault CounterFault(CounterRole object, std::wstring what, DWORD dwStatus)
{
    return {std::move(what), StatusCode(dwStatus), StatusText(dwStatus),
            CounterRemedy(object, dwStatus) + (MayBeWrongName(dwStatus) ? LanguageRule() : L"")};
}

SampleFault EmptyCounterFault(CounterRole object, std::wstring what)
{
    return UncodedFault(std::move(what), CounterRemedy(object, static_cast<DWORD>(PDH_CSTATUS_NO_OBJECT)));
}

SampleFault AdapterListFault(std::wstring what, HRESULT nResult)
{
    const bool bDenied = nResult == static_cast<HRESULT>(WBEM_E_ACCESS_DENIED) || nResult == E_ACCESSDENIED;
    const auto dwStatus = static_cast<DWORD>(nResult);
    return {std::move(what), StatusCode(dwStatus), StatusText(dwStatus), bDenied ? GRANT_WMI : REPAIR_WMI};
}

SampleFault UncodedFault(std::wstring what, std::wstring remedy)
{
    return {std::move(what), L"", L"", std::move(remedy)};
}

} // namespace varnex::host
