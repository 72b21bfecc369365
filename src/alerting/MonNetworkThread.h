#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Watches the utilization of each Ethernet adapter, in percent of its link speed. The daily limit and the reported flag
// are one for all adapters.
class CMonNetworkThread final : public CAlertReachPKIThread
{
public:
    CMonNetworkThread() noexcept;

    DWORD Run() override;
    int UpdateAlertPolicy() override;
};

} // namespace varnex
