// Which library writes the dump, what it is asked for, and what becomes of a library that cannot do it.

#include "CrashedHost.h"
#include "DumpFile.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

using Library = CrashedHost::Library;

TEST_CASE("the library beside the host writes the dump, as each mode says")
{
    struct Mode
    {
        const char* pszModes;
        std::uint64_t ullType;
    };
    const Mode aModes[] = {{"0", 0}, {"1", 4}, {"2", 5}, {"3", 2}, {"4", 0}, {"7", 0}, {"4294967295", 0}};
    for (const Mode& mode : aModes)
    {
        INFO("mode " << mode.pszModes);
        CrashedHost host(Library::StandIn);
        const CrashRun run = host.Run(mode.pszModes, "access-violation");
        const Numbers record = host.Record(0);
        CHECK(NumberOf(record, DUMP_TYPE) == mode.ullType);
        CHECK(NumberOf(record, DUMPED_THREAD) == NumberOf(run.said, CRASHING_THREAD));
        CHECK(NumberOf(record, EXCEPTION_CODE) == EXCEPTION_ACCESS_VIOLATION);
        CHECK(NumberOf(record, OWN_PROCESS) == 1);
        CHECK(NumberOf(record, CLIENT_POINTERS) == 0);
        CHECK(NumberOf(record, EXTRAS) == 0);
    }
}

TEST_CASE("the last call's mode counts")
{
    CrashedHost host(Library::StandIn);
    host.Run("3,1", "access-violation");
    CHECK(NumberOf(host.Record(0), DUMP_TYPE) == 4);
    host.Run("3,7", "access-violation");
    CHECK(NumberOf(host.Record(1), DUMP_TYPE) == 0);
}

// A search by name would find it there, too, were the host not to forbid that.
TEST_CASE("the library beside the host is loaded by its whole path")
{
    CrashedHost host(Library::StandIn);
    host.Run("1", "access-violation", "system-libraries");
    CHECK(NumberOf(host.Record(0), DUMP_TYPE) == 4);
}

TEST_CASE("a library beside the module is not the host's")
{
    CrashedHost host(Library::System);
    WriteFileBytes(host.Tree().InBin(L"DBGHELP.DLL"),
                   ReadFileBytes(ProgramDirectory() + L"\\..\\crash\\DumpLibrary.dll"));
    host.Run("0", "access-violation");
    CHECK(DumpFile(host.InFolder(CrashedHost::DumpName(0))).Has(ExceptionStream));
}

// Without its setup the host would look into its own directory first when it looks for the system's library, and on
// Windows would go no further.
TEST_CASE("the system's library writes the dump when the one beside the host cannot be loaded")
{
    CrashedHost host(Library::NoLibrary);
    const CrashRun run = host.Run("0", "access-violation", "system-libraries");
    CHECK(run.dwExitCode == EXCEPTION_ACCESS_VIOLATION);
    CHECK(DumpFile(host.InFolder(CrashedHost::DumpName(0))).Has(ExceptionStream));
}

TEST_CASE("a library without the function leaves no file, and the crash goes on")
{
    CrashedHost host(Library::WithoutFunction);
    CHECK(host.Run("0", "access-violation").dwExitCode == EXCEPTION_ACCESS_VIOLATION);
    CHECK(host.Dumps().empty());
}

TEST_CASE("a dump that fails half-way stays as it is, and the crash goes on")
{
    CrashedHost host(Library::StandIn);
    const CrashRun run = host.Run("0", "access-violation", {}, {{FAIL_VARIABLE, L"1"}});
    CHECK(run.dwExitCode == EXCEPTION_ACCESS_VIOLATION);
    CHECK(host.Dumps() == Names{L"host.exe_00.dmp"});
    CHECK(NumberOf(host.Record(0), EXCEPTION_CODE) == EXCEPTION_ACCESS_VIOLATION);
}

} // namespace varnex::test
