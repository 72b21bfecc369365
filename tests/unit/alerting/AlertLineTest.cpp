#include "alerting/AlertLine.h"

#include "StoreBench.h"
#include "ZoneScript.h"

#include <catch2/catch.hpp>

#include <climits>
#include <cstring>

namespace varnex::test
{

namespace
{

VARNEX_ALERT_BUF RecordOf(int nType, int nThreshold, int nValue, int nHappenTime, const std::string& name,
                          const std::string& extra = "")
{
    VARNEX_ALERT_BUF record{nType, nThreshold, nValue, nHappenTime, "", ""};
    name.copy(record.ResourceName, sizeof record.ResourceName - 1);
    extra.copy(record.Extra, sizeof record.Extra - 1);
    return record;
}

std::string Formatted(const VARNEX_ALERT_BUF& record)
{
    char szLine[ALERT_LINE_CHARS];
    std::memset(szLine, '#', sizeof szLine);
    FormatAlertLine(record, szLine);
    return szLine;
}

VARNEX_ALERT_BUF Parsed(const std::string& line)
{
    VARNEX_ALERT_BUF record{};
    REQUIRE(ParseAlertLine(line.c_str(), &record) == 0);
    return record;
}

int ResultOfParsing(const std::string& line)
{
    VARNEX_ALERT_BUF record{};
    return ParseAlertLine(line.c_str(), &record);
}

} // namespace

TEST_CASE("an alert line shows the fields in order with the readable time in parentheses")
{
    ImportRedirector imports;
    UseUtc(imports);
    const VirtualClock clock(imports); // 2026

    CHECK(Formatted(RecordOf(3, 50, 72, MOMENT, "D1")) == "3;50;72;1706745599(2024-01-31 23:59:59);D1;\n");
    CHECK(Formatted(RecordOf(1, 85, 90, MOMENT, "")) == "1;85;90;1706745599(2024-01-31 23:59:59);;\n");
    CHECK(Formatted(RecordOf(4, -1, 0, 1, "a b", "more")) == "4;-1;0;1(1970-01-01 00:00:01);a b;more\n");
    CHECK(Formatted(RecordOf(INT_MIN, INT_MAX, INT_MIN, -1, "x")) ==
          "-2147483648;2147483647;-2147483648;-1(1969-12-31 23:59:59);x;\n");
    CHECK(Formatted(RecordOf(2, 1, 1, INT_MAX, "PH")) == "2;1;1;2147483647(2038-01-19 03:14:07);PH;\n");
}

TEST_CASE("the longest alert line keeps its line end")
{
    ImportRedirector imports;
    UseUtc(imports);
    const VirtualClock clock(imports); // 2026
    const std::string name(383, 'n');
    const std::string extra(31, 'e');

    CHECK(Formatted(RecordOf(INT_MIN, INT_MIN, INT_MIN, INT_MIN, name, extra)) ==
          "-2147483648;-2147483648;-2147483648;-2147483648(2038-01-19 03:14:08);" + name + ";" + extra + "\n");
}

TEST_CASE("a line's long texts are read up to a whole character")
{
    ImportRedirector imports;
    // A code page in which 0x81 begins a character of two bytes.
    imports.Replace<decltype(::IsDBCSLeadByte)>("IsDBCSLeadByte",
                                                [](BYTE byte) -> BOOL { return byte == 0x81 ? TRUE : FALSE; });
    const std::string name(382, 'n');
    const std::string extra(30, 'e');
    const VARNEX_ALERT_BUF record = Parsed("3;1;2;3;" + name + "\x81\x41;" + extra + "\x81\x41\n");
    CHECK(record.ResourceName == name);
    CHECK(record.Extra == extra);
    CHECK(Parsed("3;1;2;3;half a\x81;\n").ResourceName == std::string("half a\x81"));
}

TEST_CASE("the readable time of an alert line follows the rules of the moment that it shows")
{
    ImportRedirector imports;
    UseCentralEurope(imports);
    struct Row
    {
        int nHappenTime;
        const char* pszLocalTime;
    };
    const auto row = GENERATE(values<Row>({
        {1706745599, "2024-02-01 00:59:59"}, // winter
        {1720000000, "2024-07-03 11:46:40"}, // summer
        {1711846799, "2024-03-31 01:59:59"}, // the last second before summer time, and the first of it
        {1711846800, "2024-03-31 03:00:00"},
        {1729990799, "2024-10-27 02:59:59"}, // and at its end
        {1729990800, "2024-10-27 02:00:00"},
    }));
    const std::string number = std::to_string(row.nHappenTime);

    CHECK(Formatted(RecordOf(1, 2, 3, row.nHappenTime, "")) == "1;2;3;" + number + "(" + row.pszLocalTime + ");;\n");
}

TEST_CASE("a stored line gives its record back")
{
    const VARNEX_ALERT_BUF record = Parsed("3;50;72;1706745599(2024-01-31 23:59:59);0 C:;x\n");

    CHECK(record.AlertType == 3);
    CHECK(record.Threshold == 50);
    CHECK(record.Value == 72);
    CHECK(record.HappenTime == MOMENT);
    CHECK(record.ResourceName == std::string("0 C:"));
    CHECK(record.Extra == std::string("x"));
}

TEST_CASE("numbers of a stored line are taken as far as they are numbers")
{
    struct Row
    {
        const char* pszLine;
        int nType;
        int nThreshold;
        int nValue;
        int nHappenTime;
    };
    const auto row = GENERATE(values<Row>({
        {"1;2;3;4;;", 1, 2, 3, 4},
        {";;;;;", 0, 0, 0, 0},
        {"-1;-2;-3;-4;;", -1, -2, -3, -4},
        {" 7;+8;9x;10(1970-01-01 00:00:10);;", 7, 8, 9, 10},
        {"CPU;high;--3;(soon);;", 0, 0, 0, 0},
        {"99;2147483647;-2147483648;0;;", 99, INT_MAX, INT_MIN, 0},
        // A field without a number ends at its separator and takes nothing from the next one.
        {"; 2;;4;;", 0, 2, 0, 4},
    }));
    const VARNEX_ALERT_BUF record = Parsed(row.pszLine);

    CAPTURE(row.pszLine);
    CHECK(record.AlertType == row.nType);
    CHECK(record.Threshold == row.nThreshold);
    CHECK(record.Value == row.nValue);
    CHECK(record.HappenTime == row.nHappenTime);
}

TEST_CASE("a line with fewer than five separators is no alert")
{
    const auto line = GENERATE(values<std::string>(
        {"", "1", "\n", "1;2", "1;2;3", "1;2;3;4", "1;2;3;4;D1", "1;2;3;4(2024-01-31 23:59:59);D1\n"}));
    CAPTURE(line);
    CHECK(ResultOfParsing(line) == -1);
    CHECK(ResultOfParsing(line + ";;;;;") == 0);
}

TEST_CASE("parsing refuses null arguments")
{
    VARNEX_ALERT_BUF record{};

    CHECK(ParseAlertLine(nullptr, &record) == -1);
    CHECK(ParseAlertLine("1;2;3;4;;", nullptr) == -1);
    CHECK(ParseAlertLine(nullptr, nullptr) == -1);
}

TEST_CASE("a stored resource name is cut at 383 bytes")
{
    const std::string longest(383, 'n');

    CHECK(Parsed("3;1;1;1;" + longest + ";").ResourceName == longest);
    CHECK(Parsed("3;1;1;1;" + longest + "X;e").ResourceName == longest);
    CHECK(Parsed("3;1;1;1;" + longest + "X;e").Extra == std::string("e"));
}

TEST_CASE("the last field loses one line end character and is cut at 31 bytes")
{
    struct Row
    {
        std::string text;
        std::string extra;
    };
    const std::string longest(31, 'e');
    const std::string shorter(30, 'e');
    const auto row = GENERATE_COPY(values<Row>({
        {"", ""},
        {"\n", ""},
        {"\r", ""},
        {"\r\n", "\r"},
        {"\n\n", "\n"},
        {"x\n", "x"},
        {"x\r", "x"},
        {"x\r\n", "x\r"},
        {"x", "x"},
        {"a;b\n", "a;b"},
        {longest + "\n", longest},
        {longest + "X\n", longest},
        {shorter + "\n", shorter},
        {shorter + "\nX", shorter},
    }));
    CAPTURE(row.text);
    CHECK(Parsed("1;2;3;4;D1;" + row.text).Extra == row.extra);
}

TEST_CASE("a semicolon in a resource name shifts the rest into the last field")
{
    const VARNEX_ALERT_BUF record = Parsed("4;1;1;1;Port 1;2;\n");

    CHECK(record.ResourceName == std::string("Port 1"));
    CHECK(record.Extra == std::string("2;"));
}

TEST_CASE("what is formatted parses to the same record")
{
    const VARNEX_ALERT_BUF written = RecordOf(4, 60, 61, MOMENT, "Adapter (R) #2", "tail");
    const VARNEX_ALERT_BUF read = Parsed(Formatted(written));

    CHECK(std::memcmp(&read, &written, sizeof written) == 0);
}

} // namespace varnex::test
