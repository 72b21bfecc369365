// A DLL whose entry makes the calls that a load and an unload of the module cannot do without, and no other. Like the
// module's own, its events and its section stay open after an unload.

#include <windows.h>

#include <objbase.h>

#include <iphlpapi.h>
#include <pdh.h>

#include <cstring>

namespace
{

HANDLE g_hLogMutex;
HANDLE g_hAlertMutex;
CRITICAL_SECTION g_aLocks[4];

// Into "Logs" beside the module's directory.
void MarkLoad(HMODULE hModule)
{
    char szPath[MAX_PATH] = "";
    GetModuleFileNameA(hModule, szPath, MAX_PATH);
    *std::strrchr(szPath, '\\') = '\0';
    std::strcpy(std::strrchr(szPath, '\\'), "\\Logs");
    char szLog[MAX_PATH];
    std::strcat(std::strcpy(szLog, szPath), "\\Floor.log");
    for (int i = 0; i < 2; ++i)
    {
        CreateDirectoryA(szPath, nullptr);
        WIN32_FILE_ATTRIBUTE_DATA attributes;
        GetFileAttributesExA(szLog, GetFileExInfoStandard, &attributes);
        const HANDLE hFile = CreateFileA(szLog, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                         OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        DWORD cbWritten;
        WriteFile(hFile, "\r\n", 2, &cbWritten, nullptr);
        CloseHandle(hFile);
    }
}

void MakeLogMutex()
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    char szDirectory[260];
    ExpandEnvironmentStringsA("%TEMP%", szDirectory, sizeof szDirectory);
    g_hLogMutex = CreateMutexA(nullptr, FALSE, "SPLogger_FloorModule");
}

void MakeSharedObjects()
{
    SECURITY_DESCRIPTOR descriptor;
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES access = {sizeof access, &descriptor, FALSE};
    g_hAlertMutex = CreateMutexA(&access, FALSE, "Global\\{A2C32408-95FF-4183-8208-FLOORMODULE0}");
    for (CRITICAL_SECTION& lock : g_aLocks)
    {
        InitializeCriticalSection(&lock);
    }
    CreateEventW(&access, TRUE, FALSE, L"Global\\{0362D603-1A78-45f6-92F9-FLOORMODULE0}");
    CreateEventW(&access, TRUE, FALSE, L"Global\\{6E0677E3-DC12-4591-81E3-FLOORMODULE0}");
    const HANDLE hSection = CreateFileMappingW(INVALID_HANDLE_VALUE, &access, PAGE_READWRITE, 0, 32768,
                                               L"Global\\{EA7425FD-1ED7-4e48-B0CD-FLOORMODULE0}");
    void* const pView = MapViewOfFile(hSection, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 32768);
    std::memset(pView, 0, 32768);
    UnmapViewOfFile(pView);
}

void Detach(HMODULE hModule)
{
    char szPath[MAX_PATH];
    GetModuleFileNameA(hModule, szPath, MAX_PATH);
    CoUninitialize();
    for (CRITICAL_SECTION& lock : g_aLocks)
    {
        EnterCriticalSection(&lock);
        LeaveCriticalSection(&lock);
        DeleteCriticalSection(&lock);
    }
    CloseHandle(g_hAlertMutex);
    CloseHandle(g_hLogMutex);
}

} // namespace

// Keeps the libraries among the imports that the module has: the loader resolves them for both.
extern "C" __declspec(dllexport) void KeepImports()
{
    DWORD cbTable = 0;
    PdhCloseQuery(nullptr);
    GetIfTable(nullptr, &cbTable, FALSE);
    RegCloseKey(nullptr);
    SysFreeString(nullptr);
}

extern "C" BOOL WINAPI DllMain(HINSTANCE hModule, DWORD dwReason, LPVOID)
{
    if (dwReason == DLL_PROCESS_ATTACH)
    {
        MakeLogMutex();
        MarkLoad(hModule);
        CoInitialize(nullptr);
        MakeSharedObjects();
    }
    else if (dwReason == DLL_PROCESS_DETACH)
    {
        Detach(hModule);
    }
    return TRUE;
}
