#include "StopSignal.h"

#include "HostError.h"
#include "Text.h"

namespace varnex::host
{

namespace
{

// Made once and never closed: the system calls the handler on a thread of its own, at any moment up to the end.
HANDLE g_hStop = nullptr;

BOOL WINAPI HandleConsoleEvent(DWORD dwEvent)
{
    SetEvent(g_hStop);
    if (dwEvent != CTRL_C_EVENT && dwEvent != CTRL_BREAK_EVENT)
    {
        // The system ends the process as soon as this returns; staying here leaves the main thread the seconds that
        // the system grants for an orderly end.
        Sleep(INFINITE);
    }
    return TRUE;
}

} // namespace

StopSignal::StopSignal()
{
    if (g_hStop == nullptr)
    {
        g_hStop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    }
    if (g_hStop == nullptr || !SetConsoleCtrlHandler(HandleConsoleEvent, TRUE))
    {
        throw HostError(L"Ctrl-C cannot be handled: " + SystemErrorText(GetLastError()));
    }
}

StopSignal::~StopSignal()
{
    SetConsoleCtrlHandler(HandleConsoleEvent, FALSE);
}

bool StopSignal::WaitFor(DWORD dwMilliseconds) const noexcept
{
    return WaitForSingleObject(g_hStop, dwMilliseconds) == WAIT_OBJECT_0;
}

void StopSignal::Rearm() const noexcept
{
    ResetEvent(g_hStop);
}

} // namespace varnex::host
