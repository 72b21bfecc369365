#pragma once

#include <windows.h>

namespace varnex::host
{

// Ctrl-C, Ctrl-Break, the closing of the console, log-off and shutdown, as one event to wait for. One at a time.
class StopSignal
{
public:
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    // Waits until the operator asks for the end; false when the time has passed first.
    bool WaitFor(DWORD dwMilliseconds) const noexcept;

    // Forgets what was asked so far, so that a second request can be told from the first.
    void Rearm() const noexcept;
};

} // namespace varnex::host
