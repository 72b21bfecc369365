#include "Rows.h"

#include "floors/FloorReport.h"

#include "common/BoundedText.h"
#include "reporting/ReportXml.h"
#include "reporting/UtilizationAverage.h"
#include "reporting/UtilizationReport.h"
#include "reporting/UtilizationStores.h"

#include <catch2/catch.hpp>

#include <memory>

namespace varnex::bench
{

namespace
{

constexpr unsigned SAMPLES = 1440;
constexpr unsigned DISKS = 24;
constexpr unsigned CARDS = 16;

InstanceNames<wchar_t> MakeNames(unsigned nNames)
{
    InstanceNames<wchar_t> names;
    for (unsigned i = 0; i < nNames; ++i)
    {
        const std::wstring name = std::to_wstring(i);
        names.push_back(std::make_unique<wchar_t[]>(name.size() + 1));
        name.copy(names.back().get(), name.size());
    }
    return names;
}

template <class Sample>
void FillNamed(NamedHistories<Sample>& store, unsigned nNames)
{
    store.Publish(MakeNames(nNames));
    for (unsigned i = 0; i < nNames; ++i)
    {
        for (unsigned nSample = 0; nSample < SAMPLES; ++nSample)
        {
            store.Append(i, static_cast<Sample>(nSample % 100));
        }
    }
}

void FillStores(unsigned nProcessors)
{
    UtilizationStores& stores = varnex::Stores();
    FillNamed(stores.cpu, nProcessors);
    FillNamed(stores.disk, DISKS);
    for (unsigned nSample = 0; nSample < SAMPLES; ++nSample)
    {
        stores.memory.Append(static_cast<int>(nSample % 100), 25);
        const StoreLockHold hold(stores.network.lock);
        for (unsigned nCard = 0; nCard < CARDS; ++nCard)
        {
            NetworkCard card;
            card.InterfaceIndex = nCard + 1;
            card.Speed = 1'000'000'000;
            card.Utilization = nSample % 100;
            CopyTextW(card.MACAddress, L"00:15:5D:00:00:01");
            stores.network.Append(card);
        }
    }
}

void MeasureReport(Setting& setting, Results& results, unsigned nProcessors)
{
    FillStores(nProcessors);
    unsigned cchReport = 0;
    unsigned cchFloor = 0;
    Row row;
    row.operation = "report";
    row.work = std::to_string(nProcessors) + " processors";
    row.dWork = nProcessors + 1.0 + DISKS + CARDS; // entries
    row.goal = {GoalKind::Ratio, 1.15};
    results.Add(Compare(
        row, setting.effort, 1,
        [&]
        {
            UtilizationReport report;
            cchReport = SysStringLen(CreatePKIXMLToMMF(SAMPLES, 1, &report).Get());
        },
        [&] { cchFloor = BuildReportFloor(nProcessors, DISKS, CARDS); }));
    if (nProcessors == 64)
    {
        UtilizationReport filled;
        CreatePKIXMLToMMF(SAMPLES, 1, &filled);
        row.work += ", document alone";
        row.dWork = 0;
        row.goal = {};
        results.Add(Compare(
            row, setting.effort, 1, [&] { CreateKAPKIUtilizationXML(&filled); },
            [&] { BuildReportFloor(nProcessors, DISKS, CARDS); }));
    }
    // Documents of about the same length, or one of them is not the report.
    REQUIRE((cchReport > 1000 && cchFloor > cchReport * 9 / 10 && cchFloor < cchReport * 11 / 10));
    CleanUtilizationStores(0);
}

// All averages of a report, beside bare sums over as many bare samples.
int AverageAll(unsigned nProcessors)
{
    UtilizationStores& stores = varnex::Stores();
    int nSum = 0;
    std::int32_t nAverage = 0;
    for (unsigned i = 0; i < nProcessors; ++i)
    {
        GetSinglePKIAverageValue(&stores.cpu.Of(i), SAMPLES, 1, &nAverage);
        nSum += nAverage;
    }
    GetSinglePKIAverageValue(&stores.memory.physical, SAMPLES, 1, &nAverage);
    nSum += nAverage;
    GetSinglePKIAverageValue(&stores.memory.pagingFile, SAMPLES, 1, &nAverage);
    nSum += nAverage;
    for (unsigned i = 0; i < DISKS; ++i)
    {
        nSum += static_cast<int>(GetSinglePKIAverageValue64(stores.disk.Of(i), SAMPLES, 1));
    }
    for (const auto& [dwInterfaceIndex, history] : stores.network.histories)
    {
        GetSinglePKIAverageValue(&history.Utilizations(), SAMPLES, 1, &nAverage);
        nSum += nAverage;
    }
    return nSum;
}

template <class Sample, class ValueOf>
std::int64_t SumAll(const std::vector<Sample>& samples, ValueOf valueOf)
{
    std::int64_t nSum = 0;
    std::int64_t nValid = 0;
    for (const Sample& sample : samples)
    {
        const auto nValue = valueOf(sample);
        nSum += nValue == -1 ? 0 : nValue;
        nValid += nValue == -1 ? 0 : 1;
    }
    return nSum / nValid;
}

void MeasureAverages(Setting& setting, Results& results)
{
    constexpr unsigned PROCESSORS = 64;
    FillStores(PROCESSORS);
    const std::vector<int> percents(SAMPLES, 42);
    const std::vector<std::int64_t> throughputs(SAMPLES, 42);
    const std::vector<NetworkCard> cards(SAMPLES);
    volatile std::int64_t nSink = 0;
    Row row;
    row.operation = "averaging alone";
    row.work = "64 processors";
    row = Compare(
        row, setting.effort, 1, [&] { nSink = AverageAll(PROCESSORS); },
        [&]
        {
            std::int64_t nSum = 0;
            for (unsigned i = 0; i < PROCESSORS + 2; ++i)
            {
                nSum += SumAll(percents, [](int nSample) { return nSample; });
            }
            for (unsigned i = 0; i < DISKS; ++i)
            {
                nSum += SumAll(throughputs, [](std::int64_t nSample) { return nSample; });
            }
            for (unsigned i = 0; i < CARDS; ++i)
            {
                nSum += SumAll(cards, [](const NetworkCard& card) { return static_cast<int>(card.Utilization + 1); });
            }
            nSink = nSum;
        });
    results.Add(row);
    results.Add(Figure{"averaging alone, 64 processors, 24 disks, 16 adapters", row.dModuleNs / 1e6, "ms", 1});
    CleanUtilizationStores(0);
}

template <class History, class Sample>
void MeasureAppend(Setting& setting, Results& results, const char* pszSample, const Sample& sample)
{
    History history;
    std::vector<Sample> store(SAMPLES);
    for (unsigned i = 0; i < SAMPLES; ++i)
    {
        history.Append(sample);
    }
    std::size_t nAt = 0;
    Row row;
    row.operation = "history append at 1440";
    row.work = pszSample;
    row.goal = {GoalKind::NanosecondsOver, 5};
    results.Add(Compare(
        row, setting.effort, 14'400, [&] { history.Append(sample); },
        [&]
        {
            store[nAt] = sample;
            nAt = nAt + 1 == SAMPLES ? 0 : nAt + 1;
        }));
    REQUIRE(history.Size() == SAMPLES);
}

} // namespace

void MeasureReports(Setting& setting, Results& results)
{
    const ComScope com;
    for (const unsigned nProcessors : {1U, 8U, 64U})
    {
        MeasureReport(setting, results, nProcessors);
    }
    MeasureAverages(setting, results);
    MeasureAppend<BoundedHistory<int>>(setting, results, "a percentage", 42);
    MeasureAppend<BoundedHistory<std::int64_t>>(setting, results, "a throughput", std::int64_t{42});
    MeasureAppend<CardHistory>(setting, results, "an adapter's record", NetworkCard{});
}

} // namespace varnex::bench
