#include "alerting/AlertFile.h"
#include "alerting/AlertStore.h"

#include "StoreBench.h"

#include "diag/SPLogger.h"
#include "support/LogMatchers.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <memory>

namespace varnex::test
{

namespace
{

using Values = std::vector<int>;

constexpr std::size_t g_cbChunk = LineReader::PIECE_BYTES;

std::string RewriteFailure(const StoreBench& bench, DWORD dwError)
{
    return "ReadLocalAlertInf -- Fail to replace original file(" + bench.DataPath() + ") with new backup file(" +
           bench.BackupPath() + "), error(" + std::to_string(dwError) + ")";
}

// A store with more than one read of data, and what an earlier fetch left in the backup file.
struct FilledStore
{
    explicit FilledStore(StoreBench& storeBench)
        : bench(storeBench), data(LinesOf(1, 3) + std::string(2 * g_cbChunk, 'x') + "\r\n"), left(LineOf(8))
    {
        Fill();
    }
    void Fill() const
    {
        bench.RemoveFiles();
        bench.tree.WriteAlerts(data);
        bench.WriteBackup(left);
    }
    // The fetch gave an error and nothing is lost: both files are what they were.
    void CheckFetchFails(DWORD dwError) const
    {
        const Taken taken = bench.Take(1);
        CHECK(taken.nResult == static_cast<int>(dwError));
        CHECK(bench.tree.Alerts() == data);
        CHECK(bench.Backup() == left);
        CHECK(bench.ReadLog().Lines().size() == 1);
        CHECK_THAT(bench.ReadLog(), HasLine(1, RewriteFailure(bench, dwError)));
        CHECK(bench.IsMutexFree());
    }

    StoreBench& bench;
    const std::string data;
    const std::string left;
};

void FailClose(ImportRedirector& imports, ULONGLONG ullCall, DWORD dwError)
{
    const auto ullSeen = std::make_shared<ULONGLONG>(0);
    imports.Replace<decltype(::CloseHandle)>("CloseHandle",
                                             [=](HANDLE hObject)
                                             {
                                                 const BOOL bClosed = CloseHandle(hObject); // it is gone all the same
                                                 if (++*ullSeen == ullCall)
                                                 {
                                                     SetLastError(dwError);
                                                     return FALSE;
                                                 }
                                                 return bClosed;
                                             });
}

} // namespace

TEST_CASE("a fetch with a module path without a backslash fails")
{
    StoreBench bench;
    bench.path.Set(L"Varnex.dll");

    CHECK(bench.Take(1).nResult == -1);
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "ReadLocalAlertInf -- get module path fail."));
}

TEST_CASE("a directory whose length cuts both files to one name is no place for a store")
{
    struct Row
    {
        std::size_t cchDirectory;
        bool bOneName;
    };
    const auto row = GENERATE(values<Row>({{250, false}, {251, true}, {254, true}}));
    CAPTURE(row.cchDirectory);
    StoreBench bench;
    const std::string directory = "X:\\" + std::string(row.cchDirectory - 4, 'd') + "\\"; // there is none
    bench.path.Set(WideFromUtf8(directory) + L"x.dll");
    const std::string file = (directory + "LocalAlt.dat").substr(0, 259);

    CHECK(SaveLocalAlertInfo(3, 50, 72, "D1", MOMENT, "") == -1);
    CHECK(bench.Take(1).nResult == -1);
    CHECK(bench.ReadLog().Lines().size() == 2);
    CHECK_THAT(bench.ReadLog(), HasLine(1, row.bOneName ? "SaveLocalAlertInfo -- get module path fail."
                                                        : "SaveLocalAlertInfo -- open file(" + file + ") fail."));
    CHECK_THAT(bench.ReadLog(), HasLine(1, row.bOneName ? "ReadLocalAlertInf -- get module path fail."
                                                        : "ReadLocalAlertInf -- open backup file(" + file + ") fail."));
}

TEST_CASE("a backup file that cannot be opened is logged with the path of the alert file")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    bench.BlockFile(L"LocalAlt_Backup.dat");

    const Taken taken = bench.Take(1);
    CHECK(taken.nResult == -1);
    CHECK(taken.records.empty());
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "ReadLocalAlertInf -- open backup file(" + bench.DataPath() + ") fail."));
    CHECK(bench.tree.Alerts() == LinesOf(1, 3));
    CHECK(bench.IsMutexFree());
    CHECK(HandlesGainedBy([&] { bench.Take(1); }) == 0);
}

TEST_CASE("a backup file whose size cannot be told is one that cannot be opened")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    bench.imports.FailCall("GetFileSizeEx", 1, FailMode::FromThereOn, ERROR_IO_DEVICE);

    CHECK(bench.Take(1).nResult == -1);
    CHECK(bench.imports.Failures("GetFileSizeEx") == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "ReadLocalAlertInf -- open backup file(" + bench.DataPath() + ") fail."));
    CHECK(bench.tree.Alerts() == LinesOf(1, 3));
    CHECK(HandlesGainedBy([&] { bench.Take(1); }) == 0);
}

TEST_CASE("an alert file that cannot be opened is logged")
{
    StoreBench bench;
    bench.BlockFile(L"LocalAlt.dat");

    CHECK(bench.Take(1).nResult == -1);
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(4, "ReadLocalAlertInf -- open file(" + bench.DataPath() + ") fail."));
    CHECK(bench.IsMutexFree());
    CHECK(HandlesGainedBy([&] { bench.Take(1); }) == 0);
}

TEST_CASE("a rename that fails leaves the alert file whole and the rest in the backup file")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    bench.imports.FailCall("MoveFileExA", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);

    CHECK(bench.Take(1).nResult == ERROR_ACCESS_DENIED);
    CHECK(bench.tree.Alerts() == LinesOf(1, 3));
    CHECK(bench.Backup() == LineOf(3));
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, RewriteFailure(bench, ERROR_ACCESS_DENIED)));
    CHECK(bench.IsMutexFree());

    // The next fetch brings the lines that it finds there back into the store: those come twice.
    bench.imports.StopFailing("MoveFileExA");
    CHECK(bench.Take(1).Values() == Values{1, 2});
    CHECK(bench.tree.Alerts() == LineOf(3) + LineOf(3));
}

TEST_CASE("a rename that another program's hold on a file keeps from its work is tried again for a second")
{
    const DWORD dwError = GENERATE(as<DWORD>(), ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION);
    CAPTURE(dwError);
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    bench.imports.FailCall("MoveFileExA", 1, FailMode::FromThereOn, dwError);

    SECTION("the file is free again in time")
    {
        bench.clock.RunOnOtherThread(
            [&]
            {
                Sleep(925);
                bench.imports.StopFailing("MoveFileExA");
            });
        bench.clock.WaitUntilAllAsleep();
        CHECK(bench.Take(1).Values() == Values{1, 2});
        CHECK(bench.clock.ElapsedMs() == 950);
        CHECK(bench.tree.Alerts() == LineOf(3));
        CHECK_FALSE(bench.HasBackup());
        CHECK(bench.ReadLog().Bytes().empty());
    }
    SECTION("it is not")
    {
        CHECK(bench.Take(1).nResult == static_cast<int>(dwError));
        CHECK(bench.clock.ElapsedMs() == 1000);
        CHECK(bench.ReadLog().Lines().size() == 1);
        CHECK_THAT(bench.ReadLog(), HasLine(1, RewriteFailure(bench, dwError)));
    }
    CHECK(bench.IsMutexFree());
}

TEST_CASE("a rename that fails for another reason is not tried again")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    bench.imports.FailCall("MoveFileExA", 1, FailMode::FromThereOn, ERROR_DISK_FULL);

    CHECK(bench.Take(1).nResult == ERROR_DISK_FULL);
    CHECK(bench.imports.Failures("MoveFileExA") == 1);
    CHECK(bench.clock.ElapsedMs() == 0);
}

TEST_CASE("a rename that fails costs no handle")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    bench.imports.FailCall("MoveFileExA", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);

    CHECK(HandlesGainedBy([&] { bench.Take(1); }) == 0);
}

TEST_CASE("a copy that fails at a write takes itself back and loses nothing")
{
    StoreBench bench;
    const FilledStore store(bench);
    bench.imports.CountCalls("MoveFileExA");

    SECTION("the first write")
    {
        bench.imports.FailCall("WriteFile", 1, FailMode::Once, ERROR_DISK_FULL);
    }
    SECTION("the second write")
    {
        bench.imports.FailCall("WriteFile", 2, FailMode::Once, ERROR_DISK_FULL);
    }
    store.CheckFetchFails(ERROR_DISK_FULL);
    CHECK(bench.imports.Failures("WriteFile") == 1);
    CHECK(bench.imports.Calls("MoveFileExA") == 0);
}

TEST_CASE("a copy of which a part was written takes itself back and loses nothing")
{
    StoreBench bench;
    const FilledStore store(bench);
    const auto nWrites = std::make_shared<int>(0);
    bench.imports.Replace<decltype(::WriteFile)>(
        "WriteFile",
        [=](HANDLE hFile, LPCVOID pData, DWORD cbData, LPDWORD pcbWritten, LPOVERLAPPED)
        {
            const DWORD cbTaken = ++*nWrites == 2 ? 100 : cbData;
            return WriteFile(hFile, pData, cbTaken, pcbWritten, nullptr);
        });

    store.CheckFetchFails(ERROR_DISK_FULL);
}

TEST_CASE("a copy that fails at the close takes itself back and loses nothing")
{
    StoreBench bench;
    const FilledStore store(bench);
    bench.imports.CountCalls("MoveFileExA");
    FailClose(bench.imports, 1, ERROR_DISK_FULL);

    store.CheckFetchFails(ERROR_DISK_FULL);
    CHECK(bench.imports.Calls("MoveFileExA") == 0);
}

TEST_CASE("a copy that fails at its line end takes itself back and loses nothing")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    bench.WriteBackup("torn");
    bench.imports.FailCall("WriteFile", 1, FailMode::Once, ERROR_DISK_FULL);

    CHECK(bench.Take(1).nResult == ERROR_DISK_FULL);
    CHECK(bench.tree.Alerts() == LinesOf(1, 3));
    CHECK(bench.Backup() == "torn");
}

TEST_CASE("a backup file whose end cannot be reached takes nothing")
{
    StoreBench bench;
    const FilledStore store(bench);
    bench.imports.FailCall("SetFilePointerEx", 2, FailMode::Once, ERROR_SEEK); // the first looks for its last byte

    store.CheckFetchFails(ERROR_SEEK);
    CHECK(bench.imports.Failures("SetFilePointerEx") == 1);
}

TEST_CASE("an alert file that cannot be read loses nothing")
{
    StoreBench bench;
    const FilledStore store(bench);

    SECTION("at its first byte")
    {
        bench.imports.FailCall("ReadFile", 1, FailMode::Once, ERROR_CRC);
    }
    SECTION("in the middle")
    {
        bench.imports.FailCall("ReadFile", 3, FailMode::Once, ERROR_CRC); // the second reads the backup's last byte
    }
    SECTION("behind its last byte")
    {
        bench.imports.FailCall("ReadFile", 5, FailMode::Once, ERROR_CRC);
    }
    store.CheckFetchFails(ERROR_CRC);
    CHECK(bench.imports.Failures("ReadFile") == 1);
}

TEST_CASE("an alert file that fails among the records taken loses nothing")
{
    StoreBench bench;
    const std::string data = LinesOf(1, 1000);
    bench.tree.WriteAlerts(data);
    bench.imports.FailCall("ReadFile", 2, FailMode::Once, ERROR_CRC);

    CHECK(bench.Take(2000).nResult == ERROR_CRC);
    CHECK(bench.tree.Alerts() == data);
    CHECK(bench.Backup().empty());
    CHECK_THAT(bench.ReadLog(), HasLine(1, RewriteFailure(bench, ERROR_CRC)));
}

TEST_CASE("a fetch in which a call fails without an error hands nothing out and loses nothing")
{
    struct Row
    {
        const char* pszImport;
        ULONGLONG ullCall;
    };
    const auto row = GENERATE(values<Row>({
        {"ReadFile", 1},
        {"ReadFile", 3}, // the second reads the backup's last byte
        {"SetFilePointerEx", 2},
        {"WriteFile", 1},
        {"WriteFile", 2},
    }));
    CAPTURE(row.pszImport, row.ullCall);
    StoreBench bench;
    const FilledStore store(bench);
    bench.imports.FailCall(row.pszImport, row.ullCall, FailMode::Once, ERROR_SUCCESS);

    store.CheckFetchFails(ERROR_GEN_FAILURE);
    CHECK(bench.imports.Failures(row.pszImport) == 1);
}

TEST_CASE("a close that fails without an error loses nothing")
{
    StoreBench bench;
    const FilledStore store(bench);
    FailClose(bench.imports, 1, ERROR_SUCCESS);

    store.CheckFetchFails(ERROR_GEN_FAILURE);
}

TEST_CASE("a rename that fails without an error hands nothing out")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    bench.imports.FailCall("MoveFileExA", 1, FailMode::Once, ERROR_SUCCESS);

    CHECK(bench.Take(1).nResult == ERROR_GEN_FAILURE);
    CHECK(bench.imports.Failures("MoveFileExA") == 1);
    CHECK(bench.tree.Alerts() == LinesOf(1, 3));
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, RewriteFailure(bench, ERROR_GEN_FAILURE)));
}

TEST_CASE("a fetch that failed at any call leaves no handle behind")
{
    struct Row
    {
        const char* pszImport;
        ULONGLONG ullCall;
    };
    const auto row = GENERATE(values<Row>({
        {"CreateFileA", 1},
        {"CreateFileA", 2},
        {"GetFileSizeEx", 1},
        {"ReadFile", 1},
        {"ReadFile", 3},
        {"SetFilePointerEx", 2},
        {"WriteFile", 1},
        {"MoveFileExA", 1},
    }));
    StoreBench bench;
    const FilledStore store(bench);
    Log()->Level = 0; // it opens and writes a file of its own
    CAPTURE(row.pszImport, row.ullCall);
    bool bMet = true;

    CHECK(
        HandlesGainedBy(
            [&]
            {
                store.Fill();
                const ULONGLONG ullFailed =
                    row.pszImport == std::string("CreateFileA") ? reinterpret_cast<ULONGLONG>(INVALID_HANDLE_VALUE) : 0;
                bench.imports.FailCall(row.pszImport, row.ullCall, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY, ullFailed);
                const bool bFailed = bench.Take(1).nResult != 0;
                bMet = bMet && bFailed && bench.imports.Failures(row.pszImport) == 1;
                bench.imports.StopFailing(row.pszImport);
            }) == 0);
    CHECK(bMet);
    CHECK(bench.tree.Alerts() == store.data);
}

TEST_CASE("a close that failed leaves no handle behind and the next fetch goes well")
{
    StoreBench bench;
    const FilledStore store(bench);
    CHECK(HandlesGainedBy(
              [&]
              {
                  store.Fill();
                  FailClose(bench.imports, 1, ERROR_DISK_FULL);
                  bench.Take(1);
                  bench.imports.Restore("CloseHandle");
              }) == 0);
    CHECK(bench.Take(1).Values() == Values{1, 2});
    CHECK(bench.tree.Alerts() == store.left + store.data.substr(LinesOf(1, 2).size()));
}

TEST_CASE("a backup file that cannot be opened again after a failed close does not go over the alert file")
{
    StoreBench bench;
    const FilledStore store(bench);
    FailClose(bench.imports, 1, ERROR_DISK_FULL);
    bench.imports.FailCall("CreateFileA", 3, FailMode::Once, ERROR_ACCESS_DENIED,
                           reinterpret_cast<ULONGLONG>(INVALID_HANDLE_VALUE));

    const Taken taken = bench.Take(1);
    CHECK(taken.nResult == ERROR_DISK_FULL);
    CHECK(bench.imports.Failures("CreateFileA") == 1);
    CHECK(bench.tree.Alerts() == store.data);
    CHECK_THAT(bench.ReadLog(), HasLine(1, RewriteFailure(bench, ERROR_DISK_FULL)));
}

} // namespace varnex::test
