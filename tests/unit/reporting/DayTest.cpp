#include "ReportDocument.h"
#include "SamplerBench.h"
#include "StoreFilling.h"

#include "reporting/UtlCPUThread.h"
#include "reporting/UtlCheckingThread.h"
#include "reporting/UtlDiskThread.h"
#include "reporting/UtlMemoryThread.h"
#include "reporting/UtlNetworkThread.h"

#include <catch2/catch.hpp>

#include <algorithm>

namespace varnex::test
{

namespace
{

constexpr int CYCLES = 1441;
constexpr int PROCESSORS = 64;
constexpr int DISKS = 24;
constexpr int CARDS = 16;
constexpr unsigned CYCLE_SECONDS = 61; // of the network sampler; the disk sampler's are longer
constexpr unsigned DISK_CYCLE_MS = 60'000 + DISKS * 100;

// What the machine shows in its nth cycle, from 0: the samples that a report is calculated from once more.
std::int64_t CpuSample(int nCpu, int nCycle)
{
    return (nCpu + nCycle) % 53 == 0 ? -1 : 1 + (7 * nCpu + 13 * nCycle) % 100;
}

std::int64_t DiskSample(int nDisk, int nCycle)
{
    return 1 + std::int64_t{nDisk} * 1'000'000'007 + std::int64_t{nCycle} * 1013;
}

std::wstring CpuName(int nCpu)
{
    return std::to_wstring(nCpu);
}

std::wstring DiskName(int nDisk)
{
    return std::to_wstring(nDisk) + L" C:";
}

// The counters of both kinds, without the checks and records of ScriptedPdh: a day takes 700000 calls.
class LeanCounters
{
public:
    explicit LeanCounters(ImportRedirector& redirector) : m_imports(redirector)
    {
        ScriptQueries();
        m_imports.Replace<decltype(::PdhGetFormattedCounterValue)>(
            "PdhGetFormattedCounterValue",
            [this](PDH_HCOUNTER hCounter, DWORD, LPDWORD, PPDH_FMT_COUNTERVALUE pValue)
            {
                const int nCounter = static_cast<int>(reinterpret_cast<ULONG_PTR>(hCounter));
                const int nRead = m_reads[static_cast<std::size_t>(nCounter)]++;
                const bool bDisk = nCounter >= FIRST_DISK;
                const std::int64_t nSample =
                    bDisk ? DiskSample(nCounter - FIRST_DISK, nRead) : CpuSample(nCounter - 1, nRead / 2);
                // Two readings for one sample of a processor.
                pValue->doubleValue = !bDisk && nSample == -1 ? 101.0 : static_cast<double>(nSample);
                return PDH_STATUS{ERROR_SUCCESS};
            });
    }

private:
    static constexpr int FIRST_DISK = 1000;

    void ScriptQueries()
    {
        const auto open = [](const auto*, DWORD_PTR, PDH_HQUERY* phQuery)
        {
            *phQuery = reinterpret_cast<PDH_HQUERY>(1);
            return PDH_STATUS{ERROR_SUCCESS};
        };
        const auto add = [](PDH_HQUERY, const auto* pPath, DWORD_PTR, PDH_HCOUNTER* phCounter)
        {
            ULONG_PTR nCounter = sizeof *pPath == sizeof(wchar_t) ? 1 : FIRST_DISK; // disks are added by narrow names
            ULONG_PTR nNumber = 0;
            const auto* pDigit = pPath;
            while (*pDigit != '(')
            {
                ++pDigit;
            }
            for (++pDigit; *pDigit >= '0' && *pDigit <= '9'; ++pDigit)
            {
                nNumber = nNumber * 10 + static_cast<ULONG_PTR>(*pDigit - '0');
            }
            *phCounter = reinterpret_cast<PDH_HCOUNTER>(nCounter + nNumber);
            return PDH_STATUS{ERROR_SUCCESS};
        };
        const auto succeed = [](void*) { return PDH_STATUS{ERROR_SUCCESS}; };
        m_imports.Replace<decltype(::PdhOpenQueryW)>("PdhOpenQueryW", open);
        m_imports.Replace<decltype(::PdhOpenQueryA)>("PdhOpenQueryA", open);
        m_imports.Replace<decltype(::PdhAddCounterW)>("PdhAddCounterW", add);
        m_imports.Replace<decltype(::PdhAddCounterA)>("PdhAddCounterA", add);
        m_imports.Replace<decltype(::PdhCollectQueryData)>("PdhCollectQueryData", succeed);
        m_imports.Replace<decltype(::PdhRemoveCounter)>("PdhRemoveCounter", succeed);
        m_imports.Replace<decltype(::PdhCloseQuery)>("PdhCloseQuery", succeed);
    }

    RestoredImports m_imports;
    std::vector<int> m_reads = std::vector<int>(FIRST_DISK + DISKS, 0);
};

// The average of the last nSpan of a day's samples of which the first nDropped are gone.
template <class Sample>
std::int64_t Average(Sample&& sample, int nCycles, std::uint32_t nSpan, std::int64_t nMinimum)
{
    const int nKept = std::min(nCycles, 1440);
    const int nConsidered = static_cast<int>(std::min<std::uint32_t>(nSpan, static_cast<std::uint32_t>(nKept)));
    std::int64_t nSum = 0;
    std::int64_t nValid = 0;
    for (int nCycle = nCycles - nConsidered; nCycle < nCycles; ++nCycle)
    {
        const std::int64_t nSample = sample(nCycle);
        nSum += nSample == -1 ? 0 : nSample;
        nValid += nSample == -1 ? 0 : 1;
    }
    return nValid == 0 || nValid < nMinimum ? 0 : nSum / nValid;
}

class DayBench : public ReportingBench
{
public:
    DayBench() : ReportingBench(0)
    {
        ScriptProcessors();
        ScriptDisks();
        ScriptCards();
    }
    // Lets the samplers run until each has done its cycles. They end then; their histories stay for the reports.
    void RunDay()
    {
        const SamplerRun<CPKIUtlCPUThread> cpu(*this, g_pUtlCPUThread);
        const SamplerRun<CPKIUtlMemoryThread> physical(*this, g_pUtlMemoryThread);
        const SamplerRun<CPKIUtlDiskThread> disk(*this, g_pUtlDiskThread);
        const SamplerRun<CPKIUtlNetworkThread> network(*this, g_pUtlNetworkThread);
        clock.AdvanceMs(30'000 + (CYCLES - 1) * DISK_CYCLE_MS);
        m_ullDayMs = clock.ElapsedMs();
        for (WorkerSlot& slot : g_aUtilizationSlots)
        {
            slot.RequestStop();
        }
    }
    // How many cycles the faster samplers did, in the time of the disk sampler's 1441.
    int MinuteCycles() const { return static_cast<int>(m_ullDayMs / 60'000) + 1; }
    int CardCycles() const { return static_cast<int>((m_ullDayMs - 1'000) / (CYCLE_SECONDS * 1'000)) + 1; }

private:
    void ScriptProcessors()
    {
        std::vector<std::wstring> processors;
        for (int nCpu = 0; nCpu < PROCESSORS; ++nCpu)
        {
            processors.push_back(CpuName(nCpu));
        }
        SetProcessors(processors);
    }
    void ScriptDisks()
    {
        std::vector<std::wstring> disks;
        for (int nDisk = 0; nDisk < DISKS; ++nDisk)
        {
            disks.push_back(DiskName(nDisk));
        }
        SetDisks(disks);
    }
    void ScriptCards()
    {
        std::vector<WmiObject> adapters;
        for (int nCard = 0; nCard < CARDS; ++nCard)
        {
            const auto dwIndex = static_cast<DWORD>(nCard + 1);
            adapters.push_back(WmiAdapter(L"Card", nCard + 1, WmiText(L"10000000")));
            table.AddRow(dwIndex);
            table.SetOctets(dwIndex, 1, 1);
            // Of 10 Mbit/s, four percent for each place in the list; a day of it stays below 32 bits.
            table.MoveAtEachRead(dwIndex, dwIndex * 50'000, 0);
        }
        wmi.SetObjects(adapters);
    }

    LeanCounters m_counters{imports};
    ULONGLONG m_ullDayMs = 0;
};

} // namespace

TEST_CASE("a day of all samplers on a large machine is reported as an independent calculation has it")
{
    DayBench bench;
    bench.RunDay();
    const int nMinuteCycles = bench.MinuteCycles();
    REQUIRE(nMinuteCycles > CYCLES);
    CHECK(Stores().cpu.Of(PROCESSORS - 1).Size() == 1440);
    CHECK(Stores().memory.physical.Size() == 1440);
    CHECK(Stores().disk.Of(DISKS - 1).Size() == 1440);
    CHECK(Stores().network.histories.size() == CARDS);
    CHECK(Stores().network.histories.at(CARDS).Size() == static_cast<std::size_t>(std::min(bench.CardCycles(), 1440)));
    CHECK(bench.wmi.LiveObjects() == 0);

    struct Request
    {
        std::uint32_t nTotal;
        std::uint32_t nMinimum;
    };
    HostAgent agent(bench.names.Key());
    const SamplerRun<CPKIUtlCheckingThread> reports(bench, g_pUtlCheckingThread);
    for (const Request& request : {Request{0xFFFFFFFF, 1}, {1441, 1400}, {1440, 1440}, {720, 100}, {60, 40}, {1, 1}})
    {
        CAPTURE(request.nTotal, request.nMinimum);
        agent.Ask(request.nTotal, request.nMinimum);
        bench.clock.WaitUntilAllAsleep();
        REQUIRE(agent.TakeFinish());
        const XmlElement report = ReadReport(agent.Text());
        ExpectedReport expected(report.children.at(0).text);
        for (int nCpu = 0; nCpu < PROCESSORS; ++nCpu)
        {
            expected.Cpu(std::to_string(nCpu).substr(0, 1), Average([=](int nCycle) { return CpuSample(nCpu, nCycle); },
                                                                    nMinuteCycles, request.nTotal, request.nMinimum));
        }
        const bool bEnough = std::min<std::uint32_t>(request.nTotal, 1440) >= request.nMinimum;
        expected.Memory(bEnough ? 50 : 0, 10000, bEnough ? 25 : 0, 10000);
        for (int nDisk = 0; nDisk < DISKS; ++nDisk)
        {
            expected.Disk(std::to_string(nDisk).substr(0, 1),
                          Average([=](int nCycle) { return DiskSample(nDisk, nCycle); }, CYCLES, request.nTotal,
                                  request.nMinimum));
        }
        for (int nCard = 1; nCard <= CARDS; ++nCard)
        {
            expected.Network("00:15:5D:00:00:" + std::to_string(10 + nCard), 10, bEnough ? 4 * nCard : 0);
        }
        CHECK(report == expected.Tree());
        CHECK(Stores().network.histories.at(1).Size() == std::min<std::size_t>(request.nTotal, 1440));
    }
    g_pUtlCheckingThread.RequestStop();
    agent.SetBegin();
    bench.clock.AdvanceUntilWorkersEnd(1);
}

} // namespace varnex::test
