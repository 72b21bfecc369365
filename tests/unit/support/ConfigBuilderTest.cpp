#include "support/ConfigBuilder.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

TEST_CASE("an empty configuration has only its root")
{
    CHECK(ConfigBuilder().Build() ==
          "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<KPMConfiguration></KPMConfiguration>\r\n");
}

TEST_CASE("values stand under their parents, each parent once, later settings replacing earlier ones")
{
    const std::string text = ConfigBuilder()
                                 .Set("CPUInterval", 60)
                                 .SetLogLevel(4)
                                 .Set("CPUThreshold", "a<b")
                                 .Set("CPUInterval", 1)
                                 .SetCounter("Date", "2026-01-31")
                                 .Build();
    CHECK(text == "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
                  "<KPMConfiguration>\r\n"
                  "  <PkiAlert>\r\n"
                  "    <CPUInterval>1</CPUInterval>\r\n"
                  "    <CPUThreshold>a&lt;b</CPUThreshold>\r\n"
                  "  </PkiAlert>\r\n"
                  "  <VarnexLog>\r\n"
                  "    <Level>4</Level>\r\n"
                  "  </VarnexLog>\r\n"
                  "  <PkiAlertNum>\r\n"
                  "    <Date>2026-01-31</Date>\r\n"
                  "  </PkiAlertNum>\r\n"
                  "</KPMConfiguration>\r\n");
}

TEST_CASE("a whole policy is four values")
{
    const std::string text = ConfigBuilder().SetPolicy("Disk", 1, 2, 3, 4).Build();
    CHECK_THAT(text, Catch::Contains("<DiskInterval>1<") && Catch::Contains("<DiskThreshold>2<") &&
                         Catch::Contains("<DiskSamplingAmount>3<") && Catch::Contains("<DiskMaxAlertNum>4<"));
}

} // namespace varnex::test
