#pragma once

#include "support/ModuleTree.h"
#include "unit/diag/LogFixture.h"

#include <string>
#include <vector>

namespace varnex::test
{

constexpr long long MAX_LOG_BYTES = 8'388'608;

// The logger in a tree of its own by the real clock, with a mutex of its own.
class LogUnderAttack
{
public:
    LogUnderAttack();

    ModuleTree tree;
    PrivateLogMutex mutex;

    std::wstring File() const;
    long long Size() const;      // 0 when there is none
    void Fill(long long cbSize); // with one line of that size
};

// What the threads of a crowd met.
struct CrowdResult
{
    int nLines;      // logged
    int nErrorsSeen; // calls that changed the thread's last error
    long nLongestCallMs;
    long long cbLongestLine;
};

// Several threads that log lines of their own as fast as they can. All have ended when it returns.
CrowdResult LetCrowdLog(int nThreads, int nLinesOfEach);

// The crowd's lines in all files of the log.
struct CrowdLines
{
    int nWhole; // each counted once
    int nTwice;
    int nBroken; // lines of a file that are no whole line of the crowd's
    int nFiles;
    long long cbLargestFile;
};
CrowdLines ReadCrowdLines(const ModuleTree& tree, int nThreads, int nLinesOfEach);

} // namespace varnex::test
