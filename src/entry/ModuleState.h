#pragma once

#include "entry/AlertReachPKIThread.h"

#include <windows.h>

namespace varnex
{

// Process-wide state; all of it is zero at load, before any code runs.

// The module's own handle, set at process attach.
extern HMODULE g_hModule;

// The named mutex of the alert file; null when it could not be made. Made at attach, closed at detach.
extern HANDLE g_hAlertFileMutex;

// The four alert monitors, side by side in the order of their alert types: a type less one is the index.
constexpr int MONITORS = 4;
extern WorkerSlot g_aMonitorSlots[MONITORS];

inline WorkerSlot& g_pMonCPUThread = g_aMonitorSlots[0];
inline WorkerSlot& g_pMonMemThread = g_aMonitorSlots[1];
inline WorkerSlot& g_pMonDiskThread = g_aMonitorSlots[2];
inline WorkerSlot& g_pMonNetworkThread = g_aMonitorSlots[3];

// The workers of utilization reporting: four samplers and the report thread, in the order in which they are started.
constexpr int UTILIZATION_WORKERS = 5;
extern WorkerSlot g_aUtilizationSlots[UTILIZATION_WORKERS];

inline WorkerSlot& g_pUtlCPUThread = g_aUtilizationSlots[0];
inline WorkerSlot& g_pUtlMemoryThread = g_aUtilizationSlots[1];
inline WorkerSlot& g_pUtlDiskThread = g_aUtilizationSlots[2];
inline WorkerSlot& g_pUtlNetworkThread = g_aUtilizationSlots[3];
inline WorkerSlot& g_pUtlCheckingThread = g_aUtilizationSlots[4];

} // namespace varnex
