#include "StoreBench.h"
#include "ZoneScript.h"

#include "support/LogMatchers.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <climits>
#include <new>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

using Numbers = std::vector<int>;
using Texts = std::vector<std::wstring>;

constexpr int g_nUntouched = -777;
constexpr wchar_t g_wchUntouched = L'#';

// The arrays of a host, with room for one record more than asked for, and a bit behind it to see what is not touched.
class Fetch
{
public:
    static constexpr unsigned cchText = 700;

    explicit Fetch(std::size_t nEntries)
        : types(nEntries, g_nUntouched), thresholds(nEntries, g_nUntouched), values(nEntries, g_nUntouched),
          m_buffers(nEntries, std::wstring(cchText, g_wchUntouched)), m_texts(nEntries)
    {
        for (std::size_t i = 0; i < nEntries; ++i)
        {
            m_texts[i] = m_buffers[i].data();
        }
    }
    void LeaveOutText(std::size_t nIndex) { m_texts[nIndex] = nullptr; }
    int Run(int nMaxCount, unsigned cchOffered = cchText)
    {
        return GetAlertRecord(types.data(), m_texts.data(), cchOffered, thresholds.data(), values.data(), nMaxCount);
    }
    std::wstring Text(std::size_t nIndex) const { return m_buffers[nIndex].c_str(); }
    bool IsTextUntouched(std::size_t nIndex) const
    {
        return m_buffers[nIndex] == std::wstring(cchText, g_wchUntouched);
    }
    bool IsUntouched(std::size_t nIndex) const
    {
        return types[nIndex] == g_nUntouched && thresholds[nIndex] == g_nUntouched && values[nIndex] == g_nUntouched &&
               IsTextUntouched(nIndex);
    }

    Numbers types;
    Numbers thresholds;
    Numbers values;

private:
    std::vector<std::wstring> m_buffers;
    std::vector<wchar_t*> m_texts;
};

// A store whose host is called HOST01.
class HostBench : public StoreBench
{
public:
    HostBench()
    {
        imports.Replace<decltype(::GetComputerNameExW)>("GetComputerNameExW",
                                                        [](COMPUTER_NAME_FORMAT, LPWSTR pwszName, LPDWORD pcchName)
                                                        {
                                                            *pcchName = static_cast<DWORD>(
                                                                std::wstring(L"HOST01").copy(pwszName, *pcchName));
                                                            pwszName[*pcchName] = L'\0';
                                                            return TRUE;
                                                        });
    }
};

std::string LineOfType(int nType, const std::string& name)
{
    return std::to_string(nType) + ";50;72;1706745599(" + MOMENT_TEXT + ");" + name + ";\r\n";
}

} // namespace

TEST_CASE("a fetch hands out types and texts and thresholds and values in file order")
{
    HostBench bench;
    bench.tree.WriteAlerts("1;85;90;1706745599(x);;\r\n"
                           "2;80;81;1706745600(x);PH;\r\n"
                           "2;70;71;1706745601(x);PF;\r\n"
                           "3;50;72;1706745602(x);0 C:;\r\n"
                           "4;60;61;1706745603(x);Adapter #2;\r\n");
    Fetch fetch(7);

    CHECK(fetch.Run(5) == 5);
    CHECK(fetch.types == Numbers{1, 2, 5, 3, 4, g_nUntouched, g_nUntouched});
    CHECK(fetch.thresholds == Numbers{85, 80, 70, 50, 60, g_nUntouched, g_nUntouched});
    CHECK(fetch.values == Numbers{90, 81, 71, 72, 61, g_nUntouched, g_nUntouched});
    CHECK(fetch.Text(0) == L"2024-01-31 23:59:59, HOST01");
    CHECK(fetch.Text(1) == L"2024-02-01 00:00:00, HOST01");
    CHECK(fetch.Text(2) == L"2024-02-01 00:00:01, HOST01");
    CHECK(fetch.Text(3) == L"2024-02-01 00:00:02, HOST01, 0 C:");
    CHECK(fetch.Text(4) == L"2024-02-01 00:00:03, HOST01, Adapter #2");
    CHECK(fetch.IsUntouched(5));
    CHECK(fetch.IsUntouched(6));
    CHECK(bench.ReadLog().Bytes().empty());
}

TEST_CASE("a type and a text go by the type and the name of the stored line")
{
    struct Row
    {
        int nStoredType;
        const char* pszName;
        int nType;
        const wchar_t* pwszText;
    };
    const auto row = GENERATE(values<Row>({
        {1, "", 1, L"2024-01-31 23:59:59, HOST01"},
        {1, "PF", 1, L"2024-01-31 23:59:59, HOST01"},
        {2, "PH", 2, L"2024-01-31 23:59:59, HOST01"},
        {2, "PF", 5, L"2024-01-31 23:59:59, HOST01"},
        {2, "pf", 5, L"2024-01-31 23:59:59, HOST01"},
        {2, "Pf", 5, L"2024-01-31 23:59:59, HOST01"},
        {2, "PF ", 2, L"2024-01-31 23:59:59, HOST01"},
        {2, "PFX", 2, L"2024-01-31 23:59:59, HOST01"},
        {2, "", 2, L"2024-01-31 23:59:59, HOST01"},
        {3, "D1", 3, L"2024-01-31 23:59:59, HOST01, D1"},
        {3, "", 3, L"2024-01-31 23:59:59, HOST01"},
        {3, "PF", 3, L"2024-01-31 23:59:59, HOST01, PF"},
        {4, "A %s", 4, L"2024-01-31 23:59:59, HOST01, A %s"},
        {4, "", 4, L"2024-01-31 23:59:59, HOST01"},
        {5, "D1", 5, L"2024-01-31 23:59:59, HOST01"},
        {99, "D1", 99, L"2024-01-31 23:59:59, HOST01"},
        {-3, "D1", -3, L"2024-01-31 23:59:59, HOST01"},
    }));
    CAPTURE(row.nStoredType, row.pszName);
    HostBench bench;
    bench.tree.WriteAlerts(LineOfType(row.nStoredType, row.pszName));
    Fetch fetch(2);

    CHECK(fetch.Run(1) == 1);
    CHECK(fetch.types[0] == row.nType);
    CHECK(fetch.Text(0) == row.pwszText);
}

TEST_CASE("a record without a text buffer is handed out all the same and a paging file keeps its type")
{
    HostBench bench;
    bench.tree.WriteAlerts(LineOfType(2, "PF") + LineOfType(3, "D1"));
    Fetch fetch(3);
    fetch.LeaveOutText(0);

    CHECK(fetch.Run(2) == 2);
    CHECK(fetch.types == Numbers{5, 3, g_nUntouched});
    CHECK(fetch.thresholds[0] == 50);
    CHECK(fetch.values[0] == 72);
    CHECK(fetch.IsTextUntouched(0));
    CHECK(fetch.Text(1) == L"2024-01-31 23:59:59, HOST01, D1");
}

TEST_CASE("a fetch of one hands out two and leaves the third")
{
    HostBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    Fetch fetch(3);

    CHECK(fetch.Run(1) == 2);
    CHECK(fetch.values == Numbers{1, 2, g_nUntouched});
    CHECK(fetch.IsUntouched(2));
    CHECK(bench.tree.Alerts() == LineOf(3));
}

TEST_CASE("a fetch without a limit hands out what there is")
{
    HostBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    Fetch fetch(4);

    CHECK(fetch.Run(INT_MAX) == 3);
    CHECK(fetch.values == Numbers{1, 2, 3, g_nUntouched});
}

TEST_CASE("a text is cut to the buffer and terminated")
{
    struct Row
    {
        unsigned cchText;
        const wchar_t* pwszText;
    };
    const auto row = GENERATE(values<Row>({
        {1, L""},
        {2, L"2"},
        {19, L"2024-01-31 23:59:5"},
        {20, L"2024-01-31 23:59:59"},
        {21, L"2024-01-31 23:59:59,"},
        {28, L"2024-01-31 23:59:59, HOST01"},
        {29, L"2024-01-31 23:59:59, HOST01,"},
        {31, L"2024-01-31 23:59:59, HOST01, D"},
        {32, L"2024-01-31 23:59:59, HOST01, D1"},
        {33, L"2024-01-31 23:59:59, HOST01, D1"},
        {static_cast<unsigned>(INT_MAX), L"2024-01-31 23:59:59, HOST01, D1"},
        {static_cast<unsigned>(-1), L"2024-01-31 23:59:59, HOST01, D1"}, // a host's negative number
    }));
    CAPTURE(row.cchText);
    HostBench bench;
    bench.tree.WriteAlerts(LineOfType(3, "D1"));
    Fetch fetch(2);

    CHECK(fetch.Run(1, row.cchText) == 1);
    const std::wstring expected = row.pwszText;
    CHECK(fetch.Text(0) == expected);
}

TEST_CASE("no text is written into a buffer of no characters")
{
    HostBench bench;
    bench.tree.WriteAlerts(LineOfType(3, "D1"));
    Fetch fetch(2);

    CHECK(fetch.Run(1, 0) == 1);
    CHECK(fetch.types[0] == 3);
    CHECK(fetch.IsTextUntouched(0));
}

TEST_CASE("a fetch with a missing array or without a count touches nothing")
{
    HostBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    int nNumber = g_nUntouched;
    wchar_t wszText[64] = L"#";
    wchar_t* pwszText = wszText;

    CHECK(GetAlertRecord(nullptr, &pwszText, 64, &nNumber, &nNumber, 1) == 0);
    CHECK(GetAlertRecord(&nNumber, nullptr, 64, &nNumber, &nNumber, 1) == 0);
    CHECK(GetAlertRecord(&nNumber, &pwszText, 64, nullptr, &nNumber, 1) == 0);
    CHECK(GetAlertRecord(&nNumber, &pwszText, 64, &nNumber, nullptr, 1) == 0);
    CHECK(GetAlertRecord(&nNumber, &pwszText, 64, &nNumber, &nNumber, 0) == 0);
    CHECK(GetAlertRecord(&nNumber, &pwszText, 64, &nNumber, &nNumber, -1) == 0);
    CHECK(GetAlertRecord(&nNumber, &pwszText, 64, &nNumber, &nNumber, INT_MIN) == 0);

    CHECK(nNumber == g_nUntouched);
    CHECK(bench.tree.Alerts() == LinesOf(1, 3));
    CHECK_FALSE(bench.HasBackup());
    CHECK(bench.ReadLog().Bytes().empty());
}

TEST_CASE("a fetch without an alert file hands out nothing")
{
    HostBench bench;
    Fetch fetch(2);

    CHECK(fetch.Run(1) == 0);
    CHECK(fetch.IsUntouched(0));
    CHECK_THAT(bench.ReadLog(), HasLine(4, "ReadLocalAlertInf -- open file(" + bench.DataPath() + ") fail."));
    CHECK(bench.HasBackup());
    CHECK(bench.Backup().empty());
}

TEST_CASE("a fetch whose rewrite fails hands out nothing and the next one has it all")
{
    HostBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 2));
    Fetch fetch(3);
    bench.imports.FailCall("MoveFileExA", 1, FailMode::FromThereOn, ERROR_SHARING_VIOLATION);

    CHECK(fetch.Run(2) == 0);
    bench.imports.StopFailing("MoveFileExA");
    CHECK(fetch.IsUntouched(0));
    CHECK(fetch.IsUntouched(1));
    CHECK(bench.tree.Alerts() == LinesOf(1, 2));

    CHECK(fetch.Run(2) == 2);
    CHECK(fetch.values == Numbers{1, 2, g_nUntouched});
}

TEST_CASE("each record whose host has no name says so and reads Unknown")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LineOfType(1, "") + LineOfType(3, "D1") + LineOfType(1, ""));
    bench.imports.FailCall("GetComputerNameExW", 1, FailMode::FromThereOn, ERROR_MORE_DATA);
    Fetch fetch(4);
    fetch.LeaveOutText(2);

    CHECK(fetch.Run(3) == 3);
    CHECK(fetch.Text(0) == L"2024-01-31 23:59:59, Unknown");
    CHECK(fetch.Text(1) == L"2024-01-31 23:59:59, Unknown, D1");
    // Nobody asks for the name of a record without a text.
    CHECK(bench.ReadLog().Count(1, "GetAlertMessageHeader -- Get local host name failed(234).") == 2);
    CHECK(bench.ReadLog().Lines().size() == 2);
}

TEST_CASE("an alert's text shows its local time by the rules of its own season")
{
    HostBench bench;
    UseCentralEurope(bench.imports);
    Fetch fetch(2);

    // In winter, of a moment in summer that is younger than three days (an hour apart from what winter would show).
    bench.clock.Set(LocalTime{2024, 10, 28, 12, 0, 0});
    bench.tree.WriteAlerts("1;85;90;1729983600(x);;\r\n"); // 2024-10-26 23:00:00 UTC
    CHECK(fetch.Run(1) == 1);
    CHECK(fetch.Text(0) == L"2024-10-27 01:00:00, HOST01");

    // And in summer of one in winter.
    bench.clock.Set(LocalTime{2024, 4, 1, 12, 0, 0});
    bench.tree.WriteAlerts("1;85;90;1711839600(x);;\r\n"); // 2024-03-30 23:00:00 UTC
    CHECK(fetch.Run(1) == 1);
    CHECK(fetch.Text(0) == L"2024-03-31 00:00:00, HOST01");
}

TEST_CASE("an allocation that fails during a fetch costs no alert")
{
    HostBench bench;
    ULONGLONG ullCall = 0;
    int nStopped = 0;
    for (bool bFailed = true; bFailed;)
    {
        bench.RemoveFiles();
        bench.tree.WriteAlerts(LinesOf(1, 5));
        Fetch fetch(6);
        bench.imports.FailCall("malloc", ++ullCall, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
        const int nCount = fetch.Run(5);
        bFailed = bench.imports.Failures("malloc") != 0;
        bench.imports.StopFailing("malloc");

        CAPTURE(ullCall);
        CHECK(nCount == (bFailed ? 0 : 5));
        CHECK(bench.tree.Alerts() == (bFailed ? LinesOf(1, 5) : ""));
        CHECK(bench.IsMutexFree());
        nStopped += bFailed ? 1 : 0;
    }
    CHECK(nStopped > 0);
    CHECK(bench.ReadLog().Count(1, "GetAlertRecord -- exception stopped(std::bad_alloc).") ==
          static_cast<std::size_t>(nStopped));
    CHECK(bench.ReadLog().Lines().size() == static_cast<std::size_t>(nStopped));
}

TEST_CASE("a fetch without any memory hands out nothing and loses nothing")
{
    HostBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 5));
    bench.WriteBackup(LineOf(8));
    Fetch fetch(6);
    // The run-time library takes a block for the first exception of a thread, and ends the process without it.
    CHECK_THROWS_AS(throw std::bad_alloc(), std::bad_alloc);
    bench.imports.FailCall("malloc", 1, FailMode::FromThereOn, ERROR_NOT_ENOUGH_MEMORY);
    const int nCount = fetch.Run(5);
    const ULONGLONG ullFailures = bench.imports.Failures("malloc");
    bench.imports.StopFailing("malloc");

    CHECK(nCount == 0);
    CHECK(ullFailures > 0);
    CHECK(bench.tree.Alerts() == LinesOf(1, 5));
    CHECK(bench.Backup() == LineOf(8));
    CHECK(bench.IsMutexFree());
}

TEST_CASE("a fetch by the host leaves no handle behind")
{
    HostBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 8));

    CHECK(HandlesGainedBy([] { CHECK(Fetch(2).Run(1) == 2); }) == 0);
}

} // namespace varnex::test
