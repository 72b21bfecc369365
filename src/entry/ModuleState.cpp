#include "entry/ModuleState.h"

namespace varnex
{

HMODULE g_hModule = nullptr;
HANDLE g_hAlertFileMutex = nullptr;
WorkerSlot g_aMonitorSlots[MONITORS];
WorkerSlot g_aUtilizationSlots[UTILIZATION_WORKERS];

} // namespace varnex
