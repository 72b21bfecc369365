#include "alerting/AlertStore.h"

#include "StoreBench.h"

#include "support/LogMatchers.h"

#include <catch2/catch.hpp>

#include <climits>

namespace varnex::test
{

using Values = std::vector<int>;

TEST_CASE("without an alert file a fetch leaves an empty backup file")
{
    StoreBench bench;

    const Taken taken = bench.Take(5);
    CHECK(taken.nResult == -1);
    CHECK(taken.records.empty());
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(4, "ReadLocalAlertInf -- open file(" + bench.DataPath() + ") fail."));
    CHECK(bench.HasBackup());
    CHECK(bench.Backup().empty());
    CHECK_FALSE(bench.HasData());
    CHECK(bench.IsMutexFree());
}

TEST_CASE("a fetch takes one record more than asked for and leaves the rest")
{
    struct Row
    {
        int nStored;
        int nMaxCount;
        int nTaken;
    };
    const auto row = GENERATE(values<Row>({
        {0, 1, 0},
        {1, 1, 1},
        {2, 1, 2},
        {3, 1, 2},
        {3, 2, 3},
        {3, 3, 3},
        {9, 4, 5},
        {9, INT_MAX - 1, 9},
        {9, INT_MAX, 9},
        {3, 0, 1},
        {3, -1, 0},
        {3, INT_MIN, 0},
    }));
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(0, row.nStored));
    CAPTURE(row.nStored, row.nMaxCount);

    const Taken taken = bench.Take(row.nMaxCount);
    CHECK(taken.nResult == 0);
    REQUIRE(taken.records.size() == static_cast<std::size_t>(row.nTaken));
    for (int i = 0; i < row.nTaken; ++i)
    {
        CHECK(taken.Values()[static_cast<std::size_t>(i)] == i);
    }
    CHECK(bench.tree.Alerts() == LinesOf(row.nTaken, row.nStored - row.nTaken));
    CHECK(bench.HasData());
    CHECK_FALSE(bench.HasBackup());
    CHECK(bench.ReadLog().Bytes().empty());
}

TEST_CASE("fetch after fetch hands out every record once and in order")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 5));

    CHECK(bench.Take(1).Values() == Values{1, 2});
    CHECK(bench.Take(1).Values() == Values{3, 4});
    CHECK(bench.Take(1).Values() == Values{5});
    const Taken none = bench.Take(1);
    CHECK(none.nResult == 0);
    CHECK(none.records.empty());
    CHECK(bench.tree.Alerts().empty());
}

TEST_CASE("a fetched record holds every field of its line")
{
    StoreBench bench;
    bench.tree.WriteAlerts("4;60;61;1706745599(2024-01-31 23:59:59);Adapter #2;tail\r\n");

    const Taken taken = bench.Take(1);
    REQUIRE(taken.records.size() == 1);
    CHECK(taken.records[0].AlertType == 4);
    CHECK(taken.records[0].Threshold == 60);
    CHECK(taken.records[0].Value == 61);
    CHECK(taken.records[0].HappenTime == MOMENT);
    CHECK(taken.records[0].ResourceName == std::string("Adapter #2"));
    CHECK(taken.records[0].Extra == std::string("tail"));
}

TEST_CASE("a record is dropped at an age of three days and kept a second before")
{
    struct Row
    {
        int nAge;
        bool bKept;
    };
    const auto row = GENERATE(values<Row>({
        {THREE_DAYS - 1, true},
        {THREE_DAYS, false},
        {THREE_DAYS + 1, false},
        {0, true},
        {-86400, true}, // from a clock that was ahead
    }));
    StoreBench bench;
    bench.tree.WriteAlerts(LineOf(7, bench.Now() - row.nAge));
    CAPTURE(row.nAge);

    CHECK(bench.Take(1).Values() == (row.bKept ? Values{7} : Values{}));
    CHECK(bench.tree.Alerts().empty());
    CHECK(bench.ReadLog().Bytes().empty());
}

TEST_CASE("old records do not count and go with the fetch that reads them")
{
    StoreBench bench;
    const int nOld = bench.Now() - THREE_DAYS;
    bench.tree.WriteAlerts(LineOf(1, nOld) + LineOf(2) + LineOf(3, nOld) + LineOf(4) + LineOf(5, nOld) + LineOf(6));

    CHECK(bench.Take(1).Values() == Values{2, 4});
    // The old one behind the last one taken was not read.
    CHECK(bench.tree.Alerts() == LineOf(5, nOld) + LineOf(6));
}

TEST_CASE("a time that is no number reads as an old one")
{
    StoreBench bench;
    bench.tree.WriteAlerts("1;85;1;soon(2024-01-31 23:59:59);;\r\n" + LineOf(2));

    CHECK(bench.Take(1).Values() == Values{2});
    CHECK(bench.ReadLog().Bytes().empty());
}

TEST_CASE("empty lines are skipped without counting")
{
    StoreBench bench;
    bench.tree.WriteAlerts("\r\n\r\n" + LineOf(1) + "\r\n\n" + LineOf(2) + "\r\n" + LineOf(3) + LineOf(4));

    CHECK(bench.Take(1).Values() == Values{1, 2});
    CHECK(bench.tree.Alerts() == "\r\n" + LineOf(3) + LineOf(4));
    CHECK(bench.ReadLog().Bytes().empty());
}

TEST_CASE("a line that is no alert is logged and dropped without counting")
{
    StoreBench bench;
    bench.tree.WriteAlerts("1;2;3;4;no end\r\n" + LineOf(1) + "%s%n%d\r\n" + LineOf(2) + "behind\r\n");

    CHECK(bench.Take(1).Values() == Values{1, 2});
    CHECK(bench.tree.Alerts() == "behind\r\n");
    const LogFile log = bench.ReadLog();
    // The line comes with its line end, so the message breaks there.
    CHECK(log.Lines().size() == 2);
    CHECK(log.CountOfLevel(1) == 2);
    CHECK(log.Bytes().find("ReadLocalAlertInf -- Translate buffer string(1;2;3;4;no end\r\n"
                           ") to VARNEX_ALERT_BUF fail.\r\n") != std::string::npos);
    CHECK(log.Bytes().find("ReadLocalAlertInf -- Translate buffer string(%s%n%d\r\n"
                           ") to VARNEX_ALERT_BUF fail.\r\n") != std::string::npos);
}

TEST_CASE("a last line without a line end is a line")
{
    StoreBench bench;
    std::string torn = LineOf(2);
    torn.resize(torn.size() - 2);

    bench.tree.WriteAlerts(LineOf(1) + torn);
    CHECK(bench.Take(5).Values() == Values{1, 2});

    bench.tree.WriteAlerts(LineOf(1) + "torn");
    CHECK(bench.Take(5).Values() == Values{1});
    CHECK_THAT(bench.ReadLog(),
               HasLine(1, "ReadLocalAlertInf -- Translate buffer string(torn) to VARNEX_ALERT_BUF fail."));
}

TEST_CASE("a line of more than 1023 characters is read in two parts")
{
    StoreBench bench;
    const std::string head = "3;50;11;1706745599(x);D1;";
    const std::string padding(1023 - head.size(), 'e');

    SECTION("the second part is an alert of its own")
    {
        bench.tree.WriteAlerts(head + padding + LineOf(12) + LineOf(13));
        CHECK(bench.Take(5).Values() == Values{11, 12, 13});
        CHECK(bench.ReadLog().Bytes().empty());
    }
    SECTION("the second part is none")
    {
        bench.tree.WriteAlerts(head + padding + "rest\r\n" + LineOf(13));
        CHECK(bench.Take(5).Values() == Values{11, 13});
        CHECK(bench.ReadLog().Bytes().find("Translate buffer string(rest\r\n)") != std::string::npos);
    }
    SECTION("a line of exactly 1023 characters leaves an empty part that does not count")
    {
        bench.tree.WriteAlerts(head + padding + "\r\n" + LineOf(13));
        CHECK(bench.Take(1).Values() == Values{11, 13});
        CHECK(bench.ReadLog().Bytes().empty());
    }
}

TEST_CASE("the byte that ends a text for others is data")
{
    StoreBench bench;
    const std::string rest = "rest \x1A of\x1A\r\n" + LineOf(4);
    bench.tree.WriteAlerts("3;50;1;1706745599(x);D\x1A"
                           "1;\r\n\x1A\r\n" +
                           LineOf(2) + rest);

    const Taken taken = bench.Take(1);
    CHECK(taken.Values() == Values{1, 2});
    CHECK(taken.records[0].ResourceName == std::string("D\x1A"
                                                       "1"));
    CHECK(bench.tree.Alerts() == rest);
}

TEST_CASE("what was not read stays as it is byte by byte")
{
    StoreBench bench;
    const std::string rest = GENERATE(values<std::string>(
        {"\n", "a\nb\r\r\nc\r", std::string("nul\0nul\r\n", 9), "no end", std::string(100000, 'x'), "\r\n\r\n"}));
    bench.tree.WriteAlerts(LinesOf(1, 2) + rest);

    CHECK(bench.Take(1).Values() == Values{1, 2});
    CHECK(bench.tree.Alerts() == rest);
}

TEST_CASE("what an earlier fetch left in the backup file stays in front")
{
    struct Row
    {
        std::string left;
        std::string rest;
        std::string result;
    };
    const auto row = GENERATE(values<Row>({
        {LineOf(8), LineOf(3), LineOf(8) + LineOf(3)},
        {LineOf(8), "", LineOf(8)},
        {"", LineOf(3), LineOf(3)},
        // A torn line in it does not swallow the first one that follows; without one it stays as it is.
        {"torn", LineOf(3), "torn\r\n" + LineOf(3)},
        {"torn\r", LineOf(3), "torn\r\n" + LineOf(3)},
        {"torn", "", "torn"},
    }));
    StoreBench bench;
    bench.WriteBackup(row.left);
    bench.tree.WriteAlerts(LinesOf(1, 2) + row.rest);

    CHECK(bench.Take(1).Values() == Values{1, 2});
    CHECK(bench.tree.Alerts() == row.result);
    CHECK_FALSE(bench.HasBackup());
}

TEST_CASE("without an alert file what the backup file holds is kept")
{
    StoreBench bench;
    bench.WriteBackup(LineOf(8));

    CHECK(bench.Take(1).nResult == -1);
    CHECK(bench.Backup() == LineOf(8));
}

TEST_CASE("a fetch reads through more records than fit one read")
{
    StoreBench bench;
    constexpr int nStored = 1000; // 41 bytes and more each
    bench.tree.WriteAlerts(LinesOf(0, nStored));

    const Values first = bench.Take(799).Values();
    const Values second = bench.Take(799).Values();
    CHECK(first.size() == 800);
    CHECK(second.size() == 200);
    CHECK(first.back() == 799);
    CHECK(second.front() == 800);
    CHECK(second.back() == 999);
}

TEST_CASE("a fetch leaves no handle behind")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 9));

    CHECK(HandlesGainedBy([&] { bench.Take(1); }) == 0);
    CHECK(bench.tree.Alerts() == LinesOf(5, 5));
}

} // namespace varnex::test
