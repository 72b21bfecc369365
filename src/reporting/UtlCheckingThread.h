#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// Waits for another process's request, builds the report and hands it over in the report section.
class CPKIUtlCheckingThread final : public CAlertReachPKIThread
{
public:
    CPKIUtlCheckingThread() noexcept;

    DWORD Run() override;
    int UpdateAlertPolicy() override; // nothing to read
};

} // namespace varnex
