#pragma once

#include "diag/ExceptionBarrier.h"
#include "entry/AlertReachPKIThread.h"

#include <windows.h>

namespace varnex
{

// What the four samplers share: one cycle a minute until they are asked to stop, and their end. A sampler's own part is
// its cycle: sample, store, trace.

// Cycles with a minute's wait after each, in steps of a second that look at the keep-running flag. An exception in a
// cycle is logged, and the cycle goes to its wait.
template <class Cycle>
void RunSamplerCycles(const CAlertReachPKIThread& worker, const char* pszSampler, Cycle&& cycle) noexcept
{
    constexpr int WAIT_SECONDS = 60;
    while (worker.IsRunning())
    {
        StopExceptions(pszSampler, false, [&cycle] {
            cycle();
            return true;
        });
        for (int nSecond = 0; nSecond < WAIT_SECONDS && worker.IsRunning(); ++nSecond)
        {
            Sleep(1000);
        }
    }
}

// Empties the worker's slot and frees the worker, its thread handle with it. A worker whose slot was taken away is
// about to be ended by force; its object stays.
template <class Worker>
void DismantleWorker(Worker* pWorker, WorkerSlot& slot) noexcept
{
    if (slot.Withdraw(pWorker))
    {
        delete pWorker;
    }
}

} // namespace varnex
