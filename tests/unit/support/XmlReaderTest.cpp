#include "support/XmlReader.h"

#include "support/ChildProcess.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

TEST_CASE("the nodes of a text are found by their paths")
{
    const XmlReader document = XmlReader::FromText(L"<R><C N=\"0\">a</C><C N=\"1\">b</C></R>");
    CHECK(document.Count(L"R/C") == 2);
    CHECK(document.Texts(L"R/C") == std::vector<std::wstring>{L"a", L"b"});
    CHECK(document.Text(L"R/C/@N") == L"0");
    CHECK_FALSE(document.Text(L"R/D").has_value());
}

TEST_CASE("child: reads a text that is no document", "[.]")
{
    XmlReader::FromText(L"<R>");
}

TEST_CASE("a text that does not parse fails the test")
{
    const ChildProcess child = ChildProcess::OfTestCase("child: reads a text that is no document");
    REQUIRE(child.WaitForEnd(20000));
    CHECK(child.ExitCode() == 1);
    CHECK_THAT(child.Output(), Catch::Contains("Not an XML text"));
}

} // namespace varnex::test
