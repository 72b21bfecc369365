#include "FuzzInput.h"

#include "alerting/AlertDecision.h"
#include "reporting/CardHistory.h"
#include "reporting/UtilizationAverage.h"
#include "sampling/SampleHistory.h"

#include <climits>
#include <vector>

// Histories of any samples, and requests with any numbers, against the rule written down once more in plain words.

using namespace varnex;
using namespace varnex::fuzz;

namespace
{

template <class Value>
Value Expected(const std::vector<Value>& samples, std::uint32_t nSpan, std::int32_t nMinimum)
{
    __int128 nSum = 0;
    std::int32_t nValid = 0;
    const std::size_t nKept = std::min(samples.size(), std::size_t{1440});
    for (std::size_t i = 0; i < std::min(nKept, std::size_t{nSpan}); ++i)
    {
        const Value nSample = samples[samples.size() - 1 - i];
        nSum += nSample == -1 ? 0 : nSample;
        nValid += nSample == -1 ? 0 : 1;
    }
    if (nValid == 0 || nValid < nMinimum)
    {
        return 0;
    }
    return static_cast<Value>(static_cast<Value>(nSum) / nValid); // the sum wraps in its width
}

template <class Value>
std::vector<Value> Samples(FuzzInput& input, std::size_t nRepeats)
{
    std::vector<Value> samples;
    while (!input.IsEmpty())
    {
        samples.insert(samples.end(), nRepeats, input.Take<Value>());
    }
    return samples;
}

void CheckReport(FuzzInput input, std::uint32_t nSpan, std::uint32_t nMinimum, std::size_t nRepeats)
{
    BoundedHistory<int> history;
    BoundedHistory<std::int64_t> history64;
    CardHistory cards;
    const std::vector<int> samples = Samples<int>(input, nRepeats);
    std::vector<std::int64_t> samples64;
    std::vector<int> utilizations;
    for (const int nSample : samples)
    {
        history.Append(nSample);
        samples64.push_back(nSample == -1 ? -1 : std::int64_t{nSample} * 2'147'483'648);
        history64.Append(samples64.back());
        if (cards.Size() < 64)
        {
            NetworkCard card;
            card.Utilization = static_cast<std::uint32_t>(nSample);
            cards.Append(card);
            utilizations.push_back(nSample);
        }
    }
    const auto nSignedMinimum = static_cast<std::int32_t>(nMinimum);
    std::int32_t nAverage = 7;
    Require(GetSinglePKIAverageValue(&history, nSpan, nSignedMinimum, &nAverage) == 1, "an average is written");
    Require(nAverage == Expected(samples, nSpan, nSignedMinimum), "the average of 32 bits");
    Require(GetSinglePKIAverageValue64(history64, nSpan, nSignedMinimum) == Expected(samples64, nSpan, nSignedMinimum),
            "the average of 64 bits");
    Require(GetSinglePKIAverageValue(&cards.Utilizations(), nSpan, nSignedMinimum, &nAverage) == 1, "a card's average");
    Require(nAverage == Expected(utilizations, nSpan, nSignedMinimum), "the average of a card");
    cards.CutTo(nSpan);
    Require(cards.Size() <= nSpan && cards.Utilizations().Size() == cards.Size(), "a history is cut to the span");
    Require(nSpan == 0 || samples.empty() || cards.Size() != 0, "something is left of it");
}

void CheckMonitor(FuzzInput input, int nAmount, int nThreshold)
{
    SampleHistory history;
    bool bReached = false;
    int nSent = 0;
    const int nMost = 3;
    while (!input.IsEmpty())
    {
        history.MakeRoom();
        history.Append(input.Take<std::uint32_t>());
        history.TrimTo(nAmount);
        if (!history.HoldsAtLeast(nAmount))
        {
            continue;
        }
        const AlertDecision decision = Decide(history.Average(nAmount), nThreshold, bReached, nSent, nMost);
        history.AverageOfPresent(nAmount);
        Require(decision != AlertDecision::Fire || !bReached, "an alert fires on a crossing only");
        bReached = decision == AlertDecision::Keep ? bReached : decision == AlertDecision::Fire;
        nSent += decision == AlertDecision::Fire ? 1 : 0;
        Require(nSent <= nMost, "the day's limit holds");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t cbData)
{
    FuzzInput input(pData, cbData);
    const auto nSpan = input.Take<std::uint32_t>();
    const auto nMinimum = input.Take<std::uint32_t>();
    const std::size_t nRepeats = 1 + input.Take<std::uint8_t>();
    CheckReport(input, nSpan, nMinimum, nRepeats);
    CheckMonitor(input, static_cast<int>(nSpan), static_cast<int>(nMinimum));
    return 0;
}
