#include "alerting/AlertMessage.h"

#include "StoreBench.h"

#include "support/LogMatchers.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <memory>
#include <string>

namespace varnex::test
{

namespace
{

// What the host's name was asked with.
struct NameRequest
{
    COMPUTER_NAME_FORMAT format = ComputerNameMax;
    DWORD cchName = 0;
};

std::shared_ptr<NameRequest> UseHostName(ImportRedirector& imports, const std::wstring& name)
{
    const auto request = std::make_shared<NameRequest>();
    imports.Replace<decltype(::GetComputerNameExW)>("GetComputerNameExW",
                                                    [=](COMPUTER_NAME_FORMAT format, LPWSTR pwszName, LPDWORD pcchName)
                                                    {
                                                        *request = {format, *pcchName};
                                                        *pcchName =
                                                            static_cast<DWORD>(name.copy(pwszName, *pcchName - 1));
                                                        pwszName[*pcchName] = L'\0';
                                                        return TRUE;
                                                    });
    return request;
}

std::wstring MessageOf(int nType, const std::string& name)
{
    VARNEX_ALERT_BUF record{nType, 1, 2, MOMENT, "", ""};
    name.copy(record.ResourceName, sizeof record.ResourceName - 1);
    wchar_t wszText[1024];
    std::fill(std::begin(wszText), std::end(wszText), L'#');
    ComposeAlertMessage(record, wszText, 1024);
    return wszText;
}

const std::wstring g_head = L"2024-01-31 23:59:59, HOST01";

} // namespace

TEST_CASE("an alert's text shows the DNS name of the host")
{
    StoreBench bench;
    const auto request = UseHostName(bench.imports, L"h\x00F6st-\x4E2D");

    CHECK(MessageOf(1, "") == L"2024-01-31 23:59:59, h\x00F6st-\x4E2D");
    CHECK(request->format == ComputerNameDnsHostname);
    CHECK(request->cchName == 260);
}

TEST_CASE("an alert's text shows this host's own name")
{
    StoreBench bench;
    wchar_t wszName[260];
    DWORD cchName = 260;
    REQUIRE(GetComputerNameExW(ComputerNameDnsHostname, wszName, &cchName));

    CHECK(MessageOf(1, "") == L"2024-01-31 23:59:59, " + std::wstring(wszName));
}

TEST_CASE("a host without a name is Unknown and the log says why")
{
    StoreBench bench;
    bench.imports.FailCall("GetComputerNameExW", 1, FailMode::Once, ERROR_ACCESS_DENIED);

    CHECK(MessageOf(4, "A") == L"2024-01-31 23:59:59, Unknown, A");
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "GetAlertMessageHeader -- Get local host name failed(5)."));
}

TEST_CASE("a resource name is read in the code page of the system")
{
    StoreBench bench;
    UseHostName(bench.imports, L"HOST01");
    const std::wstring name = WideFromAnsi("Gr\xFC\xDF"
                                           "e (R)");
    REQUIRE(name != L"Gr\x00C3\x00BC");

    CHECK(MessageOf(3, "Gr\xFC\xDF"
                       "e (R)") == g_head + L", " + name);
    CHECK(MessageOf(4, "Gr\xFC\xDF"
                       "e (R)") == g_head + L", " + name);
}

TEST_CASE("a resource name is shown up to 259 characters")
{
    StoreBench bench;
    UseHostName(bench.imports, L"HOST01");

    CHECK(MessageOf(3, std::string(259, 'n')) == g_head + L", " + std::wstring(259, L'n'));
    CHECK(MessageOf(3, std::string(260, 'n')) == g_head + L", " + std::wstring(259, L'n'));
    CHECK(MessageOf(3, std::string(383, 'n')) == g_head + L", " + std::wstring(259, L'n'));
}

TEST_CASE("a resource name of several bytes a character is shown whole, and cut by its characters")
{
    StoreBench bench;
    UseHostName(bench.imports, L"HOST01");
    bench.imports.Replace<decltype(::MultiByteToWideChar)>(
        "MultiByteToWideChar", [](UINT, DWORD, LPCCH psz, int cb, LPWSTR pwsz, int cch)
        { return MultiByteToWideChar(CP_UTF8, 0, psz, cb, pwsz, cch); });
    std::string ideographs;
    for (int i = 0; i < 127; ++i)
    {
        ideographs += "\xE4\xB8\xAD"; // 381 bytes
    }
    CHECK(MessageOf(3, ideographs) == g_head + L", " + std::wstring(127, L'\x4E2D'));
    // The last place has no room for both halves of the pair.
    CHECK(MessageOf(3, std::string(258, 'n') + "\xF0\x9F\x98\x80") == g_head + L", " + std::wstring(258, L'n'));
    CHECK(MessageOf(3, std::string(257, 'n') + "\xF0\x9F\x98\x80") ==
          g_head + L", " + std::wstring(257, L'n') + L"\U0001F600");
}

TEST_CASE("a text is never written past the end of its buffer")
{
    StoreBench bench;
    UseHostName(bench.imports, L"HOST01");
    const VARNEX_ALERT_BUF record{3, 1, 2, MOMENT, "D1", ""};
    const std::wstring whole = g_head + L", D1";
    for (std::size_t cchText = 0; cchText <= whole.size() + 2; ++cchText)
    {
        std::wstring buffer(64, L'#');
        ComposeAlertMessage(record, buffer.data(), cchText);

        CAPTURE(cchText);
        const std::wstring shown = whole.substr(0, cchText == 0 ? 0 : cchText - 1);
        CHECK((cchText == 0 || buffer.c_str() == shown));
        CHECK(buffer.substr(cchText) == std::wstring(64 - cchText, L'#'));
    }
}

TEST_CASE("a memory alert of the paging file becomes a type of its own")
{
    struct Row
    {
        int nType;
        const char* pszName;
        int nMarked;
    };
    const auto row = GENERATE(values<Row>({
        {2, "PF", 5},
        {2, "pf", 5},
        {2, "pF", 5},
        {2, "PH", 2},
        {2, "", 2},
        {2, "P", 2},
        {2, "PFF", 2},
        {1, "PF", 1},
        {3, "PF", 3},
        {4, "PF", 4},
        {0, "PF", 0},
    }));
    VARNEX_ALERT_BUF record{row.nType, 1, 2, MOMENT, "", ""};
    std::string(row.pszName).copy(record.ResourceName, sizeof record.ResourceName - 1);

    MarkPagingFileAlert(record);
    CAPTURE(row.nType, row.pszName);
    CHECK(record.AlertType == row.nMarked);
    CHECK(record.ResourceName == std::string(row.pszName));
}

} // namespace varnex::test
