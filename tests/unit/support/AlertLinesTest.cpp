#include "support/AlertLines.h"
#include "support/ChildProcess.h"
#include "support/ModuleTree.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

TEST_CASE("stored alerts are read with all their fields")
{
    ModuleTree tree;
    tree.WriteAlerts("3;50;72;1706745599(2024-01-31 23:59:59);0 C:;\r\n"
                     "1;85;90;1706745600(2024-02-01 00:00:00);;more\r\n");
    const std::vector<AlertLine> alerts = ReadAlertLines(tree);
    REQUIRE(alerts.size() == 2);
    CHECK(alerts[0].nType == 3);
    CHECK(alerts[0].nThreshold == 50);
    CHECK(alerts[0].nValue == 72);
    CHECK(alerts[0].llHappenTime == 1706745599);
    CHECK(alerts[0].localTime == "2024-01-31 23:59:59");
    CHECK(alerts[0].resource == "0 C:");
    CHECK(alerts[0].extra.empty());
    CHECK(alerts[1].resource.empty());
    CHECK(alerts[1].extra == "more");
}

TEST_CASE("a store without alerts has none")
{
    CHECK(ReadAlertLines(ModuleTree()).empty());
}

TEST_CASE("child: reads an alert that ends in a line feed alone", "[.]")
{
    ParseAlertLines("3;50;72;1706745599(2024-01-31 23:59:59);0 C:;\n");
}

TEST_CASE("child: reads an alert with a field too few", "[.]")
{
    ParseAlertLines("3;50;72;1706745599(2024-01-31 23:59:59);0 C:\r\n");
}

TEST_CASE("an alert line of another form fails the test")
{
    for (const char* pszChild :
         {"child: reads an alert that ends in a line feed alone", "child: reads an alert with a field too few"})
    {
        const ChildProcess child = ChildProcess::OfTestCase(pszChild);
        REQUIRE(child.WaitForEnd(20000));
        CHECK(child.ExitCode() == 1);
        CHECK_THAT(child.Output(), Catch::Contains("1 failed"));
    }
}

} // namespace varnex::test
