#include "AlertReading.h"

#include "alerting/AlertRecord.h"

#include <algorithm>

namespace varnex::test
{

namespace
{

constexpr std::size_t LINE_CHARS = 1023; // what is longer is several lines
constexpr long long THREE_DAYS = 259'200;

// As many digits as there are behind blanks and one sign. What is too large wraps, as the run-time library's does.
int NumberIn(const std::string& field)
{
    std::size_t i = field.find_first_not_of(" \t\n\v\f\r");
    if (i == std::string::npos)
    {
        return 0;
    }
    const bool bMinus = field[i] == '-';
    i += bMinus || field[i] == '+' ? 1 : 0;
    unsigned nNumber = 0;
    for (; i < field.size() && field[i] >= '0' && field[i] <= '9'; ++i)
    {
        nNumber = nNumber * 10 + static_cast<unsigned>(field[i] - '0');
    }
    return static_cast<int>(bMinus ? 0U - nNumber : nNumber);
}

// Times have 32 bits, which begin anew in 2038: what lies ahead by less than half of them is later. 0 is no time.
bool IsYoung(int nHappenTime, long long llNow)
{
    const auto nAhead = static_cast<int>(static_cast<unsigned>(nHappenTime) - static_cast<unsigned>(llNow));
    return nHappenTime != 0 && nAhead > -THREE_DAYS;
}

// The bytes with the line ends of a text-mode stream.
std::string AsTextStream(const std::string& bytes)
{
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        const bool bLineEnd = bytes[i] == '\r' && i + 1 < bytes.size() && bytes[i + 1] == '\n';
        text += bLineEnd ? '\n' : bytes[i];
        i += bLineEnd ? 1 : 0;
    }
    return text;
}

} // namespace

std::optional<AlertText> ReadAlertText(const std::string& line)
{
    std::vector<std::string> fields;
    std::size_t nBegin = 0;
    for (std::size_t nEnd = line.find(';'); nEnd != std::string::npos && fields.size() < 5;
         nEnd = line.find(';', nBegin))
    {
        fields.push_back(line.substr(nBegin, nEnd - nBegin));
        nBegin = nEnd + 1;
    }
    if (fields.size() < 5)
    {
        return std::nullopt;
    }
    std::string extra = line.substr(nBegin, sizeof(VARNEX_ALERT_BUF::Extra) - 1);
    if (!extra.empty() && (extra.back() == '\n' || extra.back() == '\r'))
    {
        extra.pop_back();
    }
    return AlertText{NumberIn(fields[0]),
                     NumberIn(fields[1]),
                     NumberIn(fields[2]),
                     NumberIn(fields[3]),
                     fields[4].substr(0, sizeof(VARNEX_ALERT_BUF::ResourceName) - 1),
                     extra};
}

AlertsRead ReadAlertTexts(const std::string& bytes, long long llNow, long long llMost)
{
    AlertsRead read{{}, AsTextStream(bytes)};
    while (!read.rest.empty() && static_cast<long long>(read.alerts.size()) < llMost)
    {
        const std::size_t nEnd = (std::min)(read.rest.find('\n'), read.rest.size() - 1);
        const std::string piece = read.rest.substr(0, (std::min)(nEnd + 1, LINE_CHARS));
        read.rest.erase(0, piece.size());
        const std::optional<AlertText> alert = ReadAlertText(piece.c_str()); // up to a null character
        if (alert && IsYoung(alert->nHappenTime, llNow))
        {
            read.alerts.push_back(*alert);
        }
    }
    return read;
}

} // namespace varnex::test
