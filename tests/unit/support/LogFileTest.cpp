#include "support/LogMatchers.h"
#include "support/ModuleTree.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

const char LOG[] = "\r\n\r\n"
                   "2026-01-31 23:59:59 [2] - First -- text\r\n"
                   "2026-02-01 00:00:00 [4] - Second -- text\r\n"
                   "a second line of the second message\r\n"
                   "2026-02-01 00:00:00 [2] - First -- text\r\n"
                   "2026-02-01 0:00:00 [2] - not a header\r\n";

} // namespace

TEST_CASE("a log is taken apart into its messages")
{
    const LogFile log = LogFile::FromBytes(LOG);
    REQUIRE(log.Lines().size() == 3);
    CHECK(log.Lines()[1].stamp == "2026-02-01 00:00:00");
    CHECK(log.Lines()[1].nLevel == 4);
    CHECK(log.Lines()[1].text == "Second -- text");
    CHECK(log.RawLines().size() == 7);
    CHECK(log.RawLines()[4] == "a second line of the second message");
    CHECK(log.Bytes() == LOG);
}

TEST_CASE("messages are counted by level and text")
{
    const LogFile log = LogFile::FromBytes(LOG);
    CHECK(log.Count(2, "First -- text") == 2);
    CHECK(log.Count(1, "First -- text") == 0);
    CHECK(log.Count(2, "First") == 0);
    CHECK(log.CountContaining("-- te") == 3);
    CHECK(log.CountOfLevel(4) == 1);
    CHECK(log.Find(2, "First -- text") == 0);
    CHECK(log.Find(2, "First -- text", 1) == 2);
    CHECK(log.Find(3, "First -- text") == LogFile::npos);
}

TEST_CASE("the matchers accept what is there and nothing else")
{
    const LogFile log = LogFile::FromBytes(LOG);
    CHECK_THAT(log, HasLine(4, "Second -- text"));
    CHECK_THAT(log, !HasLine(3, "Second -- text"));
    CHECK_THAT(log, HasLineContaining("cond"));
    CHECK_THAT(log, !HasLineContaining("third"));
    CHECK_THAT(log, HasLinesInOrder({{2, "First -- text"}, {4, "Second -- text"}, {2, "First -- text"}}));
    CHECK_THAT(log, !HasLinesInOrder({{4, "Second -- text"}, {4, "Second -- text"}}));
}

TEST_CASE("a tree without a log has an empty one")
{
    const ModuleTree tree;
    CHECK(LogFile(tree).Lines().empty());
    WriteFileBytes(tree.InLogs(L"Varnex.log"), LOG);
    CHECK(LogFile(tree).Lines().size() == 3);
}

} // namespace varnex::test
