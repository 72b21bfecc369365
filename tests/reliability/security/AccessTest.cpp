#include "HostUnderAttack.h"
#include "HostileObject.h"
#include "LostName.h"

#include "support/TestText.h"

#include <catch2/catch.hpp>

// Objects of the right kind that somebody made first, with an access list that keeps the module out.

namespace varnex::test
{

namespace
{

using Kind = HostileObject::Kind;

} // namespace

TEST_CASE("an object that nobody may use takes away what it is for, and nothing else of the host's")
{
    const std::size_t nName = GENERATE(range(std::size_t{0}, std::size(LOST_NAMES)));
    const LostName& name = LOST_NAMES[nName];
    CAPTURE(Utf8FromWide(name.pwszName));
    const HostileObject closed(name.own, name.pwszName, "D:");
    CheckLifeWithout(name, "(5)");
}

TEST_CASE("a host that may not use its log's mutex writes no line and does all its work")
{
    CheckLifeWithoutLog(Kind::Mutex, "D:");
}

TEST_CASE("a section that may only be read is refused, and reports are not made")
{
    const HostileObject section(Kind::Section, SECTION_NAME, "D:(A;;GR;;;WD)");
    HostUnderAttack host;
    host.Begin();
    CHECK(host.AwaitAlerts());
    host.End();
    CHECK_THAT(host.Log(), HasLineContaining("PrepareSendingMMFAndEvent -- CreateFileMapping fail(5)"));
}

} // namespace varnex::test
