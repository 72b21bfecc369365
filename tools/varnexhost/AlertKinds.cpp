#include "AlertKinds.h"

#include "varnex/Varnex.h"

#include <algorithm>
#include <iterator>

namespace varnex::host
{

namespace
{

struct AlertKind
{
    unsigned nType;
    const wchar_t* pwszName;
    const wchar_t* pwszUnit;
    const char* pszMonitor; // null where no monitor is started by this type
};

constexpr AlertKind ALERT_KINDS[] = {
    {VARNEX_ALERT_CPU, L"CPU", L"%", "cpu"},
    {VARNEX_ALERT_MEMORY, L"memory", L"%", "memory"},
    {VARNEX_ALERT_DISK, L"disk", L"MB/s", "disk"},
    {VARNEX_ALERT_NETWORK, L"network", L"%", "network"},
    {VARNEX_ALERT_PAGING_FILE, L"paging file", L"%", nullptr},
    {VARNEX_ALERT_ALL, L"all resources", L"", "all"},
};

const AlertKind* FindKind(unsigned nAlertType)
{
    const auto found = std::find_if(std::begin(ALERT_KINDS), std::end(ALERT_KINDS),
                                    [nAlertType](const AlertKind& kind) { return kind.nType == nAlertType; });
    return found == std::end(ALERT_KINDS) ? nullptr : found;
}

bool Holds(const std::vector<unsigned>& selectors, unsigned nSelector)
{
    return std::find(selectors.begin(), selectors.end(), nSelector) != selectors.end();
}

} // namespace

std::wstring AlertKindName(unsigned nAlertType)
{
    const AlertKind* pKind = FindKind(nAlertType);
    return pKind != nullptr ? pKind->pwszName : L"type " + std::to_wstring(nAlertType);
}

std::wstring AlertAmount(unsigned nAlertType, int nAmount)
{
    const std::wstring unit = AlertUnit(nAlertType);
    return std::to_wstring(nAmount) + (unit.empty() ? L"" : L" " + unit);
}

std::wstring AlertUnit(unsigned nAlertType)
{
    const AlertKind* pKind = FindKind(nAlertType);
    return pKind != nullptr ? pKind->pwszUnit : L"";
}

std::vector<std::string> MonitorNames()
{
    std::vector<std::string> names;
    for (const AlertKind& kind : ALERT_KINDS)
    {
        if (kind.pszMonitor != nullptr)
        {
            names.emplace_back(kind.pszMonitor);
        }
    }
    return names;
}

std::vector<unsigned> MonitorSelectors(const std::vector<std::string>& names)
{
    std::vector<unsigned> selectors;
    for (const AlertKind& kind : ALERT_KINDS)
    {
        if (kind.pszMonitor != nullptr && std::find(names.begin(), names.end(), kind.pszMonitor) != names.end())
        {
            selectors.push_back(kind.nType);
        }
    }
    return Holds(selectors, VARNEX_ALERT_ALL) ? std::vector<unsigned>{VARNEX_ALERT_ALL} : selectors;
}

unsigned MonitorCount(const std::vector<unsigned>& selectors)
{
    return Holds(selectors, VARNEX_ALERT_ALL) ? 4 : static_cast<unsigned>(selectors.size());
}

std::wstring SelectorNames(const std::vector<unsigned>& selectors)
{
    std::wstring names;
    for (const unsigned nSelector : selectors)
    {
        names += (names.empty() ? L"" : L", ") + AlertKindName(nSelector);
    }
    return names;
}

} // namespace varnex::host
