#include "diag/ExceptionBarrier.h"

#include "LogFixture.h"

#include <new>
#include <stdexcept>

namespace varnex::test
{

TEST_CASE("a body that ends well gives its own result and logs nothing")
{
    LogFixture fixture;
    CHECK(StopExceptions("Operation", -1, [] { return 7; }) == 7);
    CHECK(fixture.tree.FilesInLogs().empty());
}

TEST_CASE("a standard exception is logged with its text at level 1, and the failure is the result")
{
    LogFixture fixture;
    const int nResult =
        StopExceptions("SaveAlertNumIntoLocal", -1, []() -> int { throw std::runtime_error("broken"); });
    CHECK(nResult == -1);
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [1] - SaveAlertNumIntoLocal -- exception stopped(broken).\r\n");
}

TEST_CASE("any other exception is logged without a text at level 1, and the failure is the result")
{
    LogFixture fixture;
    SECTION("a number")
    {
        CHECK(StopExceptions("GetAlertRecord", -1, []() -> int { throw 42; }) == -1);
    }
    SECTION("a text")
    {
        CHECK(StopExceptions("GetAlertRecord", -1, []() -> int { throw "text"; }) == -1);
    }
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [1] - GetAlertRecord -- unknown exception stopped.\r\n");
}

TEST_CASE("the text of an exception is never taken for a format")
{
    LogFixture fixture;
    StopExceptions("Operation", 0, []() -> int { throw std::logic_error("%s%n 100%"); });
    CHECK_THAT(LogFile(fixture.tree), HasLine(1, "Operation -- exception stopped(%s%n 100%)."));
}

TEST_CASE("the failure has the result's own type")
{
    LogFixture fixture;
    const HRESULT nResult = StopExceptions("Operation", E_OUTOFMEMORY, []() -> HRESULT { throw std::bad_alloc(); });
    CHECK(nResult == E_OUTOFMEMORY);
    CHECK(StopExceptions("Operation", 0xFFFFFFFFu, []() -> unsigned { throw 1; }) == 0xFFFFFFFFu);
    CHECK(StopExceptions("Operation", false, []() -> bool { throw 1; }) == false);
    CHECK(LogFile(fixture.tree).CountOfLevel(1) == 3);
}

TEST_CASE("an exception is stopped even when its line cannot be written")
{
    LogFixture fixture;
    fixture.redirector.FailCall("CreateFileA", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED,
                                static_cast<ULONGLONG>(-1));
    CHECK(StopExceptions("Operation", -1, []() -> int { throw std::runtime_error("broken"); }) == -1);
    CHECK(fixture.redirector.Failures("CreateFileA") == 1);
}

TEST_CASE("what a body owns is gone when its exception has been stopped")
{
    LogFixture fixture;
    int nOwned = 0;
    struct Owner
    {
        int& nCount;
        explicit Owner(int& nShared) : nCount(nShared) { ++nCount; }
        ~Owner() { --nCount; }
    };
    StopExceptions("Operation", 0,
                   [&]() -> int
                   {
                       const Owner owner(nOwned);
                       throw std::runtime_error("broken");
                   });
    CHECK(nOwned == 0);
}

} // namespace varnex::test
