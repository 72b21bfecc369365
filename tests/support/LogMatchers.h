#pragma once

#include "support/LogFile.h"

#include <catch2/catch.hpp>

#include <string>

namespace varnex::test
{

// Matchers for LogFile: CHECK_THAT(log, HasLine(2, "...") && !HasLineContaining("fail")). A mismatch prints the log.
class HasLine : public Catch::MatcherBase<LogFile>
{
public:
    HasLine(int nLevel, std::string text) : m_nLevel(nLevel), m_text(std::move(text)) {}
    bool match(const LogFile& log) const override;
    std::string describe() const override;

private:
    int m_nLevel;
    std::string m_text;
};

class HasLineContaining : public Catch::MatcherBase<LogFile>
{
public:
    explicit HasLineContaining(std::string part) : m_part(std::move(part)) {}
    bool match(const LogFile& log) const override;
    std::string describe() const override;

private:
    std::string m_part;
};

// The messages stand in the log in this order; others may stand between them.
class HasLinesInOrder : public Catch::MatcherBase<LogFile>
{
public:
    struct Wanted
    {
        int nLevel;
        std::string text;
    };
    explicit HasLinesInOrder(std::vector<Wanted> wanted) : m_wanted(std::move(wanted)) {}
    bool match(const LogFile& log) const override;
    std::string describe() const override;

private:
    std::vector<Wanted> m_wanted;
};

} // namespace varnex::test

namespace Catch
{
template <>
struct StringMaker<varnex::test::LogFile>
{
    static std::string convert(const varnex::test::LogFile& log);
};
} // namespace Catch
