#include "ComScope.h"
#include "FailingMemory.h"
#include "ReportingBench.h"
#include "StoreFilling.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <set>

namespace varnex::test
{

namespace
{

std::vector<int> Numbers(int nFirst, int nCount)
{
    std::vector<int> numbers(static_cast<std::size_t>(nCount));
    std::iota(numbers.begin(), numbers.end(), nFirst);
    return numbers;
}

// Lets every allocation of one size fail. Not of all sizes: without any memory the run-time library cannot throw.
class NoBlocksOf
{
public:
    NoBlocksOf(ImportRedirector& redirector, std::size_t cbBlock) : m_redirector(redirector)
    {
        redirector.Replace<void*(std::size_t)>("malloc", [cbBlock](std::size_t cb)
                                               { return cb == cbBlock ? nullptr : std::malloc(cb); });
    }
    ~NoBlocksOf() { m_redirector.Restore("malloc"); }
    NoBlocksOf(const NoBlocksOf&) = delete;
    NoBlocksOf& operator=(const NoBlocksOf&) = delete;

private:
    ImportRedirector& m_redirector;
};

// The blocks of memory that were taken since it was made and not given back. For one thread.
class LiveBlocks
{
public:
    explicit LiveBlocks(ImportRedirector& redirector) : m_redirector(redirector)
    {
        redirector.Replace<void*(std::size_t)>("malloc",
                                               [this](std::size_t cb)
                                               {
                                                   void* const pBlock = std::malloc(cb);
                                                   m_blocks.insert(pBlock);
                                                   return pBlock;
                                               });
        redirector.Replace<void(void*)>("free",
                                        [this](void* pBlock)
                                        {
                                            m_blocks.erase(pBlock);
                                            std::free(pBlock);
                                        });
    }
    ~LiveBlocks()
    {
        m_redirector.Restore("malloc");
        m_redirector.Restore("free");
    }
    LiveBlocks(const LiveBlocks&) = delete;
    LiveBlocks& operator=(const LiveBlocks&) = delete;

    std::size_t Count() const { return m_blocks.size(); }

private:
    ImportRedirector& m_redirector;
    std::set<void*> m_blocks;
};

} // namespace

TEST_CASE("a history holds a day of samples and then drops the oldest")
{
    BoundedHistory<int> history = MakeHistory(Numbers(1, 1440));
    CHECK(history.Size() == 1440);
    CHECK(SamplesOf(history) == Numbers(1, 1440));
    CHECK(history.Oldest() == 1);
    CHECK(history.Newest() == 1440);

    history.Append(1441);
    CHECK(history.Size() == 1440);
    CHECK(SamplesOf(history) == Numbers(2, 1440));
    CHECK(history.Oldest() == 2);
    CHECK(history.Newest() == 1441);

    for (const int nSample : Numbers(1442, 3 * 1440))
    {
        history.Append(nSample);
    }
    CHECK(SamplesOf(history) == Numbers(1442 + 2 * 1440, 1440));
}

TEST_CASE("cutting a history leaves the newest samples, and it grows to a day again")
{
    const int nAppended = GENERATE(1, 30, 1439, 1440, 1441, 2000, 2880);
    const std::size_t nKept = GENERATE(as<std::size_t>{}, 1, 29, 30, 31, 1439, 1440, 1441, 0xFFFFFFFF);
    CAPTURE(nAppended, nKept);
    BoundedHistory<int> history = MakeHistory(Numbers(1, nAppended));
    history.CutTo(nKept);
    const int nLeft = static_cast<int>(std::min<std::size_t>({nKept, static_cast<std::size_t>(nAppended), 1440}));
    CHECK(SamplesOf(history) == Numbers(nAppended - nLeft + 1, nLeft));
    CHECK(history.Oldest() == nAppended - nLeft + 1);

    for (const int nSample : Numbers(nAppended + 1, 1500))
    {
        history.Append(nSample);
    }
    CHECK(SamplesOf(history) == Numbers(nAppended + 1500 - 1440 + 1, 1440));
}

TEST_CASE("a history cut to nothing is empty and grows again")
{
    BoundedHistory<int> history = MakeHistory(Numbers(1, 1500));
    history.CutTo(0);
    CHECK(history.Size() == 0);
    history.Append(7);
    CHECK(SamplesOf(history) == std::vector<int>{7});
}

TEST_CASE("names and empty histories are published together, in place of the old ones")
{
    const ReportingBench bench;
    auto& store = Stores().cpu;
    store.Publish(MakeNames({L"0", L"1"}));
    store.Append(0, 10);
    store.Append(1, 11);

    const auto names = store.Publish(MakeNames({L"a", L"b", L"c"}));
    CHECK(names == store.GetNames());
    REQUIRE(names->size() == 3);
    CHECK(std::wstring((*names)[2].get()) == L"c");
    REQUIRE(store.All().size() == 3);
    for (std::size_t i = 0; i < 3; ++i)
    {
        CHECK(store.Of(i).Size() == 0);
    }
}

TEST_CASE("a sample for which there is no history is dropped, and a missing history is an empty one")
{
    const ReportingBench bench;
    auto& store = Stores().disk;
    store.Append(0, 5);
    CHECK(store.All().empty());
    CHECK(store.Of(0).Size() == 0);

    store.Publish(MakeNames({L"0 C:"}));
    store.Append(1, 5);
    store.Append(0, 6);
    CHECK(SamplesOf(store.Of(0)) == std::vector<std::int64_t>{6});
    CHECK(store.Of(1).Size() == 0);
}

TEST_CASE("an adapter's history that could not be begun is not there, whichever memory was missing")
{
    const std::string noRoom = NO_MEMORY_LINE;
    const std::string noPlace = "NetworkHistories -- exception stopped(std::bad_alloc).";
    ReportingBench bench;
    NetworkHistories& store = Stores().network;
    const StoreLockHold hold(store.lock);
    const NetworkCard card = MakeCard(2, L"00", 1, 1);
    const std::vector<std::string> messages = {noRoom, noRoom, noPlace}; // the utilization's, the record's, the map's
    for (std::size_t i = 0; i < messages.size(); ++i)
    {
        CAPTURE(i);
        bench.ForgetLog();
        bench.imports.FailCall("malloc", i + 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
        store.Append(card);
        CHECK(bench.imports.Failures("malloc") == 1);
        bench.imports.StopFailing("malloc");
        CHECK(store.histories.empty());
        CHECK(bench.ReadLog().Lines().size() == 1);
        CHECK_THAT(bench.ReadLog(), HasLine(1, messages[i]));
    }
    store.Append(card);
    CHECK(store.histories.at(2).Size() == 1);
}

TEST_CASE("an adapter's history that cannot grow replaces its oldest record and its utilization together")
{
    ReportingBench bench;
    const int nBlock = GENERATE(1, 2); // the utilizations', the records'
    CAPTURE(nBlock);
    CardHistory history;
    history.Append(MakeCard(2, L"00", 1, 1));
    history.Append(MakeCard(2, L"00", 1, 2));
    bench.imports.FailCall("malloc", static_cast<ULONGLONG>(nBlock), FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    history.Append(MakeCard(2, L"00", 1, 3));
    CHECK(bench.imports.Failures("malloc") == 1);
    bench.imports.StopFailing("malloc");
    CHECK(history.Size() == 2);
    CHECK(history.Oldest().Utilization == 2);
    CHECK(history.Newest().Utilization == 3);
    CHECK(SamplesOf(history.Utilizations()) == std::vector<int>{2, 3});
    history.Append(MakeCard(2, L"00", 1, 4));
    CHECK(history.Size() == 3);
    CHECK(history.Oldest().Utilization == 2);
    CHECK(SamplesOf(history.Utilizations()) == std::vector<int>{2, 3, 4});
}

TEST_CASE("a history without memory to grow keeps the newest samples, and grows in their order when there is memory")
{
    ReportingBench bench;
    BoundedHistory<int> history = MakeHistory(Numbers(1, 64)); // as much as it has room for
    {
        const NoBlocksOf none(bench.imports, 128 * sizeof(int));
        for (const int nSample : Numbers(65, 70))
        {
            history.Append(nSample);
        }
    }
    CHECK(SamplesOf(history) == Numbers(71, 64));
    CHECK(history.Oldest() == 71);
    const int nMore = GENERATE(1, 100, 2000);
    for (const int nSample : Numbers(135, nMore))
    {
        history.Append(nSample);
    }
    const int nHeld = std::min(64 + nMore, 1440);
    CHECK(SamplesOf(history) == Numbers(134 + nMore - nHeld + 1, nHeld));
}

TEST_CASE("a history without memory to grow can be cut")
{
    ReportingBench bench;
    BoundedHistory<int> history = MakeHistory(Numbers(1, 4));
    const NoBlocksOf none(bench.imports, 8 * sizeof(int));
    history.Append(5);
    history.CutTo(3);
    history.Append(6); // there is room for four
    CHECK(SamplesOf(history) == std::vector<int>{3, 4, 5, 6});
}

TEST_CASE("the utilizations of an adapter's history are those of its records, cut and full alike")
{
    const std::size_t nKept = GENERATE(as<std::size_t>{}, 1, 30, 1439, 1440);
    CardHistory history;
    int nNext = 0;
    for (const int nAppended : {1441, 50, 1500})
    {
        for (int i = 0; i < nAppended; ++i)
        {
            history.Append(MakeCard(2, L"00", 1, static_cast<std::uint32_t>(nNext++)));
        }
        history.CutTo(nKept);
        CAPTURE(nKept, nAppended);
        REQUIRE(history.Size() == nKept);
        REQUIRE(history.Utilizations().Size() == nKept);
        CHECK(history.Utilizations().Newest() == static_cast<int>(history.Newest().Utilization));
        CHECK(history.Utilizations().Oldest() == static_cast<int>(history.Oldest().Utilization));
        CHECK(history.Newest().Utilization == static_cast<std::uint32_t>(nNext - 1));
    }
}

TEST_CASE("a history never asks for room beyond its day")
{
    ReportingBench bench;
    BoundedHistory<int> history;
    FailingMemory memory(bench.imports, sizeof(int) * 2048);
    memory.FailBlock(1);
    for (const int nSample : Numbers(1, 3000))
    {
        history.Append(nSample);
    }
    CHECK(memory.Failed() == 0);
}

TEST_CASE("names outlive a clean-up for whoever holds them")
{
    const ReportingBench bench;
    const auto names = Stores().cpu.Publish(MakeNames({L"0"}));
    Stores().cpu.Append(0, 1);
    CleanUtilizationStores(0);
    CHECK(Stores().cpu.GetNames()->empty());
    CHECK(Stores().cpu.All().empty());
    CHECK(std::wstring((*names)[0].get()) == L"0");
    Stores().cpu.Append(0, 1);
    CHECK(Stores().cpu.All().empty());
}

TEST_CASE("a clean-up empties every store")
{
    const ReportingBench bench;
    FillCpus({{L"0", {1}}});
    FillDisks({{L"0 C:", {1}}});
    FillMemoryStore({1}, {2});
    FillCards({MakeCard(2, L"00", 1, 1)});
    CleanUtilizationStores(0);
    CHECK(Stores().cpu.GetNames()->empty());
    CHECK(Stores().cpu.All().empty());
    CHECK(Stores().memory.physical.Size() == 0);
    CHECK(Stores().memory.pagingFile.Size() == 0);
    CHECK(Stores().disk.GetNames()->empty());
    CHECK(Stores().disk.All().empty());
    CHECK(Stores().network.histories.empty());
    CHECK(Stores().network.collector.CardList().empty());
}

TEST_CASE("a clean-up gives back every block of the stores")
{
    const ComScope com;
    ReportingBench bench;
    bench.SetOneCard();
    const LiveBlocks blocks(bench.imports);
    UtilizationStores& stores = Stores();
    stores.cpu.Publish(MakeNames({L"0", L"1"}));
    stores.disk.Publish(MakeNames({L"0 C:", L"1 D:"}));
    for (int nSample = 0; nSample < 3; ++nSample)
    {
        stores.cpu.Append(1, nSample);
        stores.disk.Append(1, nSample);
        stores.memory.Append(nSample, nSample);
    }
    {
        const StoreLockHold hold(stores.network.lock);
        REQUIRE(stores.network.collector.RefreshCardList() == S_OK);
        stores.network.Append(stores.network.collector.CardList().at(0));
    }
    CHECK(blocks.Count() > 10);
    CleanUtilizationStores(0);
    CHECK(blocks.Count() == 0);
}

TEST_CASE("a clean-up that must not wait skips a store in other hands, and only that")
{
    ReportingBench bench;
    FillCpus({{L"0", {1}}});
    FillMemoryStore({1}, {2});
    FillDisks({{L"0 C:", {1}}});
    const UniqueHandle release(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    bench.clock.RunOnOtherThread(
        [&]
        {
            const StoreLockHold hold(Stores().memory.lock);
            bench.clock.Block(release.Get());
        });
    bench.clock.WaitUntilAllAsleep();

    CleanUtilizationStores(0);
    CHECK(Stores().cpu.All().empty());
    CHECK(Stores().memory.physical.Size() == 1);
    CHECK(Stores().disk.All().empty());

    SetEvent(release.Get());
    bench.clock.AdvanceUntilWorkersEnd(1);
    CleanUtilizationStores(0);
    CHECK(Stores().memory.physical.Size() == 0);
}

TEST_CASE("a store's lock is made anew only when the ended thread owns it")
{
    const ReportingBench bench;
    StoreLock& lock = Stores().disk.lock;
    REQUIRE(lock.TryEnter());
    lock.RenewIfOwnedBy(GetCurrentThreadId() + 1);
    bool bTaken = true;
    const auto tryOnOtherThread = [&]
    {
        const UniqueHandle thread(CreateThread(
            nullptr, 0,
            [](LPVOID pTaken) -> DWORD
            {
                *static_cast<bool*>(pTaken) = Stores().disk.lock.TryEnter();
                return 0;
            },
            &bTaken, 0, nullptr));
        WaitForSingleObject(thread.Get(), INFINITE);
    };
    tryOnOtherThread();
    CHECK_FALSE(bTaken);
    lock.RenewIfOwnedBy(GetCurrentThreadId());
    tryOnOtherThread();
    CHECK(bTaken);
    lock.Initialize();
}

} // namespace varnex::test
