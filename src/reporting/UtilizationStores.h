#pragma once

#include "diag/ExceptionBarrier.h"
#include "reporting/BoundedHistory.h"
#include "reporting/CardHistory.h"
#include "reporting/StoreLock.h"
#include "sampling/InstanceNames.h"
#include "sampling/NetworkUtilizationCollector.h"

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace varnex
{

// What the samplers record and the report averages: plain stores, each with one lock, which its users hold while they
// touch the histories. A sample that could not be taken is FAILED_SAMPLE, and a history that cannot grow gives up its
// oldest sample, so that positions in time stay regular. No append throws.
constexpr int FAILED_SAMPLE = -1;

// One history for each named instance: processors and disks.
template <class Sample>
class NamedHistories
{
public:
    using Names = InstanceNames<wchar_t>;
    using History = BoundedHistory<Sample>;

    // Takes the lock. Takes new names and empty histories for them, both at once. Null when the lock is not to be had.
    // Throws std::bad_alloc, with the store empty then.
    std::shared_ptr<const Names> Publish(Names names)
    {
        const StoreLockHold hold(lock);
        if (!hold)
        {
            return nullptr;
        }
        Clear();
        auto shared = std::make_shared<const Names>(std::move(names));
        m_histories.resize(shared->size());
        m_names = std::move(shared);
        return m_names;
    }
    // Takes the lock; false when it is not to be had. A sample for which there is no history is dropped.
    bool Append(std::size_t nInstance, Sample sample) noexcept
    {
        const StoreLockHold hold(lock);
        if (hold && nInstance < m_histories.size())
        {
            m_histories[nInstance].Append(sample);
        }
        return static_cast<bool>(hold);
    }
    // Under the lock. The names stay valid for whoever holds them.
    std::shared_ptr<const Names> GetNames() const VARNEX_REQUIRES(lock)
    {
        return m_names != nullptr ? m_names : std::make_shared<const Names>();
    }
    // Under the lock. A history that does not exist (any more) is an empty one.
    const History& Of(std::size_t nInstance) const noexcept VARNEX_REQUIRES(lock)
    {
        return nInstance < m_histories.size() ? m_histories[nInstance] : s_empty;
    }
    // Under the lock.
    const std::vector<History>& All() const noexcept VARNEX_REQUIRES(lock) { return m_histories; }
    // Under the lock. Frees everything.
    void Clear() noexcept VARNEX_REQUIRES(lock)
    {
        m_names.reset();
        std::vector<History>().swap(m_histories); // an assignment of {} would keep the buffer
    }

    StoreLock lock;

private:
    inline static const History s_empty;

    std::shared_ptr<const Names> m_names VARNEX_GUARDED_BY(lock);
    std::vector<History> m_histories VARNEX_GUARDED_BY(lock);
};

// Percentages of physical memory and of the paging file in use.
class MemoryHistories
{
public:
    // Takes the lock; false when it is not to be had.
    bool Append(int nPhysical, int nPagingFile) noexcept
    {
        const StoreLockHold hold(lock);
        if (hold)
        {
            physical.Append(nPhysical);
            pagingFile.Append(nPagingFile);
        }
        return static_cast<bool>(hold);
    }
    // Under the lock. Frees everything.
    void Clear() noexcept VARNEX_REQUIRES(lock)
    {
        physical = {};
        pagingFile = {};
    }

    StoreLock lock;
    BoundedHistory<int> physical VARNEX_GUARDED_BY(lock);
    BoundedHistory<int> pagingFile VARNEX_GUARDED_BY(lock);
};

// Whole card records by interface index. Cards that have vanished keep their history.
class NetworkHistories
{
public:
    // Under the lock. A new card for which there is no memory (logged) has no history until its next record: readers of
    // the map take each history's oldest and newest record.
    void Append(const NetworkCard& card) noexcept VARNEX_REQUIRES(lock)
    {
        const auto found = histories.find(card.InterfaceIndex);
        if (found != histories.end())
        {
            found->second.Append(card);
            return;
        }
        CardHistory history;
        history.Append(card);
        if (history.Size() != 0)
        {
            StopExceptions("NetworkHistories", false,
                           [&] { return histories.emplace(card.InterfaceIndex, std::move(history)).second; });
        }
    }
    // Under the lock. Frees everything.
    void Clear() noexcept VARNEX_REQUIRES(lock)
    {
        collector.ClearCardList();
        histories.clear();
    }

    StoreLock lock;
    NetworkUtilizationCollector collector VARNEX_GUARDED_BY(lock);
    std::map<DWORD, CardHistory> histories VARNEX_GUARDED_BY(lock); // none of them empty
};

// The stores of this process.
struct UtilizationStores
{
    NamedHistories<int> cpu;           // percent
    MemoryHistories memory;            // percent
    NamedHistories<std::int64_t> disk; // bytes per second
    NetworkHistories network;
};
UtilizationStores& Stores() noexcept;

// Calls an operation with each store, in the order CPU, memory, disk, network.
template <class Operation>
void ForEachStore(Operation&& operation)
{
    UtilizationStores& stores = Stores();
    operation(stores.cpu);
    operation(stores.memory);
    operation(stores.disk);
    operation(stores.network);
}

// Empties the stores for which mayEmpty says so; it is given the store's number, 0 for the first one above, and asked
// once more under the store's lock. All locks together are waited for dwWaitMs at most. Returns a bit for each store
// whose lock was not to be had: 1 for the first.
template <class MayEmpty>
unsigned CleanUtilizationStores(DWORD dwWaitMs, MayEmpty&& mayEmpty) noexcept
{
    unsigned nLeft = 0;
    std::size_t nStore = 0;
    ForEachStore(
        [&](auto& store)
        {
            if (mayEmpty(nStore))
            {
                if (store.lock.Enter(dwWaitMs))
                {
                    if (mayEmpty(nStore))
                    {
                        store.Clear();
                    }
                    store.lock.Leave();
                }
                else
                {
                    nLeft |= 1U << nStore;
                }
            }
            ++nStore;
        });
    return nLeft;
}

// The same for every store.
unsigned CleanUtilizationStores(DWORD dwWaitMs) noexcept;

} // namespace varnex
