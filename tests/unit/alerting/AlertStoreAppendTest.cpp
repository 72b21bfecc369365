#include "alerting/AlertStore.h"

#include "StoreBench.h"

#include "support/LogMatchers.h"

#include <catch2/catch.hpp>

#include <algorithm>

namespace varnex::test
{

namespace
{

int SaveDiskAlert(int nValue = 72)
{
    return SaveLocalAlertInfo(3, 50, nValue, "D1", MOMENT, "");
}

const std::string g_diskLine = "3;50;72;1706745599(2024-01-31 23:59:59);D1;\r\n";

} // namespace

TEST_CASE("the first alert makes the alert file with one line that ends in CR LF")
{
    StoreBench bench;

    CHECK(SaveDiskAlert() == 0);
    CHECK(bench.tree.Alerts() == g_diskLine);
    CHECK(bench.ReadLog().Bytes().empty());
    CHECK_FALSE(bench.HasBackup());
}

TEST_CASE("alerts are appended in the order in which they come")
{
    StoreBench bench;
    bench.tree.WriteAlerts("whatever stands there\r\n");

    CHECK(SaveLocalAlertInfo(1, 85, 90, "", MOMENT, "") == 0);
    CHECK(SaveLocalAlertInfo(2, 80, 81, "PF", MOMENT + 1, "") == 0);
    CHECK(SaveLocalAlertInfo(4, 60, 100, "Adapter #2", MOMENT + 2, "tail") == 0);
    CHECK(bench.tree.Alerts() == "whatever stands there\r\n"
                                 "1;85;90;1706745599(2024-01-31 23:59:59);;\r\n"
                                 "2;80;81;1706745600(2024-02-01 00:00:00);PF;\r\n"
                                 "4;60;100;1706745601(2024-02-01 00:00:01);Adapter #2;tail\r\n");
}

TEST_CASE("an alert without a time is refused without a word")
{
    StoreBench bench;
    bench.imports.CountCalls("WaitForSingleObject");

    CHECK(SaveLocalAlertInfo(1, 85, 90, "", 0, "") == -1);
    CHECK_FALSE(bench.HasData());
    CHECK(bench.ReadLog().Bytes().empty());
    CHECK(bench.imports.Calls("WaitForSingleObject") == 0);
}

TEST_CASE("a negative time is a time")
{
    StoreBench bench;

    CHECK(SaveLocalAlertInfo(1, 85, 90, "", -1, "") == 0);
    CHECK(bench.tree.Alerts() == "1;85;90;-1(1969-12-31 23:59:59);;\r\n");
}

TEST_CASE("missing texts of an alert are empty ones")
{
    StoreBench bench;

    CHECK(SaveLocalAlertInfo(1, 85, 90, nullptr, MOMENT, nullptr) == 0);
    CHECK(bench.tree.Alerts() == LineOf(90));
}

TEST_CASE("long texts of an alert are cut to their fields")
{
    StoreBench bench;
    const std::string name(383, 'n');
    const std::string extra(31, 'e');

    CHECK(SaveLocalAlertInfo(3, 1, 2, (name + "NN").c_str(), MOMENT, (extra + "EE").c_str()) == 0);
    CHECK(bench.tree.Alerts() == "3;1;2;1706745599(2024-01-31 23:59:59);" + name + ";" + extra + "\r\n");
}

TEST_CASE("long texts of an alert are cut between two of their characters")
{
    StoreBench bench;
    // A code page in which 0x81 begins a character of two bytes.
    bench.imports.Replace<decltype(::IsDBCSLeadByte)>("IsDBCSLeadByte",
                                                      [](BYTE byte) -> BOOL { return byte == 0x81 ? TRUE : FALSE; });
    const std::string name(382, 'n');
    const std::string extra(30, 'e');

    CHECK(SaveLocalAlertInfo(3, 1, 2, (name + "\x81\x41").c_str(), MOMENT, (extra + "\x81\x41").c_str()) == 0);
    CHECK(bench.tree.Alerts() == "3;1;2;1706745599(2024-01-31 23:59:59);" + name + ";" + extra + "\r\n");
}

TEST_CASE("each line feed in an alert's texts is stored as CR LF")
{
    StoreBench bench;

    CHECK(SaveLocalAlertInfo(3, 1, 2, "a\nb", MOMENT, "\n") == 0);
    CHECK(SaveLocalAlertInfo(3, 1, 2, "a\r\nb", MOMENT, "") == 0);
    CHECK(SaveLocalAlertInfo(3, 1, 2, std::string(383, '\n').c_str(), MOMENT, std::string(31, '\n').c_str()) == 0);
    std::string feeds;
    for (int i = 0; i < 383; ++i)
    {
        feeds += "\r\n";
    }
    const std::string head = "3;1;2;1706745599(2024-01-31 23:59:59);";
    CHECK(bench.tree.Alerts() ==
          head + "a\r\nb;\r\n\r\n" + head + "a\r\r\nb;\r\n" + head + feeds + ";" + feeds.substr(0, 62) + "\r\n");
}

TEST_CASE("format characters in a resource name are text")
{
    StoreBench bench;

    CHECK(SaveLocalAlertInfo(3, 1, 2, "100%s %n %d%%", MOMENT, "%s") == 0);
    CHECK(bench.tree.Alerts() == "3;1;2;1706745599(2024-01-31 23:59:59);100%s %n %d%%;%s\r\n");
}

TEST_CASE("a torn last line does not swallow the next alert")
{
    struct Row
    {
        std::string torn;
        std::string repaired;
    };
    const auto row = GENERATE(values<Row>({
        {"3;50;72;17067", "3;50;72;17067\r\n"},
        {"3;50;72;17067\r", "3;50;72;17067\r\n"},
        {"whole\r\n", "whole\r\n"},
        {"\x1A", "\x1A\r\n"},
    }));
    StoreBench bench;
    bench.tree.WriteAlerts(row.torn);
    bench.imports.CountCalls("WriteFile");

    CHECK(SaveDiskAlert() == 0);
    // The line end comes in the same write: it cannot be torn from the line that needs it.
    CHECK(bench.imports.Calls("WriteFile") == 1);
    CHECK(bench.tree.Alerts() == row.repaired + g_diskLine);
}

TEST_CASE("an alert behind a torn line that cannot be read is stored and fetched")
{
    StoreBench bench;
    // Run together, the two would be one line with the threshold as its time.
    bench.tree.WriteAlerts("3;50;7");
    bench.imports.FailCall("ReadFile", 1, FailMode::Once, ERROR_LOCK_VIOLATION);

    CHECK(SaveDiskAlert() == 0);
    CHECK(bench.imports.Failures("ReadFile") == 1);
    CHECK(bench.tree.Alerts() == "3;50;7\r\n" + g_diskLine);
    CHECK(bench.Take(1).Values() == std::vector<int>{72});
}

TEST_CASE("an alert behind a whole line that cannot be read is stored behind an empty one, which a fetch skips")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LineOf(1));
    bench.imports.FailCall("ReadFile", 1, FailMode::Once, ERROR_LOCK_VIOLATION);

    CHECK(SaveDiskAlert() == 0);
    CHECK(bench.tree.Alerts() == LineOf(1) + "\r\n" + g_diskLine);
    CHECK(bench.Take(1).Values() == std::vector<int>{1, 72});
    CHECK(bench.ReadLog().Bytes().empty());
}

TEST_CASE("a module path without a backslash stores nothing")
{
    StoreBench bench;
    bench.path.Set(L"Varnex.dll");

    CHECK(SaveDiskAlert() == -1);
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "SaveLocalAlertInfo -- get module path fail."));
}

TEST_CASE("a module path that is too long stores nothing, and nothing further up")
{
    StoreBench bench;
    bench.path.Set(bench.tree.BinPath() + L"\\" + std::wstring(300, L'd') + L"\\Varnex.dll");

    CHECK(SaveDiskAlert() == -1);
    CHECK_FALSE(bench.HasData());
    CHECK_THAT(bench.ReadLog(), HasLine(1, "SaveLocalAlertInfo -- get module path fail."));
}

TEST_CASE("a module path that cannot be had stores nothing")
{
    StoreBench bench;
    bench.path.Fail(ERROR_INVALID_HANDLE);

    CHECK(SaveDiskAlert() == -1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "SaveLocalAlertInfo -- get module path fail."));
}

TEST_CASE("an alert file that cannot be opened is logged with its path")
{
    StoreBench bench;
    bench.BlockFile(L"LocalAlt.dat");

    CHECK(SaveDiskAlert() == -1);
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "SaveLocalAlertInfo -- open file(" + bench.DataPath() + ") fail."));
    CHECK(bench.IsMutexFree());
    CHECK(HandlesGainedBy([] { SaveDiskAlert(); }) == 0);
}

TEST_CASE("an alert that cannot be written is refused without a word")
{
    StoreBench bench;
    bench.imports.FailCall("WriteFile", 1, FailMode::FromThereOn, ERROR_DISK_FULL);

    CHECK(SaveDiskAlert() == -1);
    CHECK(bench.imports.Failures("WriteFile") == 1);
    CHECK(bench.tree.Alerts().empty());
    CHECK(bench.ReadLog().Bytes().empty());
    CHECK(bench.IsMutexFree());
    CHECK(HandlesGainedBy([] { SaveDiskAlert(); }) == 0);
}

TEST_CASE("an alert whose line cannot be put together is refused and leaves the file alone")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LineOf(1));
    bench.imports.FailCall("_vsnprintf", 2, FailMode::Once, 0, static_cast<ULONGLONG>(-1)); // the first is the time's
    CHECK(SaveDiskAlert() == -1);
    CHECK(bench.imports.Failures("_vsnprintf") == 1);
    CHECK(bench.tree.Alerts() == LineOf(1));
}

TEST_CASE("an alert whose write fails without an error is not written")
{
    StoreBench bench;
    bench.imports.FailCall("WriteFile", 1, FailMode::Once, ERROR_SUCCESS);

    CHECK(SaveDiskAlert() == -1);
    CHECK(bench.imports.Failures("WriteFile") == 1);
    CHECK(bench.tree.Alerts().empty());
}

TEST_CASE("an alert of which a part was written counts as not written and the next one stands whole")
{
    StoreBench bench;
    bench.imports.Replace<decltype(::WriteFile)>(
        "WriteFile", [](HANDLE hFile, LPCVOID pData, DWORD, LPDWORD pcbWritten, LPOVERLAPPED)
        { return WriteFile(hFile, pData, 10, pcbWritten, nullptr); });
    CHECK(SaveDiskAlert() == -1);
    bench.imports.Restore("WriteFile");

    CHECK(SaveDiskAlert() == 0);
    CHECK(bench.tree.Alerts() == g_diskLine.substr(0, 10) + "\r\n" + g_diskLine);
}

TEST_CASE("a stored alert leaves no handle behind")
{
    StoreBench bench;

    CHECK(HandlesGainedBy([] { SaveDiskAlert(); }) == 0);
    CHECK(bench.tree.Alerts() == g_diskLine + g_diskLine);
}

} // namespace varnex::test
