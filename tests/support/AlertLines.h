#pragma once

#include <string>
#include <vector>

namespace varnex::test
{

class ModuleTree;

// One line of LocalAlt.dat: "3;50;72;1706745599(2024-01-31 23:59:59);D1;".
struct AlertLine
{
    int nType;
    int nThreshold;
    int nValue;
    long long llHappenTime;
    std::string localTime; // the text in the parentheses
    std::string resource;
    std::string extra;
};

// The stored alerts in file order. A line that does not have this form, or does not end in CR LF, fails the test.
std::vector<AlertLine> ReadAlertLines(const ModuleTree& tree);
std::vector<AlertLine> ParseAlertLines(const std::string& bytes);

} // namespace varnex::test
