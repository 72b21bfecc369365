#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Waits for another process's request, builds the report and hands it over in the report section. Its thread is a
// single-threaded apartment of COM.
class CPKIUtlCheckingThread final : public CAlertReachPKIThread
{
public:
    CPKIUtlCheckingThread() noexcept;

    // 1 after a stop, with the object freed; 0 when COM refuses: the object then keeps its slot. To be stopped it needs
    // the begin event besides: it looks at its flag when that is set.
    DWORD Run() override;
    int UpdateAlertPolicy() override; // nothing to read
};

} // namespace varnex
