#include "support/LogFile.h"

#include "support/ModuleTree.h"

#include <algorithm>
#include <cctype>

namespace varnex::test
{

namespace
{

constexpr char HEADER_FORM[] = "dddd-dd-dd dd:dd:dd [d] - "; // d is a digit
constexpr std::size_t HEADER_LENGTH = sizeof(HEADER_FORM) - 1;
constexpr std::size_t STAMP_LENGTH = 19;
constexpr std::size_t LEVEL_AT = 21;

bool HasHeader(const std::string& line)
{
    if (line.size() < HEADER_LENGTH)
    {
        return false;
    }
    return std::equal(HEADER_FORM, HEADER_FORM + HEADER_LENGTH, line.begin(),
                      [](char chForm, char chLine) {
                          return chForm == 'd' ? std::isdigit(static_cast<unsigned char>(chLine)) != 0
                                               : chForm == chLine;
                      });
}

std::vector<std::string> SplitLines(const std::string& bytes)
{
    std::vector<std::string> lines;
    std::size_t nStart = 0;
    while (nStart < bytes.size())
    {
        const std::size_t nEnd = std::min(bytes.find('\n', nStart), bytes.size());
        std::string line = bytes.substr(nStart, nEnd - nStart);
        if (!line.empty() && line.back() == '\r')
        {
            line.pop_back();
        }
        lines.push_back(std::move(line));
        nStart = nEnd + 1;
    }
    return lines;
}

} // namespace

LogFile::LogFile(const ModuleTree& tree) : m_bytes(tree.Log())
{
    Parse();
}

LogFile LogFile::FromBytes(std::string bytes)
{
    LogFile log;
    log.m_bytes = std::move(bytes);
    log.Parse();
    return log;
}

void LogFile::Parse()
{
    m_rawLines = SplitLines(m_bytes);
    for (const std::string& line : m_rawLines)
    {
        if (HasHeader(line))
        {
            m_lines.push_back({line.substr(0, STAMP_LENGTH), line[LEVEL_AT] - '0', line.substr(HEADER_LENGTH)});
        }
    }
}

std::size_t LogFile::Count(int nLevel, const std::string& text) const
{
    const auto isWanted = [&](const LogLine& line) { return line.nLevel == nLevel && line.text == text; };
    return static_cast<std::size_t>(std::count_if(m_lines.begin(), m_lines.end(), isWanted));
}

std::size_t LogFile::CountContaining(const std::string& part) const
{
    const auto isWanted = [&](const LogLine& line) { return line.text.find(part) != std::string::npos; };
    return static_cast<std::size_t>(std::count_if(m_lines.begin(), m_lines.end(), isWanted));
}

std::size_t LogFile::CountOfLevel(int nLevel) const
{
    const auto isWanted = [&](const LogLine& line) { return line.nLevel == nLevel; };
    return static_cast<std::size_t>(std::count_if(m_lines.begin(), m_lines.end(), isWanted));
}

bool LogFile::Has(int nLevel, const std::string& text) const
{
    return Count(nLevel, text) != 0;
}

std::size_t LogFile::Find(int nLevel, const std::string& text, std::size_t nFrom) const
{
    for (std::size_t nLine = nFrom; nLine < m_lines.size(); ++nLine)
    {
        if (m_lines[nLine].nLevel == nLevel && m_lines[nLine].text == text)
        {
            return nLine;
        }
    }
    return npos;
}

} // namespace varnex::test
