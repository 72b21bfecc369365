#include "ForeignSection.h"
#include "ReportingBench.h"

#include "reporting/ReportHandOff.h"
#include "reporting/UtilizationStores.h"
#include "support/ProcessMeter.h"

#include <catch2/catch.hpp>

#include <algorithm>

namespace varnex::test
{

namespace
{

using Asked = std::vector<std::wstring>;
using Wanted = HasLinesInOrder::Wanted;

const std::wstring CREATE_BEGIN = std::wstring(L"CreateEvent ") + BEGIN_NAME;
const std::wstring CREATE_FINISH = std::wstring(L"CreateEvent ") + FINISH_NAME;
const std::wstring CREATE_SECTION = std::wstring(L"CreateFileMapping ") + SECTION_NAME;

// The store locks work on another thread.
bool AreLocksFree()
{
    bool bFree = true;
    ForEachStore(
        [&bFree](auto& store)
        {
            bFree = store.lock.TryEnter() && bFree;
            store.lock.Leave();
        });
    return bFree;
}

} // namespace

TEST_CASE("preparing makes the begin event, the finish event and the zeroed section, for everyone")
{
    ReportingBench bench;
    const HostAgent first(bench.names.Key());
    CHECK(PrepareSendingMMFAndEvent() == 1);
    CHECK(bench.names.Asked() == Asked{CREATE_BEGIN, CREATE_FINISH, CREATE_SECTION});
    CHECK(bench.names.CountUnlikeExpected() == 0);
    HostAgent agent(bench.names.Key());
    CHECK_FALSE(agent.IsBeginSet());
    CHECK_FALSE(agent.TakeFinish());
    CHECK(agent.Bytes() == std::string(SECTION_BYTES, '\0'));
    CHECK(AreLocksFree());
    CHECK(bench.ReadLog().Lines().empty());
}

TEST_CASE("preparing again zeroes a section that is in use, and opens the same objects")
{
    ReportingBench bench;
    HostAgent agent(bench.names.Key());
    agent.Ask(1, 1);
    PrepareSendingMMFAndEvent();
    CHECK(agent.Bytes() == std::string(SECTION_BYTES, '\0'));
    CHECK(agent.IsBeginSet());
}

TEST_CASE("the handles of the named objects stay open and the view does not")
{
    ReportingBench bench;
    PrepareSendingMMFAndEvent();
    bench.imports.CountCalls("MapViewOfFile");
    bench.imports.CountCalls("UnmapViewOfFile");
    const std::size_t nBefore = CountHandles();
    PrepareSendingMMFAndEvent();
    CHECK(CountHandles() == nBefore + 3);
    CHECK(bench.imports.Calls("MapViewOfFile") == 1);
    CHECK(bench.imports.Calls("UnmapViewOfFile") == 1);
}

TEST_CASE("preparing ends at the first object that cannot be made")
{
    struct Rule
    {
        const char* pszImport;
        ULONGLONG ullCall;
        Asked asked; // a call that fails is not noted
        const char* pszText;
        std::size_t nHandles;
    };
    const Rule rule = GENERATE(values<Rule>({
        {"CreateEventW",
         1,
         {},
         "PrepareSendingMMFAndEvent -- CreateEvent fail(5), Event Name(Global\\{0362D603-1A78-45f6-92F9-A070F876338A})",
         0},
        {"CreateEventW",
         2,
         {CREATE_BEGIN},
         "PrepareSendingMMFAndEvent -- CreateEvent fail(5), Event Name(Global\\{6E0677E3-DC12-4591-81E3-E63E95E4D023})",
         1},
        {"CreateFileMappingW",
         1,
         {CREATE_BEGIN, CREATE_FINISH},
         "PrepareSendingMMFAndEvent -- CreateFileMapping fail(5), MMF "
         "Name(Global\\{EA7425FD-1ED7-4e48-B0CD-EE962879E787}), MMF size(32768)",
         2},
        {"MapViewOfFile",
         1,
         {CREATE_BEGIN, CREATE_FINISH, CREATE_SECTION},
         "PrepareSendingMMFAndEvent -- MapViewOfFile fail(5), XML Buffer Size(32768)",
         3},
    }));
    CAPTURE(rule.pszImport, rule.ullCall);
    ReportingBench bench;
    bench.imports.FailCall(rule.pszImport, rule.ullCall, FailMode::Once, ERROR_ACCESS_DENIED);
    const std::size_t nBefore = CountHandles();
    CHECK(PrepareSendingMMFAndEvent() == 1);
    CHECK(CountHandles() == nBefore + rule.nHandles);
    CHECK(bench.imports.Failures(rule.pszImport) == 1);
    CHECK(bench.names.Asked() == rule.asked);
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 1);
    CHECK_THAT(log, HasLine(1, rule.pszText));
    CHECK(AreLocksFree());
}

TEST_CASE("a section of that name that somebody else made with other memory is not touched")
{
    const bool bReserved = GENERATE(false, true);
    CAPTURE(bReserved);
    ReportingBench bench;
    const ForeignSection foreign(bReserved);
    const UniqueView view = MapReportSection(foreign.Handle());
    const DWORD dwError = GetLastError();
    CHECK_FALSE(view);
    CHECK(dwError != ERROR_SUCCESS);
}

TEST_CASE("preparing beside a section of somebody else's with other memory says so and leaves it alone")
{
    const bool bReserved = GENERATE(false, true);
    CAPTURE(bReserved);
    ReportingBench bench;
    const ForeignSection foreign(bReserved);
    const PrivateNames names(bench.imports, foreign.Key());
    CHECK(PrepareSendingMMFAndEvent() == 1);
    CHECK(names.Asked() == Asked{CREATE_BEGIN, CREATE_FINISH, CREATE_SECTION});
    const LogFile log = bench.ReadLog();
    REQUIRE(log.Lines().size() == 1);
    CHECK(log.Lines()[0].nLevel == 1);
    CHECK_THAT(log.Lines()[0].text, Catch::Matches("PrepareSendingMMFAndEvent -- MapViewOfFile fail\\([1-9][0-9]*\\), "
                                                   "XML Buffer Size\\(32768\\)"));
    CHECK(AreLocksFree());
}

} // namespace varnex::test
