#include "ReportingBench.h"
#include "StoreFilling.h"

#include <catch2/catch.hpp>

extern "C" BOOL WINAPI DllMain(HINSTANCE hModule, DWORD dwReason, LPVOID pReserved);

namespace varnex::test
{

namespace
{

// The library entry, attached; what a detach enters and deletes is noted.
class Library
{
public:
    explicit Library(ReportingBench& bench) : m_bench(bench)
    {
        REQUIRE(DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr) == TRUE);
        FillCpus({{L"0", {1}}});
        FillMemoryStore({1}, {2});
        FillDisks({{L"0 C:", {1}}});
        FillCards({MakeCard(2, L"AA", 1, 1)});
        bench.imports.Replace<decltype(::DeleteCriticalSection)>("DeleteCriticalSection",
                                                                 [this](LPCRITICAL_SECTION pSection)
                                                                 {
                                                                     m_deleted.push_back(pSection);
                                                                     m_leftAtDelete.push_back(StoresLeft());
                                                                     DeleteCriticalSection(pSection);
                                                                 });
    }
    ~Library()
    {
        m_bench.imports.Restore("DeleteCriticalSection");
        ForEachStore([](auto& store) { store.lock.Initialize(); }); // the bench cleans the stores
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    void Detach(bool bProcessEnds)
    {
        CHECK(DllMain(nullptr, DLL_PROCESS_DETACH, bProcessEnds ? this : nullptr) == TRUE);
    }
    static std::string StoresLeft()
    {
        UtilizationStores& stores = Stores();
        return std::string(stores.cpu.All().empty() ? "" : "cpu ") +
               (stores.memory.physical.Size() + stores.memory.pagingFile.Size() == 0 ? "" : "memory ") +
               (stores.disk.All().empty() ? "" : "disk ") + (stores.network.histories.empty() ? "" : "network ");
    }
    const std::vector<void*>& Deleted() const { return m_deleted; }
    // What the stores held when a lock was deleted.
    const std::vector<std::string>& LeftAtDelete() const { return m_leftAtDelete; }

private:
    ReportingBench& m_bench;
    std::vector<void*> m_deleted;
    std::vector<std::string> m_leftAtDelete;
};

} // namespace

TEST_CASE("a detach empties the stores, then deletes their locks")
{
    const bool bProcessEnds = GENERATE(false, true);
    CAPTURE(bProcessEnds);
    ReportingBench bench;
    Library library(bench);
    REQUIRE(Library::StoresLeft() == "cpu memory disk network ");
    library.Detach(bProcessEnds);
    CHECK(library.LeftAtDelete() == std::vector<std::string>(4, ""));
    UtilizationStores& stores = Stores();
    CHECK(library.Deleted() ==
          std::vector<void*>{&stores.cpu.lock, &stores.memory.lock, &stores.disk.lock, &stores.network.lock});
    CHECK(bench.clock.ElapsedMs() == 0);
}

TEST_CASE("a second detach does nothing")
{
    ReportingBench bench;
    Library library(bench);
    library.Detach(false);
    library.Detach(false);
    CHECK(library.Deleted().size() == 4);
}

TEST_CASE("a detach takes each store's lock")
{
    ReportingBench bench;
    Library library(bench);
    std::vector<void*> entered;
    bench.imports.Replace<decltype(::EnterCriticalSection)>("EnterCriticalSection",
                                                            [&entered](LPCRITICAL_SECTION pSection)
                                                            {
                                                                entered.push_back(pSection);
                                                                EnterCriticalSection(pSection);
                                                            });
    library.Detach(false);
    bench.imports.Restore("EnterCriticalSection");
    UtilizationStores& stores = Stores();
    CHECK(entered ==
          std::vector<void*>{&stores.cpu.lock, &stores.memory.lock, &stores.disk.lock, &stores.network.lock});
}

TEST_CASE("a detach of a process that ends waits for no lock and skips a store in other hands")
{
    ReportingBench bench;
    UniqueHandle release;
    {
        const UnscriptedScope unscripted;
        release.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    {
        Library library(bench);
        bench.clock.RunOnOtherThread(
            [&]
            {
                const StoreLockHold hold(Stores().disk.lock);
                bench.clock.Block(release.Get());
            });
        bench.clock.WaitUntilAllAsleep();
        library.Detach(true);
        CHECK(Library::StoresLeft() == "disk ");
        CHECK(bench.clock.ElapsedMs() == 0);
        SetEvent(release.Get());
        bench.clock.AdvanceUntilWorkersEnd(1);
    }
}

TEST_CASE("a detach waits five seconds at most for stores in other hands, leaves them, and logs it")
{
    ReportingBench bench;
    UniqueHandle release;
    {
        const UnscriptedScope unscripted;
        release.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    {
        Library library(bench);
        for (StoreLock* const pLock : {&Stores().disk.lock, &Stores().network.lock})
        {
            bench.clock.RunOnOtherThread(
                [&bench, &release, pLock]
                {
                    const StoreLockHold hold(*pLock);
                    bench.clock.Block(release.Get());
                });
        }
        bench.clock.WaitUntilAllAsleep();
        library.Detach(false);
        CHECK(Library::StoresLeft() == "disk network ");
        CHECK(library.Deleted().size() == 4);
        CHECK(bench.clock.ElapsedMs() == 5000);
        CHECK_THAT(bench.ReadLog(),
                   HasLine(1, "DllMain -- samples are in use by a thread that still runs and were not freed."));
        SetEvent(release.Get());
        bench.clock.AdvanceUntilWorkersEnd(1);
    }
}

} // namespace varnex::test
