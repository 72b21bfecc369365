#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Records each processor's utilization, in percent.
class CPKIUtlCPUThread final : public CAlertReachPKIThread
{
public:
    CPKIUtlCPUThread() noexcept;

    DWORD Run() override;
    // Takes over the configured log level.
    int UpdateAlertPolicy() override;
};

} // namespace varnex
