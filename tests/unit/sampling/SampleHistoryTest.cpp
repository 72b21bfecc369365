#include "sampling/SampleHistory.h"

#include "support/ImportRedirector.h"

#include <catch2/catch.hpp>

#include <climits>
#include <cstdint>
#include <new>
#include <vector>

namespace varnex::test
{

namespace
{

using Samples = std::vector<std::uint32_t>;
constexpr std::uint32_t MISSING = SampleHistory::MISSING;

SampleHistory HistoryOf(const Samples& samples)
{
    SampleHistory history;
    for (const std::uint32_t nSample : samples)
    {
        history.Append(nSample);
    }
    return history;
}

std::uint32_t Unsigned(int nValue)
{
    return static_cast<std::uint32_t>(nValue);
}

struct Average
{
    Samples samples;
    int nAmount;
    int nAverage;
    int nAverageOfPresent;
};

// Whether the operation asks for memory, which it does not get.
template <class Operation>
bool NeedsMemory(const Operation& operation)
{
    ImportRedirector redirector;
    redirector.FailCall("malloc", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    try
    {
        operation();
    }
    catch (const std::bad_alloc&)
    {
        return true;
    }
    return false;
}

} // namespace

TEST_CASE("a history keeps its samples in the order in which they came")
{
    CHECK(HistoryOf({7, 3, 5}).Samples() == Samples{7, 3, 5});
    CHECK(SampleHistory().Samples().empty());
}

TEST_CASE("trimming drops the oldest samples until the amount is left")
{
    struct Trim
    {
        int nAmount;
        Samples left;
    };
    const auto trim = GENERATE(values<Trim>({{5, {1, 2, 3, 4, 5}},
                                             {6, {1, 2, 3, 4, 5}},
                                             {4, {2, 3, 4, 5}},
                                             {3, {3, 4, 5}},
                                             {1, {5}},
                                             {0, {}},
                                             {-2, {1, 2, 3, 4, 5}},
                                             {INT_MIN, {1, 2, 3, 4, 5}}}));
    CAPTURE(trim.nAmount);
    SampleHistory history = HistoryOf({1, 2, 3, 4, 5});
    history.TrimTo(trim.nAmount);
    CHECK(history.Samples() == trim.left);
}

TEST_CASE("a length is compared with the amount as an unsigned number")
{
    const SampleHistory history = HistoryOf({1, 2, 3});
    CHECK(history.HoldsAtLeast(0));
    CHECK(history.HoldsAtLeast(2));
    CHECK(history.HoldsAtLeast(3));
    CHECK_FALSE(history.HoldsAtLeast(4));
    CHECK_FALSE(history.HoldsAtLeast(-1));
    CHECK_FALSE(history.HoldsAtLeast(-2));
    CHECK_FALSE(history.HoldsAtLeast(INT_MIN));
    CHECK(SampleHistory().HoldsAtLeast(0));
    CHECK_FALSE(SampleHistory().HoldsAtLeast(1));
}

TEST_CASE("the oldest sample is dropped and an empty history stays empty")
{
    SampleHistory history = HistoryOf({1, 2});
    history.DropOldest();
    CHECK(history.Samples() == Samples{2});
    history.DropOldest();
    CHECK(history.Samples().empty());
    history.DropOldest();
    CHECK(history.Samples().empty());
}

TEST_CASE("a sample for which room was made needs no memory")
{
    const SampleHistory history = HistoryOf({1, 2, 3});
    SampleHistory full = history; // a copy has no room to spare
    CHECK(NeedsMemory([&full] { full.Append(4); }));
    CHECK(full.Samples() == Samples{1, 2, 3});
    CHECK(NeedsMemory([&full] { full.MakeRoom(); }));
    CHECK(full.Samples() == Samples{1, 2, 3});
    full.MakeRoom();
    CHECK(full.Samples() == Samples{1, 2, 3});
    CHECK_FALSE(NeedsMemory([&full] { full.Append(4); }));
    CHECK(full.Samples() == Samples{1, 2, 3, 4});
}

TEST_CASE("a history to which sample after sample is appended grows in few steps")
{
    const bool bMakeRoom = GENERATE(false, true);
    ImportRedirector redirector;
    redirector.CountCalls("malloc");
    SampleHistory history;
    for (std::uint32_t nSample = 0; nSample < 1024; ++nSample)
    {
        if (bMakeRoom)
        {
            history.MakeRoom();
        }
        history.Append(nSample);
    }
    CAPTURE(bMakeRoom);
    CHECK(redirector.Calls("malloc") > 0);
    CHECK(redirector.Calls("malloc") <= 20);
    CHECK(history.Samples().size() == 1024);
}

TEST_CASE("a missing sample counts in the length of a history")
{
    CHECK(HistoryOf({MISSING, MISSING}).HoldsAtLeast(2));
}

TEST_CASE("the average is the wrapping sum divided by the amount towards zero")
{
    const auto average = GENERATE(values<Average>({
        {{}, 5, 0, 0},
        {{1, 1, 2}, 3, 1, 1},
        {{90, 90, 90, 90, 90}, 5, 90, 90},
        {{84, 85, 85, 85, 85}, 5, 84, 84},
        {{100, 100}, 5, 40, 40}, // the amount divides, not the length
        {{7, 8}, 0, 0, 0},
        {{7, 8}, -2, -7, -7},
        {{0x7FFFFFFF, 1}, 2, INT_MIN / 2, INT_MIN / 2},
        {{0x80000000}, -1, INT_MIN, INT_MIN}, // 2 to the 31st, of which the low 32 bits are left
        {{0x80000000}, 1, INT_MIN, INT_MIN},
        {{0xFFFFFFF0, 0x20}, 2, 8, 8},
        {{Unsigned(-7)}, 2, -3, -3},
        // A missing sample is -1 to the one average and nothing to the other.
        {{MISSING}, 1, -1, 0},
        {{MISSING, MISSING, MISSING}, 3, -1, 0},
        {{50, MISSING, 50}, 3, 33, 33},
        {{51, MISSING, 51}, 3, 33, 34},
        {{MISSING, 10}, 1, 9, 10},
    }));
    CAPTURE(average.samples, average.nAmount);
    const SampleHistory history = HistoryOf(average.samples);
    CHECK(history.Average(average.nAmount) == average.nAverage);
    CHECK(history.AverageOfPresent(average.nAmount) == average.nAverageOfPresent);
}

} // namespace varnex::test
