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

// The fifth field of a line, cut to what a record holds.
std::string NameIn(const std::string& line, std::size_t cchRecord)
{
    std::size_t nBegin = 0;
    for (int i = 0; i < 4; ++i)
    {
        nBegin = line.find(';', nBegin) + 1;
    }
    return line.substr(nBegin, (std::min)(line.find(';', nBegin) - nBegin, cchRecord - 1));
}

} // namespace

TEST_CASE("any line is read within its memory: a record for five separators and a refusal for fewer")
{
    FuzzRun run(10);
    int nTaken = 0;
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
        const bool bWhole = std::count(line.begin(), line.end(), ';') >= 5;
        CAPTURE(run.Cases(), line);
        REQUIRE(nResult == (bWhole ? 0 : -1));
        (bWhole ? nTaken : nRefused) += 1;
        if (bWhole)
        {
            REQUIRE(IsTerminated(record.ResourceName, sizeof record.ResourceName));
            REQUIRE(IsTerminated(record.Extra, sizeof record.Extra));
            REQUIRE(record.ResourceName == NameIn(line, sizeof record.ResourceName));
        }
    }
    CHECK(nTaken > 100);
    CHECK(nRefused > 100);
    PrintFigure("hostile alert lines: " + std::to_string(nTaken) + " taken, " + std::to_string(nRefused) +
                " refused, 0 beyond their memory");
}

} // namespace varnex::test
