#include "reporting/UtilizationStores.h"

#include "common/NeverDestroyed.h"

namespace varnex
{

namespace
{

NeverDestroyed<UtilizationStores> g_stores;

} // namespace

UtilizationStores& Stores() noexcept
{
    return g_stores.Get();
}

unsigned CleanUtilizationStores(DWORD dwWaitMs) noexcept
{
    return CleanUtilizationStores(dwWaitMs, [](std::size_t) { return true; });
}

} // namespace varnex
