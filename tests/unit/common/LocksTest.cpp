#include "common/Locks.h"
#include "common/Handles.h"

#include <catch2/catch.hpp>

#include <atomic>

namespace varnex::test
{

namespace
{

constexpr DWORD WAIT_MS = 10'000;

// A thread that takes a lock and stays, with it or waiting for it.
class Taker
{
public:
    explicit Taker(RecoverableLock& lock)
        : m_lock(lock), m_thread(CreateThread(nullptr, 0, &Taker::Run, this, 0, &m_dwId))
    {
    }
    ~Taker() { End(); }
    Taker(const Taker&) = delete;
    Taker& operator=(const Taker&) = delete;

    DWORD Id() const noexcept { return m_dwId; }
    bool HasLock(DWORD dwMilliseconds) const
    {
        for (DWORD dwWaited = 0; dwWaited < dwMilliseconds && !m_bHasLock; ++dwWaited)
        {
            Sleep(1);
        }
        return m_bHasLock;
    }
    // By force; its handle stays open.
    void End()
    {
        TerminateThread(m_thread.Get(), 0);
        WaitForSingleObject(m_thread.Get(), WAIT_MS);
    }

private:
    static DWORD WINAPI Run(LPVOID pSelf)
    {
        auto& self = *static_cast<Taker*>(pSelf);
        self.m_lock.Enter();
        self.m_bHasLock = true;
        Sleep(INFINITE);
        return 0;
    }

    RecoverableLock& m_lock;
    std::atomic<bool> m_bHasLock{false};
    DWORD m_dwId = 0;
    UniqueHandle m_thread;
};

} // namespace

TEST_CASE("a recoverable lock has one owner, whom it knows, until the hold's scope ends")
{
    RecoverableLock lock;
    CHECK_FALSE(lock.IsOwnedBy(GetCurrentThreadId()));
    {
        const RecoverableLockHold hold(lock);
        CHECK(lock.IsOwnedBy(GetCurrentThreadId()));
        CHECK_FALSE(lock.TryEnter());
    }
    CHECK_FALSE(lock.IsOwnedBy(GetCurrentThreadId()));
    CHECK(lock.TryEnter());
    lock.Leave();
}

TEST_CASE("a recoverable lock is waited for until its owner leaves it")
{
    RecoverableLock lock;
    REQUIRE(lock.TryEnter());
    const Taker taker(lock);
    CHECK_FALSE(taker.HasLock(50));
    lock.Leave();
    CHECK(taker.HasLock(WAIT_MS));
    CHECK(lock.IsOwnedBy(taker.Id()));
}

TEST_CASE("a thread that is ended by force keeps a recoverable lock until somebody gives it back for that very thread")
{
    RecoverableLock lock;
    Taker taker(lock);
    REQUIRE(taker.HasLock(WAIT_MS));
    taker.End();
    CHECK_FALSE(lock.TryEnter());
    lock.LeaveFor(taker.Id() + 1);
    CHECK_FALSE(lock.TryEnter());
    lock.LeaveFor(taker.Id());
    CHECK(lock.TryEnter());
    lock.LeaveFor(taker.Id()); // it is another's by now
    CHECK(lock.IsOwnedBy(GetCurrentThreadId()));
    lock.Leave();
}

TEST_CASE("a thread that is ended by force while it waits for a recoverable lock leaves nothing behind")
{
    RecoverableLock lock;
    REQUIRE(lock.TryEnter());
    {
        Taker ended(lock);
        CHECK_FALSE(ended.HasLock(20));
        ended.End();
    }
    const Taker waiting(lock);
    CHECK_FALSE(waiting.HasLock(20));
    lock.Leave();
    CHECK(waiting.HasLock(WAIT_MS));
}

} // namespace varnex::test
