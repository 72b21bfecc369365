#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Records each physical disk's throughput, in bytes per second. Its thread does without COM.
class CPKIUtlDiskThread final : public CAlertReachPKIThread
{
public:
    CPKIUtlDiskThread() noexcept;

    // 1 after a stop, with the object freed; and 1 when there is no disk's name or no memory: the object then keeps its
    // slot.
    DWORD Run() override;
    int UpdateAlertPolicy() override; // nothing to refresh
};

} // namespace varnex
