#pragma once

#include <optional>
#include <string>
#include <vector>

namespace varnex::test
{

// A second, plain reading of the alert file, which the module's is held against.

struct AlertText
{
    int nType;
    int nThreshold;
    int nValue;
    int nHappenTime;
    std::string name;
    std::string extra;
};

// A line, with its "\n" or without. Nothing for one with less than five separators.
std::optional<AlertText> ReadAlertText(const std::string& line);

struct AlertsRead
{
    std::vector<AlertText> alerts;
    std::string rest; // that was not read, with "\n" for line ends
};

// What a fetch at that moment takes out of a file of these bytes: nMost records at most, none of them expired.
AlertsRead ReadAlertTexts(const std::string& bytes, long long llNow, long long llMost);

} // namespace varnex::test
