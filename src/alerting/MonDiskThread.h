#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Watches the throughput of each physical disk, in whole MB/s. The daily limit and the reported flag are one for all
// disks.
class CMonDiskThread final : public CAlertReachPKIThread
{
public:
    CMonDiskThread() noexcept;

    DWORD Run() override;
    int UpdateAlertPolicy() override;
};

} // namespace varnex
