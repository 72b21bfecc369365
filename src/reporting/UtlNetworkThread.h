#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Records each Ethernet adapter's traffic and utilization.
class CPKIUtlNetworkThread final : public CAlertReachPKIThread
{
public:
    CPKIUtlNetworkThread() noexcept;

    DWORD Run() override;
    // Refreshes the card list.
    int UpdateAlertPolicy() override;
};

} // namespace varnex
