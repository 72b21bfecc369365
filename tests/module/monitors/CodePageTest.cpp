// Names of double-byte characters, in a real process under code page 932.

#include "MonitoredModule.h"

#include "support/TestText.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

// A katakana letter, whose second byte is that of "A", and how the code page has it.
constexpr wchar_t LETTER = L'\x30A2';
constexpr char LETTER_BYTES[] = "\x83\x41";

std::string Letters(int nCount)
{
    std::string bytes;
    for (int i = 0; i < nCount; ++i)
    {
        bytes += LETTER_BYTES;
    }
    return bytes;
}

} // namespace

TEST_CASE("code page 932: an alert's text shows the whole name, or as many whole characters as are kept", "[.]")
{
    REQUIRE(GetACP() == 932);
    struct Row
    {
        std::string stored;
        std::wstring shown;
    };
    const auto row = GENERATE(values<Row>({
        {Letters(150), std::wstring(150, LETTER)},
        {Letters(191), std::wstring(191, LETTER)},
        {Letters(200), std::wstring(191, LETTER)}, // the 383rd byte would be half a letter
        {"n" + Letters(200), L"n" + std::wstring(191, LETTER)},
        {std::string(258, 'n') + Letters(2), std::wstring(258, L'n') + LETTER},
    }));
    MonitoredModule host({});
    host.tree.WriteAlerts("3;50;72;2147483647(2038-01-19 03:14:07);" + row.stored + ";\r\n");
    const std::vector<FetchedAlert> alerts = FetchAlerts(host);
    REQUIRE(alerts.size() == 1);
    CHECK(alerts[0].text.substr(alerts[0].text.rfind(L' ') + 1) == row.shown);
}

TEST_CASE("code page 932: an adapter's name is stored in whole characters, at most 255 bytes of them", "[.]")
{
    REQUIRE(GetACP() == 932);
    MonitoredModule host(ConfigBuilder().SetPolicy("Network", 10, 60, 1, 5));
    host.wmi.SetObjects({WmiAdapter(std::wstring(150, LETTER), 2, WmiText(L"1000000"))});
    host.interfaces.AddRow(2);
    host.interfaces.SetOctets(2, 1000, 2000);
    host.interfaces.MoveAtEachRead(2, 80 * 1250, 0);
    host.Start(VARNEX_ALERT_NETWORK);
    host.clock.Advance(1);
    host.StopAndEnd(VARNEX_ALERT_NETWORK);
    CHECK(host.Alerts() == Lines{"4;60;80;" + Letters(127)});
    const std::vector<FetchedAlert> alerts = FetchAlerts(host);
    REQUIRE(alerts.size() == 1);
    CHECK(alerts[0].text.substr(alerts[0].text.rfind(L' ') + 1) == std::wstring(127, LETTER));
}

} // namespace varnex::test
