#include "ReportingBench.h"
#include "StoreFilling.h"

#include "reporting/UtilizationAverage.h"

#include <catch2/catch.hpp>

#include <limits>
#include <random>

namespace varnex::test
{

namespace
{

constexpr std::int32_t MAX32 = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t MIN32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t MAX64 = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t MIN64 = std::numeric_limits<std::int64_t>::min();

enum class Word
{
    None,
    NoneValid,
    TooFew
};

template <class Sample>
struct Rule
{
    std::vector<Sample> samples;
    std::uint32_t nSpan;
    std::int32_t nMinimum;
    Sample nAverage;
    Word word;
    int nValid; // as the message about too few tells it
};

// The rules that hold for every width.
template <class Sample>
std::vector<Rule<Sample>> CommonRules()
{
    return {
        {{}, 60, 1, 0, Word::NoneValid, 0},
        {{-1, -1, -1}, 60, 1, 0, Word::NoneValid, 0},
        {{10, 20, -1, 30, -1, 40, 50, -1, 61, -1}, 60, 5, 35, Word::None, 0}, // 211 / 6
        {{10, 20, -1, 30, -1, 40, 50, -1, 61, -1}, 60, 6, 35, Word::None, 0},
        {{10, 20, -1, 30, -1, 40, 50, -1, 61, -1}, 60, 7, 0, Word::TooFew, 6},
        {{10, 20, 30}, 1, 1, 30, Word::None, 0},
        {{10, 20, -1}, 1, 1, 0, Word::NoneValid, 0},
        {{10, 20, 30}, 2, 1, 25, Word::None, 0},
        {{10, 20, 30}, 2, 3, 0, Word::TooFew, 2},
        {{10, 20, 30}, 3, 3, 20, Word::None, 0},
        {{10, 20, 30}, 0, 1, 0, Word::NoneValid, 0},
        {{1, 2}, 60, 1, 1, Word::None, 0},
        {{99, 100, 100}, 60, 1, 99, Word::None, 0},
        {{-2}, 60, 1, -2, Word::None, 0},
        {{-2, -3}, 60, 1, -2, Word::None, 0}, // towards zero
        {{-2, 1}, 60, 1, 0, Word::None, 0},
        {{0, 0}, 60, 2, 0, Word::None, 0},
        {{10, 20}, 0x80000000, 1, 15, Word::None, 0},
        {{10, 20}, 0xFFFFFFFF, 1, 15, Word::None, 0},
        {{10, 20}, 60, MIN32, 15, Word::None, 0}, // 0x80000000 as the section holds it
        {{10, 20}, 60, -1, 15, Word::None, 0},    // 0xFFFFFFFF
        {{10, 20}, 60, 0, 15, Word::None, 0},
        {{10, 20}, 60, MAX32, 0, Word::TooFew, 2},
    };
}

void CheckWord(const ReportingBench& bench, Word word, const std::string& operation, int nValid, int nMinimum)
{
    const LogFile log = bench.ReadLog();
    const std::string noneValid = operation + " -- PKI valid item amount is zero, return average value is 0.";
    const std::string tooFew = operation +
                               " -- PKI valid Item amount is less than input minimum sampling amount,valid item "
                               "amount:" +
                               std::to_string(nValid) + ", nMinSampleNum:" + std::to_string(nMinimum) +
                               ", return average value is 0.";
    CHECK(log.Lines().size() == (word == Word::None ? 0 : 1));
    CHECK(log.Count(4, noneValid) == (word == Word::NoneValid ? 1 : 0));
    CHECK(log.Count(4, tooFew) == (word == Word::TooFew ? 1 : 0));
}

std::vector<NetworkCard> Cards(const std::vector<std::int32_t>& utilizations)
{
    std::vector<NetworkCard> cards;
    for (const std::int32_t nUtilization : utilizations)
    {
        cards.push_back(MakeCard(1, L"00", 1, static_cast<std::uint32_t>(nUtilization)));
    }
    return cards;
}

// The rule once more, by another road: from the front, in twice the width.
std::int64_t Reference(const std::vector<int>& samples, std::size_t nSpan, int nMinimum)
{
    const std::size_t nFirst = samples.size() - std::min(samples.size(), nSpan);
    long long llSum = 0;
    long long llCount = 0;
    for (std::size_t i = nFirst; i < samples.size(); ++i)
    {
        llSum += samples[i] == -1 ? 0 : samples[i];
        llCount += samples[i] == -1 ? 0 : 1;
    }
    return llCount == 0 || llCount < nMinimum ? 0 : llSum / llCount;
}

} // namespace

TEST_CASE("the average of 32-bit samples leaves out failed ones and needs enough valid ones")
{
    std::vector<Rule<int>> rules = CommonRules<int>();
    rules.push_back({{MAX32, 1}, 60, 1, MIN32 / 2, Word::None, 0}); // the sum wraps
    rules.push_back({{MIN32, MIN32}, 60, 1, 0, Word::None, 0});
    rules.push_back({{MAX32, MAX32, MAX32}, 60, 1, 715827881, Word::None, 0}); // 2147483645 / 3
    for (const Rule<int>& rule : rules)
    {
        ReportingBench bench;
        CAPTURE(rule.samples, rule.nSpan, rule.nMinimum);
        const BoundedHistory<int> history = MakeHistory(rule.samples);
        std::int32_t nAverage = 777;
        CHECK(GetSinglePKIAverageValue(&history, rule.nSpan, rule.nMinimum, &nAverage) == 1);
        CHECK(nAverage == rule.nAverage);
        CheckWord(bench, rule.word, "GetSinglePKIAverageValue", rule.nValid, rule.nMinimum);
    }
}

TEST_CASE("the average of 64-bit samples follows the same rule in its own width")
{
    std::vector<Rule<std::int64_t>> rules = CommonRules<std::int64_t>();
    rules.push_back({{MAX32, 1}, 60, 1, 1073741824, Word::None, 0}); // no wrap
    rules.push_back({{MAX64, 1}, 60, 1, MIN64 / 2, Word::None, 0});
    rules.push_back({{MIN64, MIN64}, 60, 1, 0, Word::None, 0});
    rules.push_back({{0xFFFFFFFF}, 60, 1, 0xFFFFFFFF, Word::None, 0}); // no failed sample in this width
    rules.push_back({{5'000'000'000, 6'000'000'001}, 60, 1, 5'500'000'000, Word::None, 0});
    for (const Rule<std::int64_t>& rule : rules)
    {
        ReportingBench bench;
        CAPTURE(rule.samples, rule.nSpan, rule.nMinimum);
        CHECK(GetSinglePKIAverageValue64(MakeHistory(rule.samples), rule.nSpan, rule.nMinimum) == rule.nAverage);
        CheckWord(bench, rule.word, "GetSinglePKIAverageValue64", rule.nValid, rule.nMinimum);
    }
}

TEST_CASE("the average of cards takes a missing utilization for a failed sample")
{
    for (const Rule<int>& rule : CommonRules<int>())
    {
        ReportingBench bench;
        CAPTURE(rule.samples, rule.nSpan, rule.nMinimum);
        CardHistory history;
        for (const NetworkCard& card : Cards(rule.samples))
        {
            history.Append(card);
        }
        std::int32_t nAverage = 777;
        CHECK(GetSinglePKIAverageValue(&history.Utilizations(), rule.nSpan, rule.nMinimum, &nAverage) == 1);
        CHECK(nAverage == rule.nAverage);
        CheckWord(bench, rule.word, "GetSinglePKIAverageValue", rule.nValid, rule.nMinimum);
    }
}

TEST_CASE("a day's history is considered whole from a span of 1440 on")
{
    ReportingBench bench(0);
    std::vector<int> samples;
    for (int i = 0; i < 1500; ++i)
    {
        samples.push_back(i % 7 == 0 ? -1 : i);
    }
    const BoundedHistory<int> history = MakeHistory(samples);
    samples.erase(samples.begin(), samples.begin() + 60);
    const auto span = GENERATE(as<std::uint32_t>{}, 1, 2, 1439, 1440, 1441, 0x80000000, 0xFFFFFFFF);
    const auto nMinimum = GENERATE(as<std::int32_t>{}, 1, 1233, 1234, 1235, 1440, 1441, MIN32, -1);
    CAPTURE(span, nMinimum);
    std::int32_t nAverage = 777;
    CHECK(GetSinglePKIAverageValue(&history, span, nMinimum, &nAverage) == 1);
    CHECK(nAverage == Reference(samples, span, nMinimum));
}

TEST_CASE("the average equals an independent calculation for any history")
{
    ReportingBench bench(0);
    std::mt19937 random(20260131); // the same numbers in every run
    for (int nRound = 0; nRound < 500; ++nRound)
    {
        std::vector<int> samples(random() % 200);
        for (int& nSample : samples)
        {
            nSample = random() % 4 == 0 ? -1 : static_cast<int>(random() % 300) - 100;
        }
        const std::uint32_t nSpan = random() % 250;
        const int nMinimum = static_cast<int>(random() % 100);
        CAPTURE(samples, nSpan, nMinimum);
        const BoundedHistory<int> history = MakeHistory(samples);
        std::int32_t nAverage = 777;
        GetSinglePKIAverageValue(&history, nSpan, nMinimum, &nAverage);
        CHECK(nAverage == Reference(samples, nSpan, nMinimum));
        const std::vector<std::int64_t> wide(samples.begin(), samples.end());
        CHECK(GetSinglePKIAverageValue64(MakeHistory(wide), nSpan, nMinimum) == Reference(samples, nSpan, nMinimum));
    }
}

TEST_CASE("an average of no history or into nothing is refused")
{
    ReportingBench bench;
    const BoundedHistory<int> history = MakeHistory<int>({1});
    std::int32_t nAverage = 777;
    CHECK(GetSinglePKIAverageValue(nullptr, 1, 1, &nAverage) == 0);
    CHECK(nAverage == 777);
    CHECK(GetSinglePKIAverageValue(&history, 1, 1, nullptr) == 0);
    const LogFile log = bench.ReadLog();
    REQUIRE(log.Lines().size() == 2);
    CHECK(log.CountOfLevel(1) == 2);
    CHECK_THAT(log.Lines()[0].text,
               Catch::Matches("GetSinglePKIAverageValue -- checking parameter fail, "
                              "pPKIIntList\\(0000000000000000\\), pnAverageValue\\([0-9A-F]{16}\\)"));
    CHECK_THAT(log.Lines()[1].text,
               Catch::Matches("GetSinglePKIAverageValue -- checking parameter fail, "
                              "pPKIIntList\\([0-9A-F]{16}\\), pnAverageValue\\(0000000000000000\\)"));
}

} // namespace varnex::test
