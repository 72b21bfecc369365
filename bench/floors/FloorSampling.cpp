#include "FloorSampling.h"

#include <winsock2.h>

#include <windows.h>

#include <iphlpapi.h>
#include <objbase.h>
#include <oleauto.h>
#include <pdh.h>
#include <wbemidl.h>

#include <cstdlib>
#include <initializer_list>

namespace varnex::bench
{

namespace
{

template <class Function>
Function Find(HMODULE hModule, const char* pszName) noexcept
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(hModule, pszName)));
}

BSTR g_bstrSpace = SysAllocString(L"ROOT\\CIMV2");
BSTR g_bstrLanguage = SysAllocString(L"WQL");
BSTR g_bstrQuery = SysAllocString(L"SELECT * FROM Win32_NetworkAdapter where adapterTypeId = 0");

void ReadTraffic() noexcept
{
    MIB_IFTABLE small{};
    ULONG cbTable = 8;
    GetIfTable(&small, &cbTable, FALSE);
    void* const pTable = std::calloc(1, cbTable);
    GetIfTable(static_cast<MIB_IFTABLE*>(pTable), &cbTable, FALSE);
    std::free(pTable);
}

void ReadAdapter(IWbemClassObject& adapter) noexcept
{
    for (const wchar_t* pwszName : {L"MACAddress", L"InterfaceIndex", L"Speed", L"Name"})
    {
        VARIANT value;
        VariantInit(&value);
        adapter.Get(pwszName, 0, &value, nullptr, nullptr);
        VariantClear(&value);
    }
    adapter.Release();
}

} // namespace

void SampleCpuTimes() noexcept
{
    const HMODULE hKernel = LoadLibraryA("Kernel32.dll"); // stays loaded once more, as the module leaves it
    const auto pfnTimes = Find<BOOL(WINAPI*)(LPFILETIME, LPFILETIME, LPFILETIME)>(hKernel, "GetSystemTimes");
    GetTickCount();
    FILETIME idle;
    FILETIME kernel;
    FILETIME user;
    pfnTimes(&idle, &kernel, &user);
    GetTickCount();
}

void SampleMemory() noexcept
{
    const HMODULE hKernel = LoadLibraryA("kernel32.dll");
    MEMORYSTATUSEX status;
    status.dwLength = sizeof status;
    Find<BOOL(WINAPI*)(LPMEMORYSTATUSEX)>(hKernel, "GlobalMemoryStatusEx")(&status);
    FreeLibrary(hKernel);
}

void SampleProcessor() noexcept
{
    for (const char* pszName : {"Processor", "% Processor Time"})
    {
        wchar_t wszName[256];
        GetSystemDefaultLangID();
        MultiByteToWideChar(CP_ACP, 0, pszName, -1, wszName, 256);
    }
    PDH_HQUERY hQuery;
    PDH_HCOUNTER hCounter;
    PDH_FMT_COUNTERVALUE value;
    PdhOpenQueryW(nullptr, 0, &hQuery);
    PdhAddCounterW(hQuery, L"\\Processor(0)\\% Processor Time", 0, &hCounter);
    PdhCollectQueryData(hQuery);
    PdhCollectQueryData(hQuery);
    PdhGetFormattedCounterValue(hCounter, PDH_FMT_DOUBLE, nullptr, &value);
    PdhGetFormattedCounterValue(hCounter, PDH_FMT_DOUBLE, nullptr, &value);
    PdhRemoveCounter(hCounter);
    PdhCloseQuery(hQuery);
}

void ConvertDiskName() noexcept
{
    char szName[128];
    WideCharToMultiByte(CP_ACP, 0, L"0 C:", -1, szName, sizeof szName, nullptr, nullptr);
}

void SampleDisk() noexcept
{
    GetSystemDefaultLangID(); // for the object's name
    GetSystemDefaultLangID(); // for the counter's
    PDH_HQUERY hQuery;
    PDH_HCOUNTER hCounter;
    PdhOpenQueryA(nullptr, 0, &hQuery);
    PdhAddCounterA(hQuery, "\\PhysicalDisk(0 C:)\\Disk Bytes/sec", 0, &hCounter);
    auto* const pValue = static_cast<PDH_FMT_COUNTERVALUE*>(GlobalAlloc(GPTR, sizeof(PDH_FMT_COUNTERVALUE)));
    PdhCollectQueryData(hQuery);
    Sleep(100);
    PdhCollectQueryData(hQuery);
    PdhGetFormattedCounterValue(hCounter, PDH_FMT_DOUBLE, nullptr, pValue);
    PdhRemoveCounter(hCounter);
    PdhCloseQuery(hQuery);
}

void ListAdapters() noexcept
{
    IWbemLocator* pLocator = nullptr;
    IWbemServices* pServices = nullptr;
    IEnumWbemClassObject* pEnumerator = nullptr;
    CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                     reinterpret_cast<void**>(&pLocator));
    pLocator->ConnectServer(g_bstrSpace, nullptr, nullptr, nullptr, 0, nullptr, nullptr, &pServices);
    CoSetProxyBlanket(pServices, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                      RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    pServices->ExecQuery(g_bstrLanguage, g_bstrQuery, WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr,
                         &pEnumerator);
    IWbemClassObject* pAdapter = nullptr;
    ULONG nReturned = 0;
    while (pEnumerator->Next(static_cast<LONG>(WBEM_INFINITE), 1, &pAdapter, &nReturned) == WBEM_S_NO_ERROR)
    {
        ReadAdapter(*pAdapter);
    }
    pEnumerator->Release();
    pServices->Release();
    pLocator->Release();
}

void SampleTraffic() noexcept
{
    ReadTraffic();
    Sleep(1000);
    ReadTraffic();
}

void LookAtTraceSwitch() noexcept
{
    HKEY hKey = nullptr;
    wchar_t wszDirectory[130];
    DWORD cbDirectory = sizeof wszDirectory;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion", 0, KEY_READ, &hKey);
    RegQueryValueExW(hKey, L"ProgramFilesDir (x86)", nullptr, nullptr, reinterpret_cast<BYTE*>(wszDirectory),
                     &cbDirectory);
    RegCloseKey(hKey);
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quellmark\\QM Tessary Backup\\Kaltrop\\Trace", 0,
                      KEY_READ | KEY_WOW64_64KEY, &hKey) == ERROR_SUCCESS)
    {
        DWORD dwSwitch = 0;
        DWORD cbSwitch = sizeof dwSwitch;
        RegQueryValueExW(hKey, L"OutputUtilToFile", nullptr, nullptr, reinterpret_cast<BYTE*>(&dwSwitch), &cbSwitch);
        RegCloseKey(hKey);
    }
}

} // namespace varnex::bench
