#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Records the utilization of physical memory and of the paging file, in percent. Its thread does without COM.
class CPKIUtlMemoryThread final : public CAlertReachPKIThread
{
public:
    CPKIUtlMemoryThread() noexcept;

    // 1 after a stop, with the object freed.
    DWORD Run() override;
    int UpdateAlertPolicy() override; // nothing to refresh
};

} // namespace varnex
