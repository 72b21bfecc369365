#pragma once

#include "entry/AlertReachPKIThread.h"

namespace varnex
{

// What a monitor's policy is read by.
struct AlertPolicy
{
    int nAlertType;
    const wchar_t* pwszClass; // as the log names it
    int nDefaultInterval;     // seconds
    int nDefaultThreshold;    // percent, or MB/s for disks
    int nDefaultSamplingAmount;
    int nDefaultMaxAlertNum;
};

// Reads the four values from the configuration into the monitor. A value of 0 or -1 is not configured: it is logged
// and the default applies. Any other value is taken as it is, negative ones and percentages above 100 included. The
// calling thread must have initialised COM. Throws std::bad_alloc.
void ReadAlertPolicy(CAlertReachPKIThread& monitor, const AlertPolicy& policy);

} // namespace varnex
