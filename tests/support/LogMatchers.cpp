#include "support/LogMatchers.h"

namespace varnex::test
{

namespace
{

std::string Described(int nLevel, const std::string& text)
{
    return "[" + std::to_string(nLevel) + "] \"" + text + "\"";
}

} // namespace

bool HasLine::match(const LogFile& log) const
{
    return log.Has(m_nLevel, m_text);
}

std::string HasLine::describe() const
{
    return "has the line " + Described(m_nLevel, m_text);
}

bool HasLineContaining::match(const LogFile& log) const
{
    return log.CountContaining(m_part) != 0;
}

std::string HasLineContaining::describe() const
{
    return "has a line that contains \"" + m_part + "\"";
}

bool HasLinesInOrder::match(const LogFile& log) const
{
    std::size_t nFrom = 0;
    for (const Wanted& wanted : m_wanted)
    {
        const std::size_t nFound = log.Find(wanted.nLevel, wanted.text, nFrom);
        if (nFound == LogFile::npos)
        {
            return false;
        }
        nFrom = nFound + 1;
    }
    return true;
}

std::string HasLinesInOrder::describe() const
{
    std::string text = "has, in this order,";
    for (const Wanted& wanted : m_wanted)
    {
        text += "\n  " + Described(wanted.nLevel, wanted.text);
    }
    return text;
}

} // namespace varnex::test

std::string Catch::StringMaker<varnex::test::LogFile>::convert(const varnex::test::LogFile& log)
{
    return "the log:\n" + log.Bytes();
}
