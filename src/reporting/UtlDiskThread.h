#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Records each physical disk's throughput, in bytes per second.
class CPKIUtlDiskThread final : public CAlertReachPKIThread
{
public:
    CPKIUtlDiskThread() noexcept;

    DWORD Run() override;
    int UpdateAlertPolicy() override; // nothing to refresh
};

} // namespace varnex
