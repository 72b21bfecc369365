#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Records each Ethernet adapter's traffic and utilization. Its thread enters COM's multithreaded apartment.
class CPKIUtlNetworkThread final : public CAlertReachPKIThread
{
public:
    CPKIUtlNetworkThread() noexcept;

    // 1 after a stop, with the object freed; -1 when COM refuses: the object then keeps its slot. No adapter, or a card
    // list that cannot be read, ends nothing.
    DWORD Run() override;
    // Refreshes the card list, under the network store's lock.
    int UpdateAlertPolicy() override;
};

} // namespace varnex
