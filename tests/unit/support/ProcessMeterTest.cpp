#include "support/ProcessMeter.h"

#include "support/ChildProcess.h"

#include "common/Handles.h"

#include <catch2/catch.hpp>

#include <windows.h>

namespace varnex::test
{

TEST_CASE("a handle that is opened and one that is closed are counted")
{
    CountHandles(); // whatever the first call opens for good
    const std::size_t nBefore = CountHandles();
    {
        const UniqueHandle first(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        const UniqueHandle second(CreateMutexW(nullptr, FALSE, nullptr));
        CHECK(CountHandles() == nBefore + 2);
    }
    CHECK(CountHandles() == nBefore);
}

TEST_CASE("the handles of another process are not counted")
{
    CountHandles();
    const std::size_t nBefore = CountHandles();
    const ChildProcess child = ChildProcess::OfTestCase("child: never ends");
    REQUIRE_FALSE(child.WaitForEnd(500)); // by now it has dozens
    CHECK(CountHandles() == nBefore + 1);
}

TEST_CASE("a thread is counted while it lives")
{
    const std::size_t nBefore = CountThreads();
    const UniqueHandle stop(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const UniqueHandle thread(CreateThread(
        nullptr, 0, [](void* hStop) { return WaitForSingleObject(hStop, 10000); }, stop.Get(), 0, nullptr));
    CHECK(CountThreads() == nBefore + 1);
    SetEvent(stop.Get());
    CHECK(WaitForSingleObject(thread.Get(), 10000) == WAIT_OBJECT_0);
    CHECK(CountThreads() == nBefore);
}

TEST_CASE("private memory grows by what is allocated")
{
    constexpr std::size_t BLOCK_BYTES = 64 * 1024 * 1024;
    const std::size_t cbBefore = PrivateBytes();
    void* pBlock = VirtualAlloc(nullptr, BLOCK_BYTES, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    REQUIRE(pBlock != nullptr);
    const std::size_t cbAfter = PrivateBytes();
    CHECK(cbAfter >= cbBefore + BLOCK_BYTES * 9 / 10);
    CHECK(cbAfter <= cbBefore + BLOCK_BYTES * 11 / 10);
    VirtualFree(pBlock, 0, MEM_RELEASE);
    CHECK(PrivateBytes() < cbAfter - BLOCK_BYTES / 2);
}

} // namespace varnex::test
