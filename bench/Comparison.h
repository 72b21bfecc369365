#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace varnex::bench
{

// One of the module's operations beside its floor: a bare loop with only the system calls that the operation cannot do
// without. Both are run in turn, so that what else the machine does meets both, and what counts is the median of the
// pairs' ratios.

enum class GoalKind
{
    Ratio,           // at most so many times the floor
    NanosecondsOver, // at most so many nanoseconds more than the floor
    None             // for information
};

struct Goal
{
    GoalKind kind = GoalKind::None;
    double dLimit = 0;
};

// One line of the table.
struct Row
{
    std::string operation;
    std::string work; // how much there was to do: "24 disks"
    double dWork = 0; // the same as a number, in rows that show how the cost grows
    Goal goal;

    // What Summarise fills in.
    double dModuleNs = 0; // median
    double dFloorNs = 0;  // median
    double dRatio = 0;    // median of the pairs' ratios
    double dRatioLow = 0; // quartiles of the same
    double dRatioHigh = 0;
    double dOverNs = 0; // median of the pairs' differences
    std::size_t nPairs = 0;
};

// Nanoseconds that the module and its floor took, one behind the other.
struct Pair
{
    double dModuleNs;
    double dFloorNs;
};

// Fails the test when there is no pair, or one without a time.
void Summarise(Row& row, const std::vector<Pair>& pairs);
bool MeetsGoal(const Row& row);

// How long to go on.
struct Effort
{
    double dSeconds;     // for a row
    std::size_t nFewest; // pairs, whatever the time
    std::size_t nMost;   // pairs
    bool bWholeDay;      // the footprint of a day of the monitors, too
};

class Stopwatch
{
public:
    Stopwatch() noexcept { QueryPerformanceCounter(&m_nBegin); }
    double Nanoseconds() const noexcept
    {
        LARGE_INTEGER nEnd;
        QueryPerformanceCounter(&nEnd);
        return static_cast<double>(nEnd.QuadPart - m_nBegin.QuadPart) * NanosecondsPerTick();
    }

private:
    static double NanosecondsPerTick() noexcept
    {
        static const double dPerTick = []
        {
            LARGE_INTEGER nFrequency;
            QueryPerformanceFrequency(&nFrequency);
            return 1e9 / static_cast<double>(nFrequency.QuadPart);
        }();
        return dPerTick;
    }

    LARGE_INTEGER m_nBegin;
};

// The time of one of nBatch runs.
template <class Operation>
double TimeOf(unsigned nBatch, Operation& operation)
{
    const Stopwatch watch;
    for (unsigned i = 0; i < nBatch; ++i)
    {
        operation();
    }
    return watch.Nanoseconds() / nBatch;
}

struct NothingToPrepare
{
    void operator()() const noexcept {}
};

// Measures pairs of nBatch runs each; prepare comes before each run of a batch of either side and is not timed. Who is
// first changes from pair to pair. The first pair warms up and does not count.
template <class Module, class Floor, class Prepare = NothingToPrepare>
Row Compare(Row row, const Effort& effort, unsigned nBatch, Module module, Floor floor, Prepare prepare = {})
{
    std::vector<Pair> pairs;
    const Stopwatch whole;
    for (std::size_t nPair = 0;
         nPair <= effort.nFewest || (whole.Nanoseconds() < effort.dSeconds * 1e9 && nPair <= effort.nMost); ++nPair)
    {
        Pair pair{};
        for (const bool bFloor : {nPair % 2 != 0, nPair % 2 == 0})
        {
            prepare();
            (bFloor ? pair.dFloorNs : pair.dModuleNs) = bFloor ? TimeOf(nBatch, floor) : TimeOf(nBatch, module);
        }
        if (nPair != 0)
        {
            pairs.push_back(pair);
        }
    }
    Summarise(row, pairs);
    return row;
}

} // namespace varnex::bench
