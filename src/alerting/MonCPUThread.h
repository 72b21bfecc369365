#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Watches the whole machine's processor utilization, in percent.
class CMonCPUThread final : public CAlertReachPKIThread
{
public:
    CMonCPUThread() noexcept;

    DWORD Run() override;
    // Also takes over the configured log level; no other monitor does.
    int UpdateAlertPolicy() override;
};

} // namespace varnex
