#include "LogCrowd.h"

#include "reliability/LongForm.h"

#include <random>

namespace varnex::test
{

namespace
{

constexpr int THREADS = 8;
constexpr int LINES_OF_EACH = 530; // a little more than two files

} // namespace

TEST_CASE("a clock that jumps back and forth by years tears no line and leaves the files' limit alone")
{
    const int nLinesOfEach = IsLongForm() ? 5000 : LINES_OF_EACH;
    LogUnderAttack log;
    ImportRedirector imports;
    volatile LONG nCalls = 0;
    imports.Replace<void(LPSYSTEMTIME)>("GetLocalTime",
                                        [&nCalls](LPSYSTEMTIME pTime)
                                        {
                                            std::mt19937 random(static_cast<unsigned>(InterlockedIncrement(&nCalls)));
                                            *pTime = {};
                                            pTime->wYear = static_cast<WORD>(1980 + random() % 100);
                                            pTime->wMonth = static_cast<WORD>(1 + random() % 12);
                                            pTime->wDay = static_cast<WORD>(1 + random() % 28);
                                            pTime->wHour = static_cast<WORD>(random() % 24);
                                        });
    const CrowdResult crowd = LetCrowdLog(THREADS, nLinesOfEach);
    imports.Restore("GetLocalTime");
    const CrowdLines lines = ReadCrowdLines(log.tree, THREADS, nLinesOfEach);
    CHECK(crowd.nErrorsSeen == 0);
    CHECK(lines.nBroken == 0);
    CHECK(lines.nTwice == 0);
    CHECK(lines.nWhole == THREADS * nLinesOfEach);
    CHECK(lines.nFiles > 2);
    CHECK(lines.cbLargestFile <= MAX_LOG_BYTES + crowd.cbLongestLine);
}

TEST_CASE("a clock that stands still lets each roll-over replace the last one, and no line is torn")
{
    constexpr int nLinesOfEach = LINES_OF_EACH;
    LogUnderAttack log;
    ImportRedirector imports;
    imports.Replace<void(LPSYSTEMTIME)>("GetLocalTime",
                                        [](LPSYSTEMTIME pTime) { *pTime = {2024, 1, 3, 31, 23, 59, 59, 0}; });
    const CrowdResult crowd = LetCrowdLog(THREADS, nLinesOfEach);
    imports.Restore("GetLocalTime");
    const CrowdLines lines = ReadCrowdLines(log.tree, THREADS, nLinesOfEach);
    CHECK(crowd.nErrorsSeen == 0);
    CHECK(log.tree.FilesInLogs() == std::vector<std::wstring>{L"Varnex.log", L"Varnex_20240131235959.log"});
    CHECK(lines.nBroken == 0);
    CHECK(lines.nTwice == 0);
    CHECK(lines.nWhole < THREADS * nLinesOfEach); // the first rolled file is gone
    CHECK(lines.cbLargestFile <= MAX_LOG_BYTES + crowd.cbLongestLine);
}

} // namespace varnex::test
