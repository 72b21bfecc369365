#include "SampleModule.h"

#include <windows.h>

namespace
{

HANDLE g_hMutex = nullptr;
volatile LONG g_bRunning = 0;
volatile LONG g_nSeconds = 0;

DWORD WINAPI CountSeconds(void*)
{
    while (g_bRunning != 0)
    {
        Sleep(1000);
        InterlockedIncrement(&g_nSeconds);
    }
    return 1;
}

} // namespace

extern "C"
{
    __declspec(dllexport) unsigned long SampleTick()
    {
        return GetTickCount();
    }

    __declspec(dllexport) void SampleSleep(unsigned long dwMilliseconds)
    {
        Sleep(dwMilliseconds);
    }

    __declspec(dllexport) int SampleStart()
    {
        g_bRunning = 1;
        const HANDLE hThread = CreateThread(nullptr, 0, CountSeconds, nullptr, CREATE_SUSPENDED, nullptr);
        if (hThread == nullptr)
        {
            return 0;
        }
        ResumeThread(hThread);
        CloseHandle(hThread);
        return 1;
    }

    __declspec(dllexport) void SampleStop()
    {
        g_bRunning = 0;
    }

    __declspec(dllexport) int SampleSeconds()
    {
        return g_nSeconds;
    }

    __declspec(dllexport) unsigned long SampleCreateEvent()
    {
        const HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        if (hEvent == nullptr)
        {
            return GetLastError();
        }
        CloseHandle(hEvent);
        return ERROR_SUCCESS;
    }
}

// The module cannot be attached without its mutex.
BOOL WINAPI DllMain(HINSTANCE, DWORD dwReason, LPVOID)
{
    if (dwReason == DLL_PROCESS_ATTACH)
    {
        g_hMutex = CreateMutexW(nullptr, FALSE, nullptr);
        return g_hMutex != nullptr;
    }
    if (dwReason == DLL_PROCESS_DETACH)
    {
        OutputDebugStringW(L"detached");
        if (g_hMutex != nullptr)
        {
            CloseHandle(g_hMutex);
        }
    }
    return TRUE;
}
