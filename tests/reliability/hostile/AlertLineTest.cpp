#include "AlertReading.h"
#include "HostileInput.h"

#include "reliability/LongForm.h"

#include "alerting/AlertLine.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <cstring>

namespace varnex::test
{

namespace
{

const std::vector<std::string> WORDS = {
    ";", ";;;;;", "\r\n", "\n", "\r", "%s%n", "(", "-", "2147483648", "-2147483649", "99999999999999999999", "0", "PF"};

bool IsTerminated(const char* pszText, std::size_t cchText)
{
    return std::memchr(pszText, '\0', cchText) != nullptr;
}

// The record as a second reading has the line.
bool IsSame(const VARNEX_ALERT_BUF& record, const AlertText& alert)
{
    return record.AlertType == alert.nType && record.Threshold == alert.nThreshold && record.Value == alert.nValue &&
           record.HappenTime == alert.nHappenTime && record.ResourceName == alert.name && record.Extra == alert.extra;
}

} // namespace

TEST_CASE("any line is read within its memory: its fields for five separators and a refusal for fewer")
{
    FuzzRun run(10);
    int nTaken = 0;
    int nSame = 0;
    int nRefused = 0;
    while (run.Next())
    {
        std::string line = Mutated("3;50;72;1706745599(2024-01-31 23:59:59);0 C:;\r\n", WORDS, run);
        line.resize(std::strlen(line.c_str()));
        const GuardedBytes text(line);
        const GuardedBytes memory(sizeof(VARNEX_ALERT_BUF));
        auto& record = *memory.As<VARNEX_ALERT_BUF>();
        std::memset(&record, 'x', sizeof record);
        const int nResult = ParseAlertLine(text.As<char>(), &record);
        const std::optional<AlertText> expected = ReadAlertText(line);
        CAPTURE(run.Cases(), line);
        REQUIRE(nResult == (expected ? 0 : -1));
        (expected ? nTaken : nRefused) += 1;
        if (expected)
        {
            REQUIRE(IsTerminated(record.ResourceName, sizeof record.ResourceName));
            REQUIRE(IsTerminated(record.Extra, sizeof record.Extra));
            REQUIRE(IsSame(record, *expected));
            ++nSame;
        }
    }
    CHECK(nTaken > 100);
    CHECK(nRefused > 100);
    PrintFigure("hostile alert lines: " + std::to_string(nTaken) + " taken, " + std::to_string(nSame) +
                " of them with the fields of a second reading, " + std::to_string(nRefused) + " refused");
}

} // namespace varnex::test
