#include "StandIns.h"

#include "support/ImportTable.h"

#include <winsock2.h>

#include <iphlpapi.h>
#include <objbase.h>
#include <pdh.h>
#include <pdhmsg.h>
#include <wbemidl.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

namespace varnex::bench
{

namespace
{

Machine g_machine;
std::atomic<SleepFunction> g_pfnSleep{nullptr};
std::atomic<DWORD> g_dwTick{1'000'000};

void WINAPI StandInSleep(DWORD dwMilliseconds)
{
    const SleepFunction pfnSleep = g_pfnSleep.load();
    if (pfnSleep != nullptr)
    {
        pfnSleep(dwMilliseconds);
        return;
    }
    ::SleepEx(dwMilliseconds, FALSE);
}

// More than the age up to which a reading is given again.
DWORD WINAPI StandInTick()
{
    return g_dwTick += 300;
}

// --- performance counters ---------------------------------------------------------------------------------------------

template <class Character>
PDH_STATUS WINAPI EnumObjectItems(const Character*, const Character*, const Character* pObject, Character*, LPDWORD,
                                  Character* pInstances, LPDWORD pcchInstances, DWORD, DWORD)
{
    // The two objects that the module knows begin alike, but for their third letter.
    const bool bDisks = pObject[1] == 'h';
    Character* pNext = pInstances;
    for (unsigned i = 0; i <= (bDisks ? g_machine.nDisks : g_machine.nProcessors); ++i)
    {
        const bool bLast = i == (bDisks ? g_machine.nDisks : g_machine.nProcessors);
        const std::string name = bLast ? "_Total" : std::to_string(i) + (bDisks ? " C:" : "");
        for (const char ch : name)
        {
            *pNext++ = static_cast<Character>(ch);
        }
        *pNext++ = Character{};
    }
    *pNext++ = Character{};
    *pcchInstances = static_cast<DWORD>(pNext - pInstances);
    return ERROR_SUCCESS;
}

template <class Character>
PDH_STATUS WINAPI OpenQuery(const Character*, DWORD_PTR, PDH_HQUERY* phQuery)
{
    *phQuery = reinterpret_cast<PDH_HQUERY>(0x1000);
    return ERROR_SUCCESS;
}

template <class Character>
PDH_STATUS WINAPI AddCounter(PDH_HQUERY, const Character*, DWORD_PTR, PDH_HCOUNTER* phCounter)
{
    *phCounter = reinterpret_cast<PDH_HCOUNTER>(0x2000);
    return ERROR_SUCCESS;
}

PDH_STATUS WINAPI Succeed(void*)
{
    return ERROR_SUCCESS;
}

// Never zero, which would be tried again; a percentage, and a throughput under a MB/s.
PDH_STATUS WINAPI GetFormattedValue(PDH_HCOUNTER, DWORD, LPDWORD, PPDH_FMT_COUNTERVALUE pValue)
{
    pValue->CStatus = PDH_CSTATUS_VALID_DATA;
    pValue->doubleValue = 42.0;
    return ERROR_SUCCESS;
}

// --- the interface table ----------------------------------------------------------------------------------------------

DWORD WINAPI GetTable(MIB_IFTABLE* pTable, ULONG* pcbTable, BOOL)
{
    const ULONG cbNeeded = static_cast<ULONG>(sizeof(DWORD) + (g_machine.nCards + 1) * sizeof(MIB_IFROW));
    if (pTable == nullptr || *pcbTable < cbNeeded)
    {
        *pcbTable = cbNeeded;
        return ERROR_INSUFFICIENT_BUFFER;
    }
    pTable->dwNumEntries = g_machine.nCards;
    for (DWORD i = 0; i < g_machine.nCards; ++i)
    {
        pTable->table[i].dwIndex = i + 1;
        pTable->table[i].dwInOctets = 1000;
        pTable->table[i].dwOutOctets = 1000;
    }
    return NO_ERROR;
}

// --- COM --------------------------------------------------------------------------------------------------------------

HRESULT WINAPI CreateInstance(REFCLSID classId, IUnknown* pOuter, DWORD dwContext, REFIID interfaceId, void** ppObject)
{
    if (IsEqualCLSID(classId, CLSID_WbemLocator))
    {
        *ppObject = MakeLocator();
        return S_OK;
    }
    using CreateFunction = decltype(&::CoCreateInstance);
    static const auto pfnReal = reinterpret_cast<CreateFunction>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ole32.dll"), "CoCreateInstance")));
    return pfnReal(classId, pOuter, dwContext, interfaceId, ppObject);
}

HRESULT WINAPI SetProxyBlanket(IUnknown*, DWORD, DWORD, OLECHAR*, DWORD, DWORD, RPC_AUTH_IDENTITY_HANDLE, DWORD)
{
    return S_OK;
}

template <class Function>
void* Address(Function pfnFunction)
{
    return reinterpret_cast<void*>(pfnFunction);
}

} // namespace

void InstallStandIns(HMODULE hModule)
{
    const std::map<std::string, void*> standIns = {
        {"Sleep", Address(StandInSleep)},
        {"GetTickCount", Address(StandInTick)},
        {"PdhEnumObjectItemsA", Address(EnumObjectItems<char>)},
        {"PdhEnumObjectItemsW", Address(EnumObjectItems<wchar_t>)},
        {"PdhOpenQueryA", Address(OpenQuery<char>)},
        {"PdhOpenQueryW", Address(OpenQuery<wchar_t>)},
        {"PdhAddCounterA", Address(AddCounter<char>)},
        {"PdhAddCounterW", Address(AddCounter<wchar_t>)},
        {"PdhCollectQueryData", Address(Succeed)},
        {"PdhRemoveCounter", Address(Succeed)},
        {"PdhCloseQuery", Address(Succeed)},
        {"PdhGetFormattedCounterValue", Address(GetFormattedValue)},
        {"GetIfTable", Address(GetTable)},
        {"CoCreateInstance", Address(CreateInstance)},
        {"CoSetProxyBlanket", Address(SetProxyBlanket)},
    };
    for (const test::Import& import : test::ReadImports(hModule))
    {
        const auto standIn = standIns.find(import.name);
        if (standIn != standIns.end())
        {
            test::WriteImportSlot(import.ppSlot, standIn->second);
        }
    }
}

void SetMachine(const Machine& machine) noexcept
{
    g_machine = machine;
}

const Machine& GetMachine() noexcept
{
    return g_machine;
}

void SetSleep(SleepFunction pfnSleep) noexcept
{
    g_pfnSleep = pfnSleep;
}

} // namespace varnex::bench
