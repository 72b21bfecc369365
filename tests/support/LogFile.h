#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace varnex::test
{

class ModuleTree;

// One message of the module's log: "2026-01-31 23:59:59 [2] - text".
struct LogLine
{
    std::string stamp; // "2026-01-31 23:59:59"
    int nLevel;
    std::string text; // without the line's end
};

// The module's log at one moment. LogMatchers.h has the matchers that go with it.
//
//     const LogFile log(tree);
//     CHECK(log.Count(3, "GetCPUNameListW -- get processor name instance finish.") == 1);
//     CHECK_THAT(log, HasLine(4, "Monitor CPU Utilization thread end..."));
class LogFile
{
public:
    // Logs\Varnex.log; an absent file is an empty log.
    explicit LogFile(const ModuleTree& tree);
    static LogFile FromBytes(std::string bytes);

    const std::string& Bytes() const noexcept { return m_bytes; }
    // The messages in order. A line without a header (a message's second line, the empty line of each load) is none.
    const std::vector<LogLine>& Lines() const noexcept { return m_lines; }
    // Every line of the file without its end, messages and others.
    const std::vector<std::string>& RawLines() const noexcept { return m_rawLines; }

    std::size_t Count(int nLevel, const std::string& text) const;
    std::size_t CountContaining(const std::string& part) const;
    std::size_t CountOfLevel(int nLevel) const;
    bool Has(int nLevel, const std::string& text) const;
    // The position in Lines() of the first such message at or after nFrom, or npos: for tests of an order.
    std::size_t Find(int nLevel, const std::string& text, std::size_t nFrom = 0) const;

    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

private:
    LogFile() = default;
    void Parse();

    std::string m_bytes;
    std::vector<LogLine> m_lines;
    std::vector<std::string> m_rawLines;
};

} // namespace varnex::test
