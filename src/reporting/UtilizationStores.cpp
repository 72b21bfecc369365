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

void CleanUtilizationStores(bool bWait) noexcept
{
    ForEachStore(
        [bWait](auto& store)
        {
            if (bWait)
            {
                store.lock.Enter();
            }
            else if (!store.lock.TryEnter())
            {
                return;
            }
            store.Clear();
            store.lock.Leave();
        });
}

} // namespace varnex
