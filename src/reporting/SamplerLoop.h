#pragma once

#include "common/LocalTime.h"
#include "diag/ExceptionBarrier.h"
#include "entry/AlertReachPKIThread.h"

#include <windows.h>

namespace varnex
{

// What the four samplers share: one cycle a minute until they are asked to stop. A sampler's own part is its cycle:
// sample, store, trace.

// Cycles with a minute's wait after each, in steps of a second that look at the keep-running flag. An exception in a
// cycle is logged, and the cycle goes to its wait.
template <class Cycle>
void RunSamplerCycles(const CAlertReachPKIThread& worker, const char* pszSampler, Cycle&& cycle) noexcept
{
    constexpr int WAIT_SECONDS = 60;
    while (worker.IsRunning())
    {
        StopExceptions(pszSampler, false,
                       [&cycle]
                       {
                           cycle();
                           return true;
                       });
        for (int nSecond = 0; nSecond < WAIT_SECONDS && worker.IsRunning(); ++nSecond)
        {
            Sleep(1000);
        }
    }
}

// The opening of a cycle, but for the network sampler's, which refreshes last: the refresh, then the time stamp.
inline void OpenCycle(CAlertReachPKIThread& worker, wchar_t (&wszTime)[TIME_CHARS])
{
    worker.UpdateAlertPolicy();
    FormatLocalTimeW(SecondsNow(), wszTime);
}

} // namespace varnex
