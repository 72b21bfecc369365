#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Records each processor's utilization, in percent. Its thread enters COM's multithreaded apartment.
class CPKIUtlCPUThread final : public CAlertReachPKIThread
{
public:
    CPKIUtlCPUThread() noexcept;

    // 1 after a stop, with the object freed. -1 when COM refuses, and 1, with COM left initialised, when there is no
    // processor's name or no memory: the object then keeps its slot.
    DWORD Run() override;
    // Takes over the configured log level.
    int UpdateAlertPolicy() override;
};

} // namespace varnex
