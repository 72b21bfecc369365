// Where a dump lies and which number it gets.

#include "CrashedHost.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr int LAST_INDEX = 98;
const std::string EARLIER_DUMP = "an earlier dump";

// A host with dumps from nFirst to nLast.
struct HostWithDumps : CrashedHost
{
    HostWithDumps(int nFirst, int nLast) : CrashedHost(Library::StandIn)
    {
        for (int nIndex = nFirst; nIndex <= nLast; ++nIndex)
        {
            Add(nIndex);
        }
    }
    void Add(int nIndex) const { WriteFileBytes(InFolder(DumpName(nIndex)), EARLIER_DUMP); }
    bool IsEarlier(int nIndex) const { return ReadFileBytes(InFolder(DumpName(nIndex))) == EARLIER_DUMP; }

    // Crashes and checks that exactly this file was written, whole, and every other one left alone.
    void CheckNextDump(int nIndex)
    {
        const std::size_t nBefore = Dumps().size();
        const bool bReplaced = FileExists(InFolder(DumpName(nIndex)));
        CHECK(Run("0", "access-violation").dwExitCode == EXCEPTION_ACCESS_VIOLATION);
        CHECK(Dumps().size() == nBefore + (bReplaced ? 0 : 1));
        CHECK(NumberOf(Record(nIndex), EXCEPTION_CODE) == EXCEPTION_ACCESS_VIOLATION);
        for (const std::wstring& name : Dumps())
        {
            CHECK((name == DumpName(nIndex) || ReadFileBytes(InFolder(name)) == EARLIER_DUMP));
        }
    }
};

} // namespace

TEST_CASE("the first dump has number 00 and lies beside the host's executable, not beside the module")
{
    HostWithDumps host(0, -1);
    const Names besideModule = host.Tree().FilesInBin();
    host.CheckNextDump(0);
    CHECK(host.Dumps() == Names{L"host.exe_00.dmp"});
    CHECK(host.Tree().FilesInBin() == besideModule);
}

TEST_CASE("each crash leaves a dump of its own")
{
    HostWithDumps host(0, -1);
    for (int nCrash = 0; nCrash < 3; ++nCrash)
    {
        host.Run("0", "access-violation");
    }
    CHECK(host.Dumps() == Names{L"host.exe_00.dmp", L"host.exe_01.dmp", L"host.exe_02.dmp"});
}

TEST_CASE("a dump takes the first number that is free")
{
    HostWithDumps host(0, 11);
    host.Add(13);
    host.CheckNextDump(12);
}

TEST_CASE("number 00 is taken again when it has become free")
{
    HostWithDumps host(1, 10);
    host.CheckNextDump(0);
}

TEST_CASE("a number is taken when anything has its name, a directory too")
{
    HostWithDumps host(0, 8);
    REQUIRE(CreateDirectoryW(host.InFolder(CrashedHost::DumpName(9)).c_str(), nullptr));
    host.Run("0", "access-violation");
    CHECK(NumberOf(host.Record(10), EXCEPTION_CODE) == EXCEPTION_ACCESS_VIOLATION);
}

TEST_CASE("after 97 comes 98")
{
    HostWithDumps host(0, LAST_INDEX - 1);
    host.CheckNextDump(LAST_INDEX);
}

TEST_CASE("number 98 is overwritten when all are taken, and 99 is never formed")
{
    HostWithDumps host(0, LAST_INDEX);
    WriteFileBytes(host.InFolder(CrashedHost::DumpName(LAST_INDEX)), std::string(10'000, 'x')); // longer than the next
    host.CheckNextDump(LAST_INDEX);
    CHECK(ReadFileBytes(host.InFolder(CrashedHost::DumpName(LAST_INDEX))).size() < 1000);
    CHECK_FALSE(FileExists(host.InFolder(CrashedHost::DumpName(99))));
}

TEST_CASE("a dump numbered 99 is nobody's business")
{
    HostWithDumps host(0, LAST_INDEX - 1);
    host.Add(99);
    host.CheckNextDump(LAST_INDEX);
    CHECK(host.IsEarlier(99));
}

TEST_CASE("a dump file that cannot be created ends nothing but the dump")
{
    HostWithDumps host(0, LAST_INDEX - 1);
    REQUIRE(CreateDirectoryW(host.InFolder(CrashedHost::DumpName(LAST_INDEX)).c_str(), nullptr));
    const Names before = host.Dumps();
    CHECK(host.Run("0", "access-violation").dwExitCode == EXCEPTION_ACCESS_VIOLATION);
    CHECK(host.Dumps() == before);
    CHECK(host.IsEarlier(0));
    CHECK(host.IsEarlier(LAST_INDEX - 1));
}

} // namespace varnex::test
