#include "ModuleLog.h"

#include "diag/SPLogger.h"

namespace varnex::host
{

void SilenceModuleLog() noexcept
{
    const UniqueHandle mutex(Log()->Mutex); // closed here; without it the log writes nothing
    Log()->Mutex = nullptr;
}

} // namespace varnex::host
