// The filter among others, and the crashes that it sees.

#include "CrashedHost.h"

#include "support/LogFile.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

using Library = CrashedHost::Library;

namespace
{

std::uint64_t OwnerNumber(FilterOwner owner)
{
    return static_cast<std::uint64_t>(owner);
}

std::vector<std::uint64_t> ReturnedFilters(const CrashRun& run)
{
    std::vector<std::uint64_t> owners;
    const auto [first, last] = run.said.equal_range(RETURNED_FILTER_OF);
    for (auto entry = first; entry != last; ++entry)
    {
        owners.push_back(entry->second);
    }
    return owners;
}

} // namespace

TEST_CASE("a host that never asks for the filter leaves no dump")
{
    CrashedHost host(Library::StandIn);
    CHECK(host.Run("none", "access-violation").dwExitCode == EXCEPTION_ACCESS_VIOLATION);
    CHECK(host.Dumps().empty());
}

TEST_CASE("a host that does not crash leaves no dump")
{
    CrashedHost host(Library::StandIn);
    const CrashRun run = host.Run("3", "none");
    CHECK(run.dwExitCode == 0);
    CHECK(NumberOf(run.said, SURVIVED) == 1);
    CHECK(host.Dumps().empty());
}

TEST_CASE("every call returns the filter that was installed before it, whatever its mode")
{
    CrashedHost host(Library::StandIn);
    const CrashRun run = host.Run("0,7,1", "none", "previous-filter");
    CHECK(ReturnedFilters(run) == std::vector<std::uint64_t>{OwnerNumber(FilterOwner::Host),
                                                             OwnerNumber(FilterOwner::Module),
                                                             OwnerNumber(FilterOwner::Module)});
}

TEST_CASE("the filter that was installed before is replaced, not called")
{
    CrashedHost host(Library::StandIn);
    const CrashRun run = host.Run("0", "access-violation", "previous-filter");
    CHECK(run.dwExitCode == EXCEPTION_ACCESS_VIOLATION);
    CHECK(run.said.count(PREVIOUS_FILTER_RAN) == 0);
    CHECK(host.Dumps().size() == 1);
    // Without the module's it runs: the host's filter can be heard.
    CHECK(host.Run("none", "access-violation", "previous-filter").said.count(PREVIOUS_FILTER_RAN) == 1);
}

TEST_CASE("a filter of the host's own that calls the module's gets its dump and goes on with the crash")
{
    for (const Library library : {Library::StandIn, Library::WithoutFunction})
    {
        CrashedHost host(library);
        const CrashRun run = host.Run("0", "access-violation", "chained-filter");
        CHECK(NumberOf(run.said, MODULE_FILTER_ANSWERED) == EXCEPTION_CONTINUE_SEARCH);
        CHECK(run.dwExitCode == CHAINED_FILTER_EXIT_CODE);
        CHECK(host.Dumps().size() == (library == Library::StandIn ? 1 : 0));
    }
}

TEST_CASE("a crash in a second thread is dumped on that thread")
{
    CrashedHost host(Library::StandIn);
    const CrashRun run = host.Run("0", "second-thread");
    CHECK(run.dwExitCode == EXCEPTION_ACCESS_VIOLATION);
    CHECK(NumberOf(host.Record(0), DUMPED_THREAD) == NumberOf(run.said, CRASHING_THREAD));
}

TEST_CASE("an exception that nobody handles is a crash, whatever its code")
{
    CrashedHost host(Library::StandIn);
    CHECK(host.Run("0", "raise").dwExitCode == RAISED_CODE);
    CHECK(NumberOf(host.Record(0), EXCEPTION_CODE) == RAISED_CODE);
}

TEST_CASE("a thread with little stack left is dumped")
{
    CrashedHost host(Library::StandIn);
    const CrashRun run = host.Run("0", "little-stack");
    CHECK(run.dwExitCode == EXCEPTION_ACCESS_VIOLATION);
    CHECK(NumberOf(host.Record(0), DUMPED_THREAD) == NumberOf(run.said, CRASHING_THREAD));
}

// Wine does not even get to a filter: its own dispatch of the exception finds too little of the stack left, and it ends
// the thread, with code 0. The code of the overflow, and a dump where the host keeps enough stack for it, are for Windows
// to show.
TEST_CASE("a host whose stack overflows ends by itself")
{
    CrashedHost host(Library::StandIn);
    CHECK(host.Run("0", "stack-overflow").said.count(SURVIVED) == 0);
}

TEST_CASE("a crash writes nothing into the log")
{
    CrashedHost calm(Library::StandIn);
    calm.Run("none", "none");
    CrashedHost host(Library::StandIn);
    host.Run("0", "access-violation");
    CHECK(host.Dumps().size() == 1);
    CHECK(calm.Tree().Log() == "\r\n\r\n"); // what a load leaves
    CHECK(host.Tree().Log() == calm.Tree().Log());
    CHECK(host.Tree().FilesInLogs() == calm.Tree().FilesInLogs());
}

} // namespace varnex::test
