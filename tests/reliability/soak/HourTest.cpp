// Everything at once by the real clock, on this machine's own numbers.

#include "PolicyFile.h"
#include "WinePdh.h"
#include "reliability/LongForm.h"

#include "support/AlertLines.h"
#include "support/ConfigBuilder.h"
#include "support/HostAgent.h"
#include "support/LoadedModule.h"
#include "support/LogFile.h"
#include "support/ModuleTree.h"
#include "support/PrivateMutexes.h"
#include "support/PrivateNames.h"
#include "support/ProcessMeter.h"
#include "support/TraceRegistry.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr int INTERVAL_SECONDS = 5;
constexpr DWORD PATIENCE_MS = 60'000;
constexpr int REACHED = 1; // a threshold that every machine reaches with its memory
constexpr int OUT_OF_REACH = 101;
constexpr std::size_t PAGE_BYTES = 4096;
constexpr std::size_t BLOCK_BYTES = 32;      // what a disk measurement keeps, with the heap's own
constexpr std::size_t DOCUMENT_BYTES = 1536; // what Wine's document object keeps of a report
constexpr std::size_t SAMPLE_BYTES = 684;    // of an adapter in its history: the record, and its utilization once more

struct HourPlan
{
    unsigned nWarmUpSeconds;
    unsigned nSeconds;
    unsigned nReportEvery;
    unsigned nFetchEvery;
    unsigned nPolicyEvery;
};

HourPlan Plan()
{
    return IsLongForm() ? HourPlan{300, 3600, 60, 90, 60} : HourPlan{6, 12, 3, 6, 6};
}

// What this process has come to: the least that a second of looks sees, for what a worker holds for a moment is not kept.
struct Holdings
{
    Holdings() : nHandles(CountHandles()), cbPrivate(PrivateBytes()), nThreads(CountThreads())
    {
        for (int i = 0; i < 10; ++i)
        {
            Sleep(100);
            nHandles = std::min<std::size_t>(nHandles, CountHandles());
            cbPrivate = std::min<std::size_t>(cbPrivate, PrivateBytes());
            nThreads = std::min<std::size_t>(nThreads, CountThreads());
        }
        FILETIME created;
        FILETIME ended;
        FILETIME kernel;
        FILETIME user;
        GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
        ullProcessorMs = Milliseconds(kernel) + Milliseconds(user);
    }
    static ULONGLONG Milliseconds(const FILETIME& time)
    {
        return ((static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime) / 10'000;
    }

    std::size_t nHandles;
    std::size_t cbPrivate;
    std::size_t nThreads;
    ULONGLONG ullProcessorMs = 0;
};

// The shipped DLL with everything started, under the real clock; only the counters come from the stand-in.
class HourMachine
{
    class ReadyTree : public ModuleTree
    {
    public:
        ReadyTree()
        {
            CopyModule();
            ConfigBuilder config;
            for (const char* pszResource : {"CPU", "Memory", "Disk", "Network"})
            {
                config.SetPolicy(pszResource, INTERVAL_SECONDS, REACHED, 1, 1000);
            }
            WriteConfig(config.SetLogLevel(4).SetCounter("Date", ""));
        }
    };

public:
    HourMachine()
        : module(tree, LoadedModule::Start::Later), imports(module.Handle()), mutexes(imports),
          names(imports, MakePrivateKey()), registry(imports)
    {
        registry.SetSwitch(1);
        pdh.Serve(imports);
        KeepWorkers();
        imports.CountCalls("GlobalAlloc");
        REQUIRE(module.Attach());
        module.Export<decltype(::StartWorkingThread)>("StartWorkingThread")(VARNEX_ALERT_ALL);
        module.Export<decltype(::StartPKIUtlThread)>("StartPKIUtlThread")();
    }

    void Stop()
    {
        module.Export<decltype(::StopWorkingThread)>("StopWorkingThread")(VARNEX_ALERT_ALL);
        module.Export<decltype(::StopPKIUtlThread)>("StopPKIUtlThread")();
        for (const UniqueHandle& worker : m_workers)
        {
            REQUIRE(WaitForSingleObject(worker.Get(), PATIENCE_MS) == WAIT_OBJECT_0);
        }
    }

    // Back and forth, so that there are alerts throughout.
    void ChangePolicy()
    {
        m_bReached = !m_bReached;
        ChangeThresholds(tree, m_bReached ? REACHED : OUT_OF_REACH);
    }

    int Fetch() const
    {
        constexpr int nMaxCount = 200;
        constexpr unsigned cchText = 256;
        std::vector<int> types(nMaxCount + 1);
        std::vector<int> thresholds(nMaxCount + 1);
        std::vector<int> values(nMaxCount + 1);
        std::vector<std::array<wchar_t, cchText>> texts(nMaxCount + 1);
        std::vector<wchar_t*> pointers;
        for (auto& text : texts)
        {
            pointers.push_back(text.data());
        }
        return module.Export<decltype(::GetAlertRecord)>("GetAlertRecord")(types.data(), pointers.data(), cchText,
                                                                           thresholds.data(), values.data(), nMaxCount);
    }

    bool AskForReport() const
    {
        HostAgent agent(names.Key());
        agent.Ask(60, 1);
        return agent.TakeFinish(PATIENCE_MS) && agent.Length() != 0;
    }

    ULONGLONG DiskMeasurements() { return imports.Calls("GlobalAlloc"); }

    WinePdh pdh;
    ReadyTree tree;
    LoadedModule module;
    ImportRedirector imports;
    PrivateMutexes mutexes;
    PrivateNames names;
    TraceRegistry registry;

private:
    // Its end is waited for, or the module must not be unloaded.
    void KeepWorkers()
    {
        imports.Replace<decltype(::CreateThread)>("CreateThread",
                                                  [this](auto... arguments)
                                                  {
                                                      const HANDLE hThread = CreateThread(arguments...);
                                                      UniqueHandle worker;
                                                      DuplicateHandle(GetCurrentProcess(), hThread, GetCurrentProcess(),
                                                                      worker.Receive(), SYNCHRONIZE, FALSE, 0);
                                                      m_workers.push_back(std::move(worker));
                                                      return hThread;
                                                  });
    }

    std::vector<UniqueHandle> m_workers;
    bool m_bReached = true;
};

// What a stretch of real time came to.
struct HourCount
{
    int nReports = 0;
    int nAlerts = 0;
    int nPolicies = 0;
};

HourCount LetPass(HourMachine& machine, unsigned nSeconds, const HourPlan& plan)
{
    HourCount count;
    const ULONGLONG ullStart = GetTickCount64();
    for (unsigned nSecond = 1; nSecond <= nSeconds; ++nSecond)
    {
        const ULONGLONG ullDue = ullStart + nSecond * 1000ULL;
        const ULONGLONG ullNow = GetTickCount64();
        Sleep(ullDue > ullNow ? static_cast<DWORD>(ullDue - ullNow) : 0);
        if (nSecond % plan.nPolicyEvery == 0)
        {
            machine.ChangePolicy();
            ++count.nPolicies;
        }
        if (nSecond % plan.nReportEvery == 0)
        {
            count.nReports += machine.AskForReport() ? 1 : 0;
        }
        if (nSecond % plan.nFetchEvery == 0)
        {
            count.nAlerts += std::max(machine.Fetch(), 0);
        }
    }
    return count;
}

// Lines of level 1 in all files of the log.
std::size_t CountErrors(const ModuleTree& tree)
{
    std::size_t nErrors = 0;
    for (const std::wstring& name : tree.FilesInLogs())
    {
        nErrors += name.find(L"Varnex") == 0 ? LogFile::FromBytes(ReadFileBytes(tree.InLogs(name))).CountOfLevel(1) : 0;
    }
    return nErrors;
}

// The day's samples of the adapters, in room that doubles as they come.
ULONGLONG HistoryBytes(const ModuleTree& tree, unsigned nSeconds)
{
    const std::string trace = ReadFileBytes(tree.InLogs(L"NetworkUtil.log"));
    const auto nTabs = std::count(trace.begin(), std::find(trace.begin(), trace.end(), '\n'), '\t');
    std::size_t nRoom = 1;
    while (nRoom < nSeconds / 60)
    {
        nRoom *= 2;
    }
    return static_cast<std::size_t>(nTabs - 1) * nRoom * SAMPLE_BYTES; // "Time" has a tab more than the adapters
}

void PrintHour(const HourPlan& plan, const HourCount& count, const Holdings& begin, const Holdings& end,
               ULONGLONG ullKept)
{
    PrintFigure(std::to_string(plan.nSeconds) + " s by the real clock, all monitors every " +
                std::to_string(INTERVAL_SECONDS) +
                " s, all samplers, traces, log level 4: " + std::to_string(count.nPolicies) + " policies, " +
                std::to_string(count.nReports) + " reports, " + std::to_string(count.nAlerts) + " alerts fetched; " +
                std::to_string(end.ullProcessorMs - begin.ullProcessorMs) + " ms of processor time; private bytes " +
                std::to_string(begin.cbPrivate) + " -> " + std::to_string(end.cbPrivate) + " (kept on purpose " +
                std::to_string(ullKept) + "); handles " + std::to_string(begin.nHandles) + " -> " +
                std::to_string(end.nHandles) + "; threads " + std::to_string(begin.nThreads) + " -> " +
                std::to_string(end.nThreads));
}

} // namespace

TEST_CASE(
    "an hour by the real clock, with everything running, costs no handle and no memory but what is kept on purpose")
{
    const HourPlan plan = Plan();
    HourMachine machine;
    LetPass(machine, plan.nWarmUpSeconds, plan);
    const Holdings begin;
    const ULONGLONG ullMeasured = machine.DiskMeasurements();
    const HourCount count = LetPass(machine, plan.nSeconds, plan);
    const Holdings end;
    const ULONGLONG ullMeasurements = machine.DiskMeasurements() - ullMeasured;
    const ULONGLONG ullKept = ullMeasurements * BLOCK_BYTES + count.nReports * DOCUMENT_BYTES +
                              HistoryBytes(machine.tree, plan.nWarmUpSeconds + plan.nSeconds);
    PrintHour(plan, count, begin, end, ullKept);
    machine.Stop();

    CHECK(count.nReports == static_cast<int>(plan.nSeconds / plan.nReportEvery));
    CHECK(count.nAlerts >= count.nPolicies / 2); // every other one is reached, by the memory at least
    CHECK(ullMeasurements != 0);
    ParseAlertLines(machine.tree.Alerts());
    CHECK(CountErrors(machine.tree) == 1); // the report thread's end
    CHECK(end.nHandles <= begin.nHandles);
    CHECK(end.nThreads <= begin.nThreads);
    CHECK(end.ullProcessorMs > begin.ullProcessorMs);
    CHECK(end.cbPrivate <= begin.cbPrivate + ullKept + 64 * PAGE_BYTES); // and what the heap takes at once
}

} // namespace varnex::test
