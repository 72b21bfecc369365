#include "LogCrowd.h"

#include <cstring>

namespace varnex::test
{

namespace
{

constexpr int THREADS = 50;
constexpr int LINES_OF_EACH = 4;
constexpr long PROMPT_MS = 5000;

} // namespace

TEST_CASE("a directory that cannot be written costs the lines and nothing else")
{
    LogUnderAttack log;
    ImportRedirector imports;
    imports.FailCall("CreateFileA", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED,
                     reinterpret_cast<ULONGLONG>(INVALID_HANDLE_VALUE));
    imports.FailCall("MoveFileExA", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);
    log.Fill(MAX_LOG_BYTES + 1);
    const CrowdResult crowd = LetCrowdLog(THREADS, LINES_OF_EACH);
    CHECK(imports.Failures("CreateFileA") == THREADS * LINES_OF_EACH);
    CHECK(imports.Failures("MoveFileExA") == THREADS * LINES_OF_EACH);
    imports.StopFailing("CreateFileA");
    imports.StopFailing("MoveFileExA");
    CHECK(crowd.nErrorsSeen == 0);
    CHECK(crowd.nLongestCallMs < PROMPT_MS);
    CHECK(log.Size() == MAX_LOG_BYTES + 1);
    LetCrowdLog(1, 1);
    CHECK(log.tree.FilesInLogs().size() == 2); // it rolls as soon as it can
}

TEST_CASE("a log directory whose place a file has taken costs the lines and nothing else")
{
    LogUnderAttack log;
    Log()->Configure(AnsiFromWide(log.tree.InLogs(L"taken")).c_str(), "Varnex");
    WriteFileBytes(log.tree.InLogs(L"taken"), "mine");
    const CrowdResult crowd = LetCrowdLog(THREADS, LINES_OF_EACH);
    CHECK(crowd.nErrorsSeen == 0);
    CHECK(crowd.nLongestCallMs < PROMPT_MS);
    CHECK(log.tree.FilesInLogs() == std::vector<std::wstring>{L"taken"});
    CHECK(ReadFileBytes(log.tree.InLogs(L"taken")) == "mine");
}

TEST_CASE("a full disk costs the lines and nothing else, and the log goes on when there is room")
{
    LogUnderAttack log;
    ImportRedirector imports;
    imports.FailCall("WriteFile", 1, FailMode::FromThereOn, ERROR_DISK_FULL);
    const CrowdResult crowd = LetCrowdLog(THREADS, LINES_OF_EACH);
    CHECK(imports.Failures("WriteFile") == THREADS * LINES_OF_EACH);
    imports.StopFailing("WriteFile");
    CHECK(crowd.nErrorsSeen == 0);
    CHECK(crowd.nLongestCallMs < PROMPT_MS);
    CHECK(log.Size() == 0);
    LetCrowdLog(1, 1);
    const CrowdLines lines = ReadCrowdLines(log.tree, 1, 1);
    CHECK(lines.nWhole == 1);
    CHECK(lines.nBroken == 0);
}

// Under Wine the machine has a file that is always on a full disk.
TEST_CASE("a disk that is really full costs the lines and nothing else")
{
    constexpr char FULL[] = "Z:\\dev\\full";
    const UniqueFile full(CreateFileA(FULL, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!full)
    {
        WARN("there is no such file here");
        return;
    }
    DWORD cbWritten = 0;
    REQUIRE_FALSE(WriteFile(full.Get(), "x", 1, &cbWritten, nullptr));
    CHECK(GetLastError() == ERROR_DISK_FULL);
    LogUnderAttack log;
    std::strcpy(Log()->LogFilePath, FULL);
    const CrowdResult crowd = LetCrowdLog(THREADS, LINES_OF_EACH);
    CHECK(crowd.nErrorsSeen == 0);
    CHECK(crowd.nLongestCallMs < PROMPT_MS);
    Log()->Configure(AnsiFromWide(log.tree.LogsPath()).c_str(), "Varnex");
    LetCrowdLog(1, 1);
    CHECK(ReadCrowdLines(log.tree, 1, 1).nWhole == 1);
}

} // namespace varnex::test
