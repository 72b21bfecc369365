#include "ReportingBench.h"
#include "SamplerBench.h"

#include "reporting/UtilizationStores.h"
#include "reporting/UtlMemoryThread.h"
#include "support/ScriptScope.h"

#include <catch2/catch.hpp>

#include <atomic>

namespace varnex::test
{

namespace
{

constexpr DWORD WAIT_MS = 10'000;
constexpr char IN_USE_LINE[] = "StoreLock -- a store of samples is in use for too long and is left alone.";

// A lock of the test's own, and real threads that take it.
struct OwnLock
{
    OwnLock() { lock.Initialize(); }
    ~OwnLock() { lock.Delete(); }
    OwnLock(const OwnLock&) = delete;
    OwnLock& operator=(const OwnLock&) = delete;

    // Whether another thread can have it.
    bool IsFree()
    {
        const UniqueHandle thread(CreateThread(
            nullptr, 0,
            [](LPVOID pLock) -> DWORD
            {
                StoreLock& of = *static_cast<StoreLock*>(pLock);
                if (!of.TryEnter())
                {
                    return 0;
                }
                of.Leave();
                return 1;
            },
            &lock, 0, nullptr));
        WaitForSingleObject(thread.Get(), WAIT_MS);
        DWORD dwTaken = 0;
        GetExitCodeThread(thread.Get(), &dwTaken);
        return dwTaken == 1;
    }

    StoreLock lock;
    std::atomic<bool> bTaken{false};
    std::atomic<bool> bGone{false};
};

// A worker of the clock that has a store's lock until it lets go.
class StoreHolder
{
public:
    StoreHolder(ReportingBench& bench, StoreLock& lock) : m_bench(bench)
    {
        const UnscriptedScope unscripted;
        m_release.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        bench.clock.RunOnOtherThread(
            [this, &lock]
            {
                const StoreLockHold hold(lock);
                m_bench.clock.Block(m_release.Get());
            });
        bench.clock.WaitUntilAllAsleep();
    }
    ~StoreHolder() { LetGo(); }
    StoreHolder(const StoreHolder&) = delete;
    StoreHolder& operator=(const StoreHolder&) = delete;

    void LetGo()
    {
        SetEvent(m_release.Get());
        m_bench.clock.WaitUntilAllAsleep();
    }

private:
    ReportingBench& m_bench;
    UniqueHandle m_release;
};

} // namespace

TEST_CASE("a store's lock may be taken again by its owner, and is free after as many leaves")
{
    OwnLock own;
    CHECK(own.IsFree());
    REQUIRE(own.lock.TryEnter());
    {
        const StoreLockHold again(own.lock);
        CHECK(again);
        CHECK_FALSE(own.IsFree());
    }
    CHECK_FALSE(own.IsFree());
    own.lock.Leave();
    CHECK(own.IsFree());
}

// A section that is made anew while somebody waits inside it never wakes that one.
TEST_CASE("a thread that waits for a store's lock gets it after the owner was ended by force")
{
    OwnLock own;
    const UniqueHandle owner(CreateThread(
        nullptr, 0,
        [](LPVOID pOwn) -> DWORD
        {
            auto& of = *static_cast<OwnLock*>(pOwn);
            const StoreLockHold outer(of.lock);
            const StoreLockHold inner(of.lock);
            of.bTaken = true;
            Sleep(INFINITE);
            return 0;
        },
        &own, CREATE_SUSPENDED, nullptr));
    const DWORD dwOwner = GetThreadId(owner.Get());
    ResumeThread(owner.Get());
    while (!own.bTaken)
    {
        Sleep(1);
    }
    const UniqueHandle waiter(CreateThread(
        nullptr, 0,
        [](LPVOID pOwn) -> DWORD
        {
            auto& of = *static_cast<OwnLock*>(pOwn);
            const StoreLockHold hold(of.lock);
            of.bGone = true;
            return hold ? 1 : 0;
        },
        &own, 0, nullptr));
    Sleep(100);
    CHECK_FALSE(own.bGone);
    TerminateThread(owner.Get(), 0);
    REQUIRE(WaitForSingleObject(owner.Get(), WAIT_MS) == WAIT_OBJECT_0);
    CHECK_FALSE(own.IsFree());
    own.lock.RenewIfOwnedBy(dwOwner);
    REQUIRE(WaitForSingleObject(waiter.Get(), WAIT_MS) == WAIT_OBJECT_0);
    DWORD dwResult = 0;
    GetExitCodeThread(waiter.Get(), &dwResult);
    CHECK(dwResult == 1);
    CHECK(own.IsFree());
}

TEST_CASE("a wait for a store's lock takes its time off what may still be waited")
{
    ReportingBench bench;
    StoreHolder holder(bench, Stores().disk.lock);
    DWORD dwWaitMs = 1000;
    const ULONGLONG ullStart = bench.clock.ElapsedMs();
    CHECK_FALSE(Stores().disk.lock.Enter(dwWaitMs));
    CHECK(bench.clock.ElapsedMs() - ullStart == 1000);
    CHECK(dwWaitMs == 0);
    CHECK_FALSE(Stores().disk.lock.Enter(dwWaitMs));
    CHECK(bench.clock.ElapsedMs() - ullStart == 1000);
    holder.LetGo();
    CHECK(Stores().disk.lock.Enter(dwWaitMs));
    Stores().disk.lock.Leave();
}

TEST_CASE("a store's lock that is not to be had within 20 seconds is given up, and logged")
{
    ReportingBench bench;
    StoreHolder holder(bench, Stores().disk.lock);
    const ULONGLONG ullStart = bench.clock.ElapsedMs();
    {
        const StoreLockHold hold(Stores().disk.lock);
        CHECK_FALSE(hold);
    }
    CHECK(bench.clock.ElapsedMs() - ullStart == 20'000);
    CHECK_THAT(bench.ReadLog(), HasLine(1, IN_USE_LINE));
    holder.LetGo();
    const StoreLockHold hold(Stores().disk.lock);
    CHECK(hold);
    CHECK(bench.ReadLog().Lines().size() == 1);
}

TEST_CASE("a sampler whose store is in other hands loses that minute's sample and goes on")
{
    ReportingBench bench;
    StoreHolder holder(bench, Stores().memory.lock);
    SamplerRun<CPKIUtlMemoryThread> run(bench, g_pUtlMemoryThread);
    bench.clock.Advance(19);
    CHECK_THAT(bench.ReadLog(), !HasLineContaining("StoreLock"));
    bench.clock.Advance(1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, IN_USE_LINE));
    holder.LetGo();
    CHECK(Stores().memory.physical.Size() == 0);
    bench.clock.Advance(60);
    CHECK(Stores().memory.physical.Size() == 1);
    CHECK(Stores().memory.pagingFile.Size() == 1);
}

} // namespace varnex::test
