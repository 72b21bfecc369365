#include "SampleStatus.h"

#include "Text.h"
#include "common/Handles.h"

#include <algorithm>
#include <iterator>

#include <pdhmsg.h>
#include <wbemidl.h>

namespace varnex::host
{

namespace
{

struct KnownStatus
{
    long nStatus;
    const wchar_t* pwszName;
    const wchar_t* pwszText; // for systems that have no text for it
};

#define VARNEX_STATUS(name, text)                                                                                      \
    {                                                                                                                  \
        static_cast<long>(name), L## #name, text                                                                       \
    }

// What the sources answer when they are damaged, off or out of reach.
constexpr KnownStatus KNOWN_STATUSES[] = {
    VARNEX_STATUS(PDH_CSTATUS_NO_MACHINE, L"The computer cannot be reached, or its counters cannot."),
    VARNEX_STATUS(PDH_CSTATUS_NO_INSTANCE, L"The instance is not there."),
    VARNEX_STATUS(PDH_CSTATUS_NO_OBJECT, L"The performance object is not there."),
    VARNEX_STATUS(PDH_CSTATUS_NO_COUNTER, L"The counter is not there."),
    VARNEX_STATUS(PDH_CSTATUS_BAD_COUNTERNAME, L"The counter's path cannot be understood."),
    VARNEX_STATUS(PDH_CSTATUS_INVALID_DATA, L"The counter has no valid data."),
    VARNEX_STATUS(PDH_MORE_DATA, L"There are more names than fit."),
    VARNEX_STATUS(PDH_NO_DATA, L"There is no data."),
    VARNEX_STATUS(PDH_INVALID_DATA, L"The counter has no valid data."),
    VARNEX_STATUS(PDH_INVALID_ARGUMENT, L"An argument is not valid."),
    VARNEX_STATUS(PDH_MEMORY_ALLOCATION_FAILURE, L"There is not enough memory."),
    VARNEX_STATUS(PDH_ACCESS_DENIED, L"Access is denied."),
    VARNEX_STATUS(PDH_CANNOT_READ_NAME_STRINGS, L"The names of the counters cannot be read from the registry."),
    VARNEX_STATUS(PDH_STRING_NOT_FOUND, L"A name of a counter is missing in the registry."),
    VARNEX_STATUS(PDH_FUNCTION_NOT_FOUND, L"A function of the performance data library is missing."),
    VARNEX_STATUS(PDH_NOT_IMPLEMENTED, L"This system does not implement it."),
    VARNEX_STATUS(PDH_CALC_NEGATIVE_VALUE, L"The counter went backwards."),
    VARNEX_STATUS(PDH_CALC_NEGATIVE_DENOMINATOR, L"The counter's clock went backwards."),
    VARNEX_STATUS(WBEM_E_FAILED, L"The call failed."),
    VARNEX_STATUS(WBEM_E_NOT_FOUND, L"The object is not there."),
    VARNEX_STATUS(WBEM_E_ACCESS_DENIED, L"Access is denied."),
    VARNEX_STATUS(WBEM_E_PROVIDER_FAILURE, L"The provider failed."),
    VARNEX_STATUS(WBEM_E_CRITICAL_ERROR, L"A critical error inside WMI."),
    VARNEX_STATUS(WBEM_E_INVALID_NAMESPACE, L"The namespace is not there."),
    VARNEX_STATUS(WBEM_E_INVALID_CLASS, L"The class is not there."),
    VARNEX_STATUS(WBEM_E_PROVIDER_LOAD_FAILURE, L"The provider cannot be loaded."),
    VARNEX_STATUS(WBEM_E_INITIALIZATION_FAILURE, L"WMI could not initialise a part of its own."),
    VARNEX_STATUS(WBEM_E_TRANSPORT_FAILURE, L"The connection to WMI failed."),
    VARNEX_STATUS(WBEM_E_SHUTTING_DOWN, L"WMI is shutting down."),
    VARNEX_STATUS(REGDB_E_CLASSNOTREG, L"The class is not registered."),
};

#undef VARNEX_STATUS

constexpr DWORD LARGEST_PLAIN_ERROR = 0xFFFF;

const KnownStatus* FindStatus(DWORD dwStatus) noexcept
{
    const auto known = std::find_if(std::begin(KNOWN_STATUSES), std::end(KNOWN_STATUSES),
                                    [dwStatus](const KnownStatus& candidate)
                                    { return static_cast<DWORD>(candidate.nStatus) == dwStatus; });
    return known == std::end(KNOWN_STATUSES) ? nullptr : known;
}

// WMI keeps its sentences in a library that no program has loaded.
UniqueModule LoadWmiMessages()
{
    wchar_t wszSystem[MAX_PATH] = L"";
    const UINT cchSystem = GetSystemDirectoryW(wszSystem, MAX_PATH);
    if (cchSystem == 0 || cchSystem >= MAX_PATH)
    {
        return {};
    }
    const std::wstring library = std::wstring(wszSystem) + L"\\wbem\\wmiutils.dll";
    return UniqueModule(LoadLibraryExW(library.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
}

// Empty where the source has no sentence for it.
std::wstring MessageOf(DWORD dwSource, HMODULE hSource, DWORD dwStatus)
{
    wchar_t wszText[512] = L"";
    const DWORD cchText =
        FormatMessageW(dwSource | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK, hSource, dwStatus, 0,
                       wszText, static_cast<DWORD>(std::size(wszText)), nullptr);
    std::wstring text(wszText, cchText);
    text.erase(text.find_last_not_of(L" \r\n") + 1);
    return text;
}

std::wstring SystemSentence(DWORD dwStatus)
{
    // PDH's and WMI's first: their codes have other meanings, or none, among the system's own.
    if (const HMODULE hPdh = GetModuleHandleW(L"pdh.dll"))
    {
        std::wstring text =
            dwStatus > LARGEST_PLAIN_ERROR ? MessageOf(FORMAT_MESSAGE_FROM_HMODULE, hPdh, dwStatus) : L"";
        if (!text.empty())
        {
            return text;
        }
    }
    if (HRESULT_FACILITY(dwStatus) == FACILITY_ITF && (dwStatus & 0x80000000) != 0)
    {
        const UniqueModule wmi = LoadWmiMessages();
        return wmi ? MessageOf(FORMAT_MESSAGE_FROM_HMODULE, wmi.Get(), dwStatus) : L"";
    }
    return MessageOf(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, dwStatus);
}

} // namespace

std::wstring StatusCode(DWORD dwStatus)
{
    if (dwStatus <= LARGEST_PLAIN_ERROR)
    {
        return std::to_wstring(dwStatus);
    }
    const KnownStatus* pKnown = FindStatus(dwStatus);
    return HexText(dwStatus) + (pKnown != nullptr ? L" " + std::wstring(pKnown->pwszName) : L"");
}

std::wstring StatusText(DWORD dwStatus)
{
    const std::wstring text = SystemSentence(dwStatus);
    const KnownStatus* pKnown = FindStatus(dwStatus);
    return text.empty() && pKnown != nullptr ? pKnown->pwszText : text;
}

} // namespace varnex::host
