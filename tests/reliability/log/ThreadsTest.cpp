#include "LogCrowd.h"

#include "reliability/LongForm.h"

#include <atomic>

namespace varnex::test
{

namespace
{

constexpr int THREADS = 50;
constexpr long DOCUMENTED_WAIT_MS = 5000;
constexpr long SLACK_MS = 3000; // for fifty threads on a busy machine of two processors

DWORD WINAPI HoldMutex(void* pEnd)
{
    WaitForSingleObject(Log()->Mutex, INFINITE);
    WaitForSingleObject(pEnd, INFINITE);
    ReleaseMutex(Log()->Mutex);
    return 0;
}

} // namespace

TEST_CASE("fifty threads lose no line over several roll-overs, and each file ends with the line that passes its limit")
{
    const int nLinesOfEach = IsLongForm() ? 2000 : 100;
    LogUnderAttack log;
    ImportRedirector imports;
    // Every look at the clock finds another second: no roll-over replaces the file of the last one.
    std::atomic<unsigned> nSeconds{0};
    imports.Replace<void(LPSYSTEMTIME)>("GetLocalTime",
                                        [&nSeconds](LPSYSTEMTIME pTime)
                                        {
                                            const unsigned nNow = nSeconds++;
                                            *pTime = {};
                                            pTime->wYear = static_cast<WORD>(2026 + nNow / (86'400 * 28));
                                            pTime->wMonth = 1;
                                            pTime->wDay = static_cast<WORD>(1 + nNow / 86'400 % 28);
                                            pTime->wHour = static_cast<WORD>(nNow / 3600 % 24);
                                            pTime->wMinute = static_cast<WORD>(nNow / 60 % 60);
                                            pTime->wSecond = static_cast<WORD>(nNow % 60);
                                        });
    const CrowdResult crowd = LetCrowdLog(THREADS, nLinesOfEach);
    imports.Restore("GetLocalTime");
    const CrowdLines lines = ReadCrowdLines(log.tree, THREADS, nLinesOfEach);
    CHECK(crowd.nErrorsSeen == 0);
    CHECK(crowd.nLongestCallMs < DOCUMENTED_WAIT_MS);
    CHECK(lines.nWhole == THREADS * nLinesOfEach);
    CHECK(lines.nTwice == 0);
    CHECK(lines.nBroken == 0);
    CHECK(lines.nFiles > 2);
    CHECK(lines.cbLargestFile > MAX_LOG_BYTES);
    CHECK(lines.cbLargestFile <= MAX_LOG_BYTES + crowd.cbLongestLine);
    PrintFigure("log: " + std::to_string(crowd.nLines) + " lines of " + std::to_string(THREADS) + " threads in " +
                std::to_string(lines.nFiles) + " files, " + std::to_string(crowd.nLines - lines.nWhole) + " lost, " +
                std::to_string(lines.nBroken) + " torn; largest file " +
                std::to_string(lines.cbLargestFile - MAX_LOG_BYTES) + " bytes over its limit (a line has up to " +
                std::to_string(crowd.cbLongestLine) + "); longest call " + std::to_string(crowd.nLongestCallMs) +
                " ms");
}

TEST_CASE("fifty threads that find the log's mutex held for good each wait five seconds and no longer")
{
    LogUnderAttack log;
    const UniqueHandle end(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const UniqueHandle holder(CreateThread(nullptr, 0, &HoldMutex, end.Get(), 0, nullptr));
    while (WaitForSingleObject(Log()->Mutex, 0) == WAIT_OBJECT_0)
    {
        ReleaseMutex(Log()->Mutex);
        Sleep(1);
    }
    const CrowdResult crowd = LetCrowdLog(THREADS, 1);
    CHECK(crowd.nErrorsSeen == 0);
    CHECK(crowd.nLongestCallMs >= DOCUMENTED_WAIT_MS - 100); // or nobody held it
    CHECK(crowd.nLongestCallMs < DOCUMENTED_WAIT_MS + SLACK_MS);
    CHECK(log.Size() == 0);
    SetEvent(end.Get());
    REQUIRE(WaitForSingleObject(holder.Get(), 60'000) == WAIT_OBJECT_0);
    LetCrowdLog(1, 1);
    CHECK(log.Size() > 0);
    PrintFigure("log: longest call while the mutex is held for good " + std::to_string(crowd.nLongestCallMs) +
                " ms (documented: 5000)");
}

} // namespace varnex::test
