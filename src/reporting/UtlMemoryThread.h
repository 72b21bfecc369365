#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Records the utilization of physical memory and of the paging file, in percent.
class CPKIUtlMemoryThread final : public CAlertReachPKIThread
{
public:
    CPKIUtlMemoryThread() noexcept;

    DWORD Run() override;
    int UpdateAlertPolicy() override; // nothing to refresh
};

} // namespace varnex
