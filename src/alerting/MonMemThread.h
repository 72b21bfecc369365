#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Watches the utilization of physical memory and of the paging file, in percent, by one policy.
class CMonMemThread final : public CAlertReachPKIThread
{
public:
    CMonMemThread() noexcept;

    DWORD Run() override;
    int UpdateAlertPolicy() override;
};

} // namespace varnex
