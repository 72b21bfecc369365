// What a dump holds, by the system's own library: each mode, and crashes in other threads. Under Wine each of these
// dumps takes seconds, so the other tests have a stand-in for the library.

#include "CrashedHost.h"
#include "DumpFile.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

// What every dump of an access violation holds, whatever its mode.
void CheckCrash(const DumpFile& dump, const CrashRun& run)
{
    CHECK(run.dwExitCode == EXCEPTION_ACCESS_VIOLATION);
    const std::uint64_t ullThread = NumberOf(run.said, CRASHING_THREAD);
    const auto* pException = dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
    REQUIRE(pException != nullptr);
    CHECK(pException->ThreadId == ullThread);
    CHECK(pException->ExceptionRecord.ExceptionCode == static_cast<ULONG32>(EXCEPTION_ACCESS_VIOLATION));
    REQUIRE(pException->ExceptionRecord.NumberParameters == 2);
    CHECK(pException->ExceptionRecord.ExceptionInformation[1] == BAD_ADDRESS);
    const MINIDUMP_THREAD* pThread = dump.Thread(ullThread);
    REQUIRE(pThread != nullptr);
    CHECK(dump.Memory(pThread->Stack.StartOfMemoryRange, 8) != nullptr);
    CHECK_THAT(dump.Modules(),
               Catch::VectorContains(std::wstring(L"host.exe")) && Catch::VectorContains(std::wstring(L"Varnex.dll")));
    CHECK(dump.Has(SystemInfoStream));
}

struct DumpedCrash
{
    DumpedCrash(const std::string& mode, const std::string& crash)
        : run(host.Run(mode, crash)), dump(host.InFolder(CrashedHost::DumpName(0)))
    {
        CheckCrash(dump, run);
    }

    bool HoldsHeap() const { return dump.Memory(NumberOf(run.said, HEAP_ADDRESS), HEAP_SIZE) != nullptr; }
    // Threads and stacks, and not the whole memory.
    void CheckSmall() const
    {
        CHECK(dump.Has(MemoryListStream));
        CHECK_FALSE(dump.Has(Memory64ListStream));
        CHECK_FALSE(HoldsHeap());
    }

    CrashedHost host{CrashedHost::Library::System};
    CrashRun run;
    DumpFile dump;
};

} // namespace

TEST_CASE("mode 0 dumps the threads and their stacks")
{
    const DumpedCrash crash("0", "access-violation");
    CHECK(crash.dump.Header().Flags == MiniDumpNormal);
    crash.CheckSmall();
    CHECK_FALSE(crash.dump.Has(HandleDataStream));
}

// Only Windows writes the handles into the dump; Wine's library notes the wish in the header.
TEST_CASE("mode 1 asks for the open handles as well")
{
    const DumpedCrash crash("1", "access-violation");
    CHECK(crash.dump.Header().Flags == MiniDumpWithHandleData);
    crash.CheckSmall();
}

// The same goes for the modules' data.
TEST_CASE("mode 2 asks for the open handles and the modules' data")
{
    const DumpedCrash crash("2", "access-violation");
    CHECK(crash.dump.Header().Flags == (MiniDumpWithDataSegs | MiniDumpWithHandleData));
    crash.CheckSmall();
}

TEST_CASE("mode 3 dumps the whole memory of the process")
{
    const DumpedCrash crash("3", "access-violation");
    CHECK(crash.dump.Header().Flags == MiniDumpWithFullMemory);
    CHECK(crash.dump.Has(Memory64ListStream));
    const char* pHeap = crash.dump.Memory(NumberOf(crash.run.said, HEAP_ADDRESS), HEAP_SIZE);
    REQUIRE(pHeap != nullptr);
    CHECK(std::string(pHeap, HEAP_SIZE) == std::string(HEAP_SIZE, HEAP_FILL));
    const char* pData = crash.dump.Memory(NumberOf(crash.run.said, DATA_ADDRESS), sizeof(PROGRAM_DATA));
    REQUIRE(pData != nullptr);
    CHECK(std::string(pData, sizeof(PROGRAM_DATA)) == std::string(PROGRAM_DATA, sizeof(PROGRAM_DATA)));
}

TEST_CASE("mode 7, which has no meaning of its own, dumps what mode 0 does")
{
    const DumpedCrash crash("7", "access-violation");
    CHECK(crash.dump.Header().Flags == MiniDumpNormal);
    crash.CheckSmall();
    CHECK_FALSE(crash.dump.Has(HandleDataStream));
}

TEST_CASE("a dump names the thread that crashed, which is not the first one, and holds the others")
{
    const DumpedCrash crash("0", "second-thread");
    const auto* pThreads = crash.dump.Stream<MINIDUMP_THREAD_LIST>(ThreadListStream);
    REQUIRE(pThreads != nullptr);
    CHECK(pThreads->NumberOfThreads >= 2);
}

} // namespace varnex::test
