#include "alerting/MonCPUThread.h"
#include "alerting/MonDiskThread.h"
#include "alerting/MonMemThread.h"
#include "alerting/MonNetworkThread.h"
#include "diag/ExceptionBarrier.h"
#include "diag/SPLogger.h"
#include "entry/ModuleState.h"

#include <varnex/Varnex.h>

namespace varnex
{

namespace
{

struct MonitorControl
{
    WorkerSlot& slot;
    int (*pfnCreate)(WorkerSlot& slot, const char* pszFailure, const char* pszSuccess);
    const char* pszStart;
    const char* pszExists;
    const char* pszStop;
    const char* pszFailure;
    const char* pszSuccess;
};

// In the order of the alert types, from 1.
const MonitorControl MONITOR_CONTROLS[MONITORS] = {
    {g_pMonCPUThread, CreateRunningThread<CMonCPUThread>, "StartWorkingThread -- Start CPU Monitor thread...",
     "StartWorkingThread -- CPU Monitor thread has exist. exist...",
     "StopWorkingThread -- should stop monitor CPU thread...",
     "StartWorkingThread -- MonCPUThread CreateRunningThread Error!", "Create Monitor CPU Thread Successfully!"},
    {g_pMonMemThread, CreateRunningThread<CMonMemThread>,
     "StartWorkingThread -- Start Available Memory Monitor thread...",
     "StartWorkingThread -- Available Memory Monitor thread has exist. exist...",
     "StopWorkingThread -- should stop monitor available memory thread...",
     "StartWorkingThread -- CMonMemThread CreateRunningThread Error!", "Create Monitor Memory Thread Successfully!"},
    {g_pMonDiskThread, CreateRunningThread<CMonDiskThread>,
     "StartWorkingThread -- Start Physical disk throughput Monitor thread...",
     "StartWorkingThread -- Physical disk throughput Monitor thread has exist. exist...",
     "StopWorkingThread -- should stop monitor physical disk throughput thread...",
     "StartWorkingThread -- CMonDiskThread CreateRunningThread Error!",
     "Create Monitor physical disk throughput Thread Successfully!"},
    {g_pMonNetworkThread, CreateRunningThread<CMonNetworkThread>,
     "StartWorkingThread -- Start Network utilization Monitor thread...",
     "StartWorkingThread -- Network utilization Monitor thread has exist. exist...",
     "StopWorkingThread -- should stop monitor network utilization thread...",
     "StartWorkingThread -- CMonNetworkThread CreateRunningThread Error!",
     "Create Monitor network utilization Thread Successfully!"},
};

// One monitor that cannot be made does not keep the others from starting.
void StartMonitor(const MonitorControl& control)
{
    StopExceptions("StartWorkingThread", false,
                   [&control]
                   {
                       if (control.slot.IsSet() ||
                           control.pfnCreate(control.slot, control.pszFailure, control.pszSuccess) == WORKER_EXISTS)
                       {
                           Log()->Level1A(control.pszExists);
                       }
                       return true;
                   });
}

int StartMonitors(unsigned nAlertType)
{
    if (nAlertType > MONITORS)
    {
        Log()->Level1A("StartWorkingThread -- bad input alert type(%d)", nAlertType);
        return VARNEX_BAD_ALERT_TYPE;
    }
    if (nAlertType != VARNEX_ALERT_ALL)
    {
        const MonitorControl& control = MONITOR_CONTROLS[nAlertType - 1];
        Log()->Level2A(control.pszStart);
        StartMonitor(control);
        return VARNEX_OK;
    }
    Log()->Level2A("StartWorkingThread -- Start All alert Monitor thread...");
    for (const MonitorControl& control : MONITOR_CONTROLS)
    {
        StartMonitor(control);
    }
    return VARNEX_OK;
}

int StopMonitors(unsigned nAlertType)
{
    if (nAlertType > MONITORS)
    {
        Log()->Level1A("StopWorkingThread -- bad input alert type(%d)", nAlertType);
        return VARNEX_BAD_ALERT_TYPE;
    }
    Log()->Level2A("StopWorkingThread -- Stop working alert thread...");
    if (nAlertType != VARNEX_ALERT_ALL)
    {
        const MonitorControl& control = MONITOR_CONTROLS[nAlertType - 1];
        control.slot.RequestStop();
        Log()->Level2A(control.pszStop);
    }
    else
    {
        Log()->Level2A("StopWorkingThread -- should stop all of monitor thread...");
        for (const MonitorControl& control : MONITOR_CONTROLS)
        {
            control.slot.RequestStop();
        }
    }
    Log()->Level2A("StopWorkingThread -- Stop working alert thread finish...");
    return VARNEX_OK;
}

} // namespace

} // namespace varnex

int StartWorkingThread(unsigned int nAlertType)
{
    return varnex::StopExceptions("StartWorkingThread", VARNEX_OK, [=] { return varnex::StartMonitors(nAlertType); });
}

int StopWorkingThread(unsigned int nAlertType)
{
    return varnex::StopExceptions("StopWorkingThread", VARNEX_OK, [=] { return varnex::StopMonitors(nAlertType); });
}
