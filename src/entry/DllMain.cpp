#include "alerting/AlertStore.h"
#include "common/Com.h"
#include "common/Handles.h"
#include "common/ModulePath.h"
#include "diag/ExceptionBarrier.h"
#include "diag/SPLogger.h"
#include "entry/ModuleState.h"
#include "reporting/ReportHandOff.h"
#include "reporting/UtilizationStores.h"

#include <utility>

#ifdef __GLIBCXX__
namespace __gnu_cxx // the run-time library's, which declares it in no header
{
void __freeres();
}
#endif

namespace varnex
{

namespace
{

constexpr DWORD CLEAN_WAIT_MS = 5000; // for all stores together; the network sampler may be in the middle of a step

// The one failure of CoInitialize that does not fail the load.
constexpr HRESULT TOLERATED_COM_FAILURE = static_cast<HRESULT>(0x80010119);

bool g_bAttached = false;

void ConfigureLog(const char* pszModulePath) noexcept
{
    char szDirectory[PATH_CHARS];
    LogDirectoryOf(pszModulePath, szDirectory);
    Log()->Configure(szDirectory, "Varnex");
    // Two empty lines in the log mark a load.
    for (int i = 0; i < 2; ++i)
    {
        Log()->RollOverIfNeeded();
        Log()->WriteSeparator();
    }
}

BOOL Attach(HMODULE hModule, const char* pszModulePath) noexcept
{
    g_hModule = hModule;
    ConfigureLog(pszModulePath);
    for (WorkerSlot& slot : g_aMonitorSlots)
    {
        slot.Forget();
    }
    const ThreadApartment apartment(TOLERATED_COM_FAILURE);
    if (!apartment.Usable())
    {
        Log()->Level1A("initialize COM interface failed.\n");
        return FALSE;
    }
    // The outcome of neither matters to the load.
    PrePKIAlertInf();
    PrepareSendingMMFAndEvent();
    g_bAttached = true;
    return TRUE;
}

// Stops no thread and waits for none, only for a few seconds for a store's lock that a sampler still holds; the host stops
// the samplers before it unloads.
void Detach(bool bProcessEnds) noexcept
{
    if (!g_bAttached)
    {
        return; // the system calls here also after an attach that failed, which completed nothing to undo
    }
    g_bAttached = false;
    if (!bProcessEnds) // leaving an apartment may wait for threads, and in a process that ends they are gone
    {
        // Also where the attach let a failure of COM pass, and COM is then uninitialised once too often: hosts know it so.
        ThreadApartment::Leave();
    }
    if (CleanUtilizationStores(bProcessEnds ? 0 : CLEAN_WAIT_MS) != 0 && !bProcessEnds)
    {
        Log()->Level1A("DllMain -- samples are in use by a thread that still runs and were not freed.");
    }
    ForEachStore([](auto& store) { store.lock.Delete(); });
    const UniqueHandle mutex(std::exchange(g_hAlertFileMutex, nullptr));
}

// The run-time library inside the module sets memory aside for exceptions at each load, and by itself never gives it
// back. Nothing of the module may throw afterwards.
void FreeRuntimeMemory() noexcept
{
#ifdef __GLIBCXX__
    __gnu_cxx::__freeres();
#endif
}

BOOL OnReason(HMODULE hModule, DWORD dwReason, bool bProcessEnds) noexcept
{
    char szModulePath[PATH_CHARS];
    ModulePathA(hModule, szModulePath); // for every reason
    switch (dwReason)
    {
    case DLL_PROCESS_ATTACH:
        return Attach(hModule, szModulePath);
    case DLL_PROCESS_DETACH:
        Detach(bProcessEnds);
        if (!bProcessEnds)
        {
            FreeRuntimeMemory();
        }
        return TRUE;
    default:
        return TRUE;
    }
}

} // namespace

} // namespace varnex

extern "C" BOOL WINAPI DllMain(HINSTANCE hModule, DWORD dwReason, LPVOID pReserved)
{
    return varnex::StopExceptions("DllMain", FALSE,
                                  [=] { return varnex::OnReason(hModule, dwReason, pReserved != nullptr); });
}
