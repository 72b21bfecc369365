#include "support/AlertLines.h"

#include "support/ModuleTree.h"

#include <catch2/catch.hpp>

#include <cstdlib>

namespace varnex::test
{

namespace
{

constexpr std::size_t FIELDS = 6;

std::vector<std::string> SplitFields(const std::string& line)
{
    std::vector<std::string> fields;
    std::size_t nStart = 0;
    for (std::size_t nEnd = line.find(';'); nEnd != std::string::npos; nEnd = line.find(';', nStart))
    {
        fields.push_back(line.substr(nStart, nEnd - nStart));
        nStart = nEnd + 1;
    }
    fields.push_back(line.substr(nStart));
    return fields;
}

// A whole decimal number; anything else fails the test.
long long NumberIn(const std::string& text)
{
    char* pszEnd = nullptr;
    const long long llNumber = std::strtoll(text.c_str(), &pszEnd, 10);
    INFO("number: " << text);
    REQUIRE(!text.empty());
    REQUIRE(*pszEnd == '\0');
    return llNumber;
}

AlertLine ParseAlertLine(const std::string& line)
{
    INFO("alert line: " << line);
    const std::vector<std::string> fields = SplitFields(line);
    REQUIRE(fields.size() == FIELDS);
    const std::string& moment = fields[3];
    const std::size_t nOpen = moment.find('(');
    REQUIRE(nOpen != std::string::npos);
    REQUIRE(moment.back() == ')');
    AlertLine alert;
    alert.nType = static_cast<int>(NumberIn(fields[0]));
    alert.nThreshold = static_cast<int>(NumberIn(fields[1]));
    alert.nValue = static_cast<int>(NumberIn(fields[2]));
    alert.llHappenTime = NumberIn(moment.substr(0, nOpen));
    alert.localTime = moment.substr(nOpen + 1, moment.size() - nOpen - 2);
    alert.resource = fields[4];
    alert.extra = fields[5];
    return alert;
}

} // namespace

std::vector<AlertLine> ParseAlertLines(const std::string& bytes)
{
    std::vector<AlertLine> alerts;
    std::size_t nStart = 0;
    while (nStart < bytes.size())
    {
        const std::size_t nEnd = bytes.find("\r\n", nStart);
        REQUIRE(nEnd != std::string::npos);
        alerts.push_back(ParseAlertLine(bytes.substr(nStart, nEnd - nStart)));
        nStart = nEnd + 2;
    }
    return alerts;
}

std::vector<AlertLine> ReadAlertLines(const ModuleTree& tree)
{
    return ParseAlertLines(tree.Alerts());
}

} // namespace varnex::test
