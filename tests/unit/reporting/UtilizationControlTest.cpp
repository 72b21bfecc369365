#include "ReportDocument.h"
#include "ReportingBench.h"
#include "StoreFilling.h"

#include "diag/SPLogger.h"
#include "entry/ModuleState.h"
#include "reporting/UtlCPUThread.h"
#include "support/ProcessMeter.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <cstdlib>

#include <wbemidl.h>

namespace varnex::test
{

namespace
{

using Wanted = HasLinesInOrder::Wanted;

constexpr char START_LINE[] = "StartPKIUtlThread -- Start PKI utilization collection thread...";
constexpr char STARTED_LINE[] = "StartPKIUtlThread -- Start PKI utilization collection thread finish...";
constexpr char STOP_LINE[] = "StartPKIUtlThread -- Stop PKI utilization collection thread...";
constexpr unsigned LINE_SECONDS = 5; // that a line waits for the log's mutex
constexpr char STOPPED_LINE[] = "StartPKIUtlThread -- Stop PKI utilization collection thread finish...";

struct Kind
{
    const char* pszName;
    const char* pszConstruct;
    const char* pszSuccess;
    const char* pszFailure;
};

// In the order in which they are started.
const Kind KINDS[] = {
    {"CPU", "CPKIUtlCPUThread construct -- without parameters.",
     "CreateMonCPUPKIUtlThread -- Create Monitor CPU PKI Utilization Thread Successfully!",
     "CreateMonCPUPKIUtlThread -- CPKIUtlCPUThread CreateRunningThread Error!"},
    {"memory", "CPKIUtlMemoryThread construct -- without parameters.",
     "CreateMonMemoryPKIUtlThread -- Create Monitor Memory PKI Utilization Thread Successfully!",
     "CreateMonMemoryPKIUtlThread -- CPKIUtlMemoryThread CreateRunningThread Error!"},
    {"disk", "CPKIUtlDiskThread construct -- without parameters.",
     "CreateMonDiskPKIUtlThread -- Create Monitor Physical Disk Throughput Thread Successfully!",
     "CreateMonDiskPKIUtlThread -- CPKIUtlDiskThread CreateRunningThread Error!"},
    {"network", "CPKIUtlNetworkThread construct -- without parameters.",
     "CreateMonNetworkPKIUtlThread -- Create Monitor Network Utilization Thread Successfully!",
     "CreateMonNetworkPKIUtlThread -- CPKIUtlNetworkThread CreateRunningThread Error!"},
    {"report", "CPKIUtlCheckingThread construct -- without parameters.",
     "CreatePKIUtlCheckingThread -- Create CPKIUtlCheckingThread Successfully!",
     "CreatePKIUtlCheckingThread -- CPKIUtlCheckingThread CreateRunningThread Error!"},
};

// A machine with one of everything.
class MachineBench : public ReportingBench
{
public:
    explicit MachineBench(int nLogLevel = 4) : ReportingBench(nLogLevel)
    {
        SetProcessors({L"0"});
        SetDisks({L"0 C:"});
        SetOneCard();
        imports.CountCalls("CreateThread");
        imports.CountCalls("TerminateThread");
    }
};

// How often each store has been filled since the last clean-up.
std::vector<std::size_t> SampleCounts()
{
    const auto& network = Stores().network.histories;
    return {Stores().cpu.Of(0).Size(), Stores().memory.physical.Size(), Stores().disk.Of(0).Size(),
            network.empty() ? 0 : network.begin()->second.Size()};
}

using Counts = std::vector<std::size_t>;

// A system call that never comes back, as long as the test says so.
class StuckCall
{
public:
    explicit StuckCall(ReportingBench& bench) : m_bench(bench)
    {
        const UnscriptedScope unscripted;
        m_never.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    ~StuckCall() { End(); }
    StuckCall(const StuckCall&) = delete;
    StuckCall& operator=(const StuckCall&) = delete;

    void Block() { m_bench.clock.Block(m_never.Get()); }
    // From here on it comes back.
    void End() { SetEvent(m_never.Get()); }
    // Lets the calls through which that kind of worker looks at the machine be stuck.
    void Engage(const std::string& kind)
    {
        ImportRedirector& imports = m_bench.imports;
        if (kind == "CPU")
        {
            imports.Replace<decltype(::PdhOpenQueryW)>("PdhOpenQueryW",
                                                       [this](LPCWSTR, DWORD_PTR, PDH_HQUERY*)
                                                       {
                                                           Block();
                                                           return PDH_STATUS{0};
                                                       });
        }
        else if (kind == "memory")
        {
            m_bench.exports.Replace<decltype(::GlobalMemoryStatusEx)>("GlobalMemoryStatusEx",
                                                                      [this](LPMEMORYSTATUSEX)
                                                                      {
                                                                          Block();
                                                                          return FALSE;
                                                                      });
        }
        else if (kind == "disk")
        {
            imports.Replace<decltype(::PdhOpenQueryA)>("PdhOpenQueryA",
                                                       [this](LPCSTR, DWORD_PTR, PDH_HQUERY*)
                                                       {
                                                           Block();
                                                           return PDH_STATUS{0};
                                                       });
        }
        else if (kind == "network")
        {
            imports.Replace<DWORD(void*, ULONG*, BOOL)>("GetIfTable",
                                                        [this](void*, ULONG*, BOOL)
                                                        {
                                                            Block();
                                                            return DWORD{0};
                                                        });
        }
        else if (kind == "WMI" || kind == "report")
        {
            imports.Replace<decltype(::CoCreateInstance)>(
                "CoCreateInstance",
                [this, bReport = kind == "report"](REFCLSID classId, LPUNKNOWN pOuter, DWORD dwContext, REFIID iid,
                                                   LPVOID* ppObject)
                {
                    // The configuration's documents are made in any context.
                    const bool bDocument = !IsEqualCLSID(classId, CLSID_WbemLocator);
                    if (bReport ? bDocument && dwContext == CLSCTX_INPROC_SERVER : !bDocument)
                    {
                        Block();
                    }
                    return bDocument ? CoCreateInstance(classId, pOuter, dwContext, iid, ppObject) : E_FAIL;
                });
        }
    }

private:
    ReportingBench& m_bench;
    UniqueHandle m_never;
};

// Another program holds the mutex of the log until it lets go.
class HeldLog
{
public:
    explicit HeldLog(ReportingBench& bench) : m_clock(bench.clock)
    {
        {
            const UnscriptedScope unscripted;
            m_release.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        }
        m_clock.RunOnOtherThread(
            [this]
            {
                WaitForSingleObject(Log()->Mutex, INFINITE);
                m_clock.Block(m_release.Get());
                ReleaseMutex(Log()->Mutex);
            });
        m_clock.WaitUntilAllAsleep();
    }
    ~HeldLog() { LetGo(); }
    HeldLog(const HeldLog&) = delete;
    HeldLog& operator=(const HeldLog&) = delete;

    void LetGo()
    {
        SetEvent(m_release.Get());
        m_clock.WaitUntilAllAsleep();
    }

private:
    VirtualClock& m_clock;
    UniqueHandle m_release;
};

// The same machine once more, in place of calls that are stuck; other values, to tell them apart.
class FreshMachine
{
public:
    explicit FreshMachine(ReportingBench& bench)
        : m_memory(bench.exports), m_pdh(bench.imports), m_wmi(bench.imports), m_table(bench.imports)
    {
        m_memory.SetUtilization(50, 25);
        m_pdh.SetInstances(L"Processor", {L"0", L"_Total"});
        m_pdh.SetValue(ReportingBench::ProcessorPath(L"0"), 7);
        m_pdh.SetInstances(L"PhysicalDisk", {L"0 C:", L"_Total"});
        m_pdh.SetValue(ReportingBench::DiskPath(L"0 C:"), 7000);
        m_wmi.SetObjects({WmiAdapter(L"Card", 2, WmiText(L"1000000000"))});
        m_table.AddRow(2);
        m_table.SetOctets(2, 1, 1);
        m_table.MoveAtEachRead(2, 12'500'000, 0);
    }

private:
    ScriptedMemoryStatus m_memory;
    ScriptedPdh m_pdh;
    ScriptedWmi m_wmi;
    ScriptedInterfaceTable m_table;
};

} // namespace

TEST_CASE("a start makes the four samplers and the report thread, in order, and says so")
{
    MachineBench bench;
    CHECK(StartPKIUtlThread() == 0);
    CHECK(bench.WorkersInSlots() == 5);
    CHECK(bench.imports.Calls("CreateThread") == 5);
    std::vector<Wanted> wanted = {{2, START_LINE}};
    for (const Kind& kind : KINDS)
    {
        wanted.push_back({4, kind.pszConstruct});
        wanted.push_back({4, kind.pszSuccess});
    }
    wanted.push_back({2, STARTED_LINE});
    CHECK_THAT(bench.ReadLog(), HasLinesInOrder(wanted));
    bench.clock.Advance(2);
    CHECK(bench.clock.Workers() == 5);
    CHECK(SampleCounts() == Counts{1, 1, 1, 1});
}

TEST_CASE("every worker runs at above-normal priority")
{
    MachineBench bench;
    std::vector<int> priorities;
    std::vector<DWORD> flags;
    bench.imports.Replace<decltype(::SetThreadPriority)>("SetThreadPriority",
                                                         [&](HANDLE hThread, int nPriority)
                                                         {
                                                             priorities.push_back(nPriority);
                                                             return SetThreadPriority(hThread, nPriority);
                                                         });
    bench.Start();
    CHECK(priorities == std::vector<int>(5, THREAD_PRIORITY_ABOVE_NORMAL));
}

TEST_CASE("each of the four samplers reads the trace switch once a minute, also on a machine without adapters")
{
    ReportingBench bench;
    bench.SetProcessors({L"0"});
    bench.SetDisks({L"0 C:"});
    bench.Start();
    const char* const pszLine = "[NeedToOutputCurrentUtil]failed to open registry (2)";
    CHECK(bench.ReadLog().Count(4, pszLine) == 4);
    bench.clock.Advance(62);
    CHECK(bench.ReadLog().Count(4, pszLine) == 8);
}

TEST_CASE("a second start in a row makes no thread and says only that it began and finished")
{
    MachineBench bench;
    bench.Start();
    bench.ForgetLog();
    CHECK(StartPKIUtlThread() == 0);
    CHECK(bench.imports.Calls("CreateThread") == 5);
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 2);
    CHECK_THAT(log, HasLinesInOrder({{2, START_LINE}, {2, STARTED_LINE}}));
    CHECK(bench.clock.Workers() == 5);
}

TEST_CASE("a stop with no threads waits for nothing and cleans up all the same")
{
    MachineBench bench;
    FillCpus({{L"0", {1}}});
    FillMemoryStore({1}, {2});
    FillDisks({{L"0 C:", {1}}});
    FillCards({MakeCard(2, L"AA", 1, 1)});
    CHECK(bench.Stop() == 0);
    CHECK(bench.imports.Calls("TerminateThread") == 0);
    CHECK(SampleCounts() == Counts{0, 0, 0, 0});
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 2);
    CHECK_THAT(log, HasLinesInOrder({{2, STOP_LINE}, {2, STOPPED_LINE}}));
}

TEST_CASE("a stop of idle workers takes about a second, and nothing is left of them")
{
    MachineBench bench;
    const std::size_t nThreads = CountThreads();
    bench.Start();
    bench.clock.Advance(100);
    bench.ForgetLog();
    CHECK(bench.Stop() <= 2);
    CHECK(bench.WorkersInSlots() == 0);
    CHECK(bench.clock.Workers() == 0);
    CHECK(CountThreads() == nThreads);
    CHECK(bench.imports.Calls("TerminateThread") == 0);
    CHECK(SampleCounts() == Counts{0, 0, 0, 0});
    CHECK_FALSE(HostAgent(bench.names.Key()).IsBeginSet());
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().front().text == STOP_LINE);
    CHECK(log.Lines().back().text == STOPPED_LINE);
    CHECK(log.CountOfLevel(2) == 2);
    CHECK(log.Count(1, "CPKIUtlCheckingThread -- get thread exit command, exit...") == 1);
    CHECK(log.CountContaining("thread exit...") + log.CountContaining("thread end...") == 5);
}

TEST_CASE("a stop right after a start ends every worker")
{
    MachineBench bench;
    StartPKIUtlThread();
    CHECK(bench.Stop() <= 3);
    CHECK(bench.WorkersInSlots() == 0);
    CHECK(bench.clock.Workers() == 0);
    CHECK(bench.imports.Calls("TerminateThread") == 0);
}

TEST_CASE("a start after a stop enumerates again and begins new histories")
{
    MachineBench bench;
    bench.Start();
    bench.clock.Advance(120);
    CHECK(Stores().cpu.Of(0).Size() == 3);
    CHECK(bench.Stop() <= 2);
    bench.SetProcessors({L"0", L"1"});
    bench.SetDisks({L"0 C:", L"1 D:", L"2 E:"});
    bench.Start();
    CHECK(Stores().cpu.GetNames()->size() == 2);
    CHECK(Stores().disk.GetNames()->size() == 3);
    CHECK(SampleCounts() == Counts{1, 1, 1, 1});
}

TEST_CASE("a worker that is stuck in a system call is ended by force after 15 seconds, and a start makes a new one")
{
    const std::string kind = GENERATE(as<std::string>{}, "CPU", "memory", "disk", "network", "WMI", "report");
    CAPTURE(kind);
    MachineBench bench;
    const std::size_t nThreads = CountThreads();
    {
        StuckCall stuck(bench);
        bench.Start();
        HostAgent agent(bench.names.Key());
        stuck.Engage(kind);
        if (kind == "report")
        {
            agent.Ask(60, 1);
        }
        bench.clock.Advance(65);
        REQUIRE(bench.clock.Workers() == 5);
        CHECK(bench.Stop() == 15);
        CHECK(bench.imports.Calls("TerminateThread") == 1);
        CHECK(bench.WorkersInSlots() == 0);
        CHECK(bench.clock.Workers() == 0);
        CHECK(CountThreads() == nThreads);
        CHECK(SampleCounts() == Counts{0, 0, 0, 0});
        CHECK_FALSE(agent.IsBeginSet());
    }
    const FreshMachine machine(bench);
    bench.ForgetLog();
    bench.Start();
    CHECK(bench.clock.Workers() == 5);
    CHECK(SampleCounts() == Counts{1, 1, 1, 1});
    for (const Kind& started : KINDS)
    {
        CHECK_THAT(bench.ReadLog(), HasLine(4, started.pszSuccess));
    }
    HostAgent agent(bench.names.Key());
    agent.Ask(60, 1);
    bench.clock.WaitUntilAllAsleep();
    CHECK(agent.TakeFinish());
    CHECK(ReadReport(agent.Text()) == ExpectedReport("2026-01-31 12:01:24")
                                          .Cpu("0", 7)
                                          .Memory(50, 10000, 25, 10000)
                                          .Disk("0", 7000)
                                          .Network("00:15:5D:00:00:12", 1000, 10)
                                          .Tree());
    CHECK(bench.Stop() <= 2);
    CHECK(bench.imports.Calls("TerminateThread") == 1);
}

TEST_CASE("workers that are stuck all at once share the 15 seconds")
{
    MachineBench bench;
    StuckCall stuck(bench);
    for (const Kind& kind : KINDS)
    {
        stuck.Engage(kind.pszName);
    }
    bench.Start();
    HostAgent agent(bench.names.Key());
    agent.Ask(60, 1);
    bench.clock.WaitUntilAllAsleep();
    CHECK(bench.Stop() == 15);
    CHECK(bench.imports.Calls("TerminateThread") == 5);
    CHECK(bench.WorkersInSlots() == 0);
    CHECK(bench.clock.Workers() == 0);
    // The network sampler was ended with its store's lock in its hands.
    CHECK(SampleCounts() == Counts{0, 0, 0, 0});
    bool bFree = false;
    bench.clock.RunWhileAdvancing(
        [&bFree]
        {
            ForEachStore(
                [&bFree](auto& store)
                {
                    bFree = store.lock.TryEnter();
                    store.lock.Leave();
                });
        });
    CHECK(bFree);
}

TEST_CASE("a worker that comes back within the 15 seconds is not ended by force")
{
    MachineBench bench;
    bench.SetDisks({L"0 C:", L"1 D:"});
    bench.SetDisk(L"0 C:", 0); // idle: six seconds
    bench.SetDisk(L"1 D:", 0);
    bench.Start();
    const unsigned nSeconds = bench.Stop();
    CHECK(nSeconds >= 4);
    CHECK(nSeconds < 15);
    CHECK(bench.imports.Calls("TerminateThread") == 0);
    CHECK(bench.WorkersInSlots() == 0);
    CHECK(bench.clock.Workers() == 0);
}

TEST_CASE("samplers that ended early keep their slots until a stop has waited its 15 seconds, and a start works")
{
    ReportingBench bench; // no processor and no disk
    bench.imports.CountCalls("TerminateThread");
    bench.Start();
    CHECK(bench.WorkersInSlots() == 5);
    CHECK(bench.clock.Workers() == 3); // the others go on
    StartPKIUtlThread();
    bench.clock.Advance(1);
    CHECK(bench.clock.Workers() == 3); // a slot that is taken is not filled
    const ULONGLONG ullSleeps = bench.clock.SleepCount(1000);
    CHECK(bench.Stop() == 15);
    CHECK(bench.clock.SleepCount(1000) >= ullSleeps + 15);
    CHECK(bench.imports.Calls("TerminateThread") == 0);
    CHECK(bench.WorkersInSlots() == 0);
    bench.SetProcessors({L"0"});
    bench.SetDisks({L"0 C:"});
    bench.Start();
    CHECK(bench.clock.Workers() == 5);
    CHECK(Stores().cpu.Of(0).Size() == 1);
    CHECK(bench.Stop() <= 2);
}

TEST_CASE("a thread that cannot be made is logged, and its kind counts as existing until a stop")
{
    const auto nKind = GENERATE(as<std::size_t>{}, 0, 1, 2, 3, 4);
    CAPTURE(KINDS[nKind].pszName);
    MachineBench bench;
    bench.imports.FailCall("CreateThread", nKind + 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    bench.Start();
    CHECK(bench.WorkersInSlots() == 5);
    CHECK(bench.clock.Workers() == 4);
    const LogFile log = bench.ReadLog();
    for (std::size_t i = 0; i < 5; ++i)
    {
        CHECK(log.Count(4, KINDS[i].pszSuccess) == (i == nKind ? 0 : 1));
        CHECK(log.Count(1, KINDS[i].pszFailure) == (i == nKind ? 1 : 0));
    }
    StartPKIUtlThread();
    CHECK(bench.imports.Calls("CreateThread") == 5);
    CHECK(bench.Stop() == 15);
    CHECK(bench.imports.Calls("TerminateThread") == 0);
    CHECK(bench.WorkersInSlots() == 0);
    bench.Start();
    CHECK(bench.clock.Workers() == 5);
    CHECK(bench.Stop() <= 2);
}

TEST_CASE("a worker for which there is no memory does not keep the others from starting")
{
    MachineBench bench;
    int nWorkers = 0;
    bench.imports.Replace<void*(std::size_t)>(
        "malloc",
        [&nWorkers](std::size_t cb) -> void*
        { return cb == sizeof(CPKIUtlCPUThread) && ++nWorkers == 2 ? nullptr : std::malloc(cb); });
    StartPKIUtlThread();
    bench.imports.Restore("malloc");
    CHECK(bench.WorkersInSlots() == 4);
    CHECK_FALSE(g_pUtlMemoryThread.IsSet());
    CHECK_THAT(bench.ReadLog(),
               HasLine(1, "StartPKIUtlThread -- exception stopped(std::bad_alloc).") && HasLine(2, STARTED_LINE));
    bench.Start();
    CHECK(bench.clock.Workers() == 5);
}

TEST_CASE("a begin event that a stop cannot open is logged, and the report thread is ended by force")
{
    MachineBench bench;
    bench.Start();
    HostAgent agent(bench.names.Key());
    bench.names.Hide(BEGIN_NAME);
    CHECK(bench.Stop() == 15);
    CHECK(bench.imports.Calls("TerminateThread") == 1);
    CHECK(bench.WorkersInSlots() == 0);
    CHECK(bench.clock.Workers() == 0);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "StopPKIUtlThread -- OpenEvent fail(2), Event "
                                           "name(Global\\{0362D603-1A78-45f6-92F9-A070F876338A})"));
    bench.names.ShowAll();
    bench.Start();
    agent.Ask(60, 1);
    bench.clock.WaitUntilAllAsleep();
    CHECK(agent.TakeFinish());
    CHECK(bench.Stop() <= 2);
}

TEST_CASE("a request that meets a stop is not answered by the next start")
{
    MachineBench bench;
    bench.Start();
    HostAgent agent(bench.names.Key());
    StuckCall stuck(bench);
    stuck.Engage("report");
    agent.Ask(60, 1);
    bench.clock.WaitUntilAllAsleep();
    CHECK(bench.Stop() == 15);
    CHECK_FALSE(agent.IsBeginSet());
    const FreshMachine machine(bench);
    bench.Start();
    CHECK_FALSE(agent.TakeFinish());
    CHECK(bench.ReadLog().CountContaining("has been signal") == 1);
}

TEST_CASE("stuck threads are ended while another program holds the log's mutex, and the log tells it later")
{
    MachineBench bench;
    StuckCall stuck(bench);
    bench.Start();
    for (const char* pszKind : {"CPU", "memory", "disk", "network"})
    {
        stuck.Engage(pszKind);
    }
    bench.clock.Advance(65);
    HeldLog held(bench);
    // 15 for the workers, one for the log's mutex, one for the log's mutex once more, and five for each line of its own.
    CHECK(bench.Stop() <= 15 + 1 + 1 + 2 * LINE_SECONDS);
    CHECK(bench.imports.Calls("TerminateThread") == 4);
    CHECK(bench.WorkersInSlots() == 0);
    CHECK(SampleCounts() == Counts{0, 0, 0, 0});
    CHECK(bench.ReadLog().CountContaining("ended by force") == 0);

    held.LetGo();
    const FreshMachine machine(bench);
    bench.Start();
    const LogFile log = bench.ReadLog();
    CHECK(log.Count(1, "StopPKIUtlThread -- ended by force: CPU, memory, disk, network. Locks of the system may have "
                       "gone with it: restart the process soon.") == 1);
    CHECK_THAT(log, HasLine(2, STARTED_LINE)); // the log goes on
    CHECK(bench.Stop() <= 2);
    CHECK(bench.ReadLog().CountContaining("ended by force") == 1);
}

TEST_CASE("a stuck thread that cannot be made to stand still while somebody else holds the log's mutex lives on")
{
    MachineBench bench;
    StuckCall stuck(bench);
    bench.Start();
    stuck.Engage("memory");
    bench.clock.Advance(65);
    {
        HeldLog held(bench);
        bench.imports.FailCall("SuspendThread", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED, static_cast<DWORD>(-1));
        bench.Stop();
        CHECK(bench.imports.Failures("SuspendThread") == 1);
        CHECK(bench.imports.Calls("TerminateThread") == 0);
        CHECK(g_pUtlMemoryThread.IsSet());
    }
    CHECK(bench.Stop() == 15);
    CHECK(bench.imports.Calls("TerminateThread") == 1);
    CHECK(bench.WorkersInSlots() == 0);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "StopPKIUtlThread -- a thread could not be ended: memory. The module must "
                                           "stay loaded."));
}

// It would take the mutex with it, and the log would be silent from then on.
TEST_CASE("a report thread that is stuck in a line of the log is spared, and so is the store in its hands")
{
    MachineBench bench;
    StuckCall stuck(bench);
    bench.Start();
    HostAgent agent(bench.names.Key());
    agent.Ask(60, 1);
    int nLines = 0;
    bench.imports.Replace<decltype(::CreateFileA)>(
        "CreateFileA",
        [&](LPCSTR pszPath, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwHow,
            DWORD dwAttributes, HANDLE hTemplate)
        {
            // The first line that a report writes while it averages the processors.
            if (++nLines == 6)
            {
                stuck.Block();
            }
            return CreateFileA(pszPath, dwAccess, dwShare, pSecurity, dwHow, dwAttributes, hTemplate);
        });
    bench.clock.WaitUntilAllAsleep();
    REQUIRE(nLines == 6);
    stuck.Engage("memory"); // this one is not spared
    bool bFree = true;
    bench.clock.RunWhileAdvancing([&bFree] { bFree = Stores().cpu.lock.TryEnter(); });
    REQUIRE_FALSE(bFree);
    bench.clock.Advance(65); // the CPU sampler waits for its store
    CHECK(bench.Stop() <= 15 + 1 + 1 + 2 * LINE_SECONDS);
    CHECK(bench.imports.Calls("TerminateThread") == 1);
    CHECK(bench.WorkersInSlots() == 1);
    CHECK(g_pUtlCheckingThread.IsSet());
    CHECK(bench.clock.Workers() == 1);
    CHECK(SampleCounts() == Counts{1, 0, 0, 0});
    CHECK(bench.Stop() <= 15 + 1 + 1 + 2 * LINE_SECONDS);
    CHECK(bench.WorkersInSlots() == 1);

    stuck.End();
    bench.clock.WaitUntilAllAsleep();
    CHECK(bench.WorkersInSlots() == 0); // it has gone by itself
    const FreshMachine machine(bench);
    bench.ForgetLog();
    bench.Start();
    CHECK(bench.clock.Workers() == 5);
    const LogFile log = bench.ReadLog();
    CHECK(log.Count(1, "StopPKIUtlThread -- a thread could not be ended, because it is writing to the log: report. The "
                       "module must stay loaded.") == 1);
    CHECK(log.Count(1, "StopPKIUtlThread -- samples are in use and were not freed: CPU.") == 1);
    CHECK(log.CountContaining("StopPKIUtlThread -- ended by force: memory.") == 1);
    CHECK(Stores().cpu.Of(0).Size() == 1);
    agent.Ask(60, 1);
    bench.clock.WaitUntilAllAsleep();
    CHECK(agent.TakeFinish());
    CHECK(bench.Stop() <= 2);
    CHECK(SampleCounts() == Counts{0, 0, 0, 0});
}

TEST_CASE("a thread that cannot be ended keeps its slot, and the next stop tries again")
{
    MachineBench bench;
    StuckCall stuck(bench);
    bench.Start();
    stuck.Engage("network"); // it holds its store's lock
    bench.clock.Advance(65);
    bench.imports.FailCall("TerminateThread", 1, FailMode::Once, ERROR_ACCESS_DENIED);
    CHECK(bench.Stop() == 15);
    CHECK(bench.WorkersInSlots() == 1);
    CHECK(g_pUtlNetworkThread.IsSet());
    CHECK(SampleCounts() == Counts{0, 0, 0, 1}); // the store in its hands is left alone
    CHECK(bench.Stop() == 15);
    CHECK(bench.WorkersInSlots() == 0);
    CHECK(SampleCounts() == Counts{0, 0, 0, 0});
}

// A thread that is stuck in the kernel dies when that call returns, which may be long after it was ended.
TEST_CASE("a thread that dies only after the stop gave it up leaves its store's lock to the next stop")
{
    MachineBench bench;
    StuckCall stuck(bench);
    bench.Start();
    stuck.Engage("network"); // it holds its store's lock
    bench.clock.Advance(65);
    UniqueHandle doomed;
    bench.imports.Replace<decltype(::TerminateThread)>("TerminateThread",
                                                       [&doomed](HANDLE hThread, DWORD) -> BOOL
                                                       {
                                                           return DuplicateHandle(GetCurrentProcess(), hThread,
                                                                                  GetCurrentProcess(), doomed.Receive(),
                                                                                  0, FALSE, DUPLICATE_SAME_ACCESS);
                                                       });
    bench.Stop();
    CHECK(g_pUtlNetworkThread.IsSet());
    CHECK_THAT(bench.ReadLog(),
               HasLine(1, "StopPKIUtlThread -- a thread could not be ended: network. The module must stay "
                          "loaded."));
    REQUIRE(doomed);
    CHECK(bench.clock.Terminate(doomed.Get(), 0) != FALSE);
    bench.Stop();
    CHECK(bench.WorkersInSlots() == 0);
    CHECK(SampleCounts() == Counts{0, 0, 0, 0});
    CHECK(bench.imports.Calls("TerminateThread") == 1);
}

TEST_CASE("a thread of which the stop gets no second handle is ended all the same")
{
    MachineBench bench;
    StuckCall stuck(bench);
    bench.Start();
    stuck.Engage("memory");
    bench.clock.Advance(65);
    bench.imports.FailCall("DuplicateHandle", 1, FailMode::FromThereOn, ERROR_NOT_ENOUGH_MEMORY);
    CHECK(bench.Stop() == 15);
    CHECK(bench.imports.Failures("DuplicateHandle") == 5);
    CHECK(bench.imports.Calls("TerminateThread") == 1);
    CHECK(bench.WorkersInSlots() == 0);
}

// A worker's last steps, behind its slot, have no other sign of their end than the thread's handle.
TEST_CASE("a stop that gets no handle of a thread says so when that worker has left its slot and its thread goes on")
{
    constexpr std::size_t NETWORK = 3; // of those that are started and stopped in turn
    std::vector<DWORD> threadIds;
    MachineBench bench;
    StuckCall stuck(bench);
    bench.imports.Replace<decltype(::SetThreadPriority)>("SetThreadPriority",
                                                         [&threadIds](HANDLE hThread, int nPriority)
                                                         {
                                                             threadIds.push_back(GetThreadId(hThread));
                                                             return SetThreadPriority(hThread, nPriority);
                                                         });
    bench.Start();
    REQUIRE(threadIds.size() == 5);
    bench.imports.Replace<decltype(::CoUninitialize)>("CoUninitialize",
                                                      [&]
                                                      {
                                                          if (GetCurrentThreadId() == threadIds[NETWORK])
                                                          {
                                                              stuck.Block();
                                                          }
                                                          CoUninitialize();
                                                      });
    bench.imports.FailCall("DuplicateHandle", NETWORK + 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    CHECK(bench.Stop() <= 2);
    REQUIRE(bench.imports.Failures("DuplicateHandle") == 1);
    CHECK(bench.WorkersInSlots() == 0);
    CHECK(bench.clock.Workers() == 1);
    CHECK(bench.ReadLog().Count(1,
                                "StopPKIUtlThread -- a thread's end could not be seen: network. The module must stay "
                                "loaded.") == 1);
    stuck.End();
    bench.clock.AdvanceUntilWorkersEnd(1);
}

TEST_CASE("a stuck thread's store lock is renewed though the system does not tell which thread it was")
{
    MachineBench bench;
    StuckCall stuck(bench);
    bench.Start();
    stuck.Engage("network"); // it holds its store's lock
    bench.clock.Advance(65);
    bench.imports.FailCall("GetThreadId", 1, FailMode::FromThereOn, ERROR_INVALID_HANDLE);
    CHECK(bench.Stop() == 15);
    CHECK(bench.imports.Calls("TerminateThread") == 1);
    CHECK(SampleCounts() == Counts{0, 0, 0, 0});
}

TEST_CASE("a start during a stop makes workers that the stop leaves alone and the next one ends")
{
    MachineBench bench;
    StuckCall stuck(bench);
    bench.Start();
    stuck.Engage("memory");
    bench.clock.Advance(65);
    bench.clock.RunOnOtherThread([] { StopPKIUtlThread(); });
    bench.clock.Advance(5);
    REQUIRE(bench.WorkersInSlots() == 1); // the stuck one, for which the stop waits
    bench.Start();
    CHECK(bench.WorkersInSlots() == 5);
    bench.clock.Advance(20);
    CHECK(bench.imports.Calls("TerminateThread") == 1);
    CHECK_FALSE(g_pUtlMemoryThread.IsSet());
    CHECK(bench.WorkersInSlots() == 4);
    CHECK(bench.clock.Workers() == 4);
    // The samples of the new ones stay, the adapter's behind those of before.
    CHECK(SampleCounts() == Counts{1, 0, 1, 3});
    CHECK_THAT(bench.ReadLog(),
               HasLine(1, "StartPKIUtlThread -- not started, because the last one is still stopping: memory."));
    CHECK(bench.Stop() <= 2);
    CHECK(bench.WorkersInSlots() == 0);
    CHECK(bench.clock.Workers() == 0);
    CHECK(bench.imports.Calls("TerminateThread") == 1);
}

TEST_CASE("a report thread that waits for a stuck sampler's store ends by itself at a stop, with the report")
{
    MachineBench bench;
    StuckCall stuck(bench);
    bench.Start();
    HostAgent agent(bench.names.Key());
    stuck.Engage("network"); // it holds its store's lock
    bench.clock.Advance(65);
    agent.Ask(60, 1);
    bench.clock.Advance(10);
    CHECK_FALSE(agent.TakeFinish());
    CHECK(bench.Stop() == 15);
    CHECK(bench.imports.Calls("TerminateThread") == 1); // the sampler's
    CHECK(agent.TakeFinish());
    CHECK(ReadReport(agent.Text()).children.size() == 4);
    const LogFile log = bench.ReadLog();
    CHECK_THAT(log,
               HasLine(1, "CreatePKIXMLToMMF -- network adapters left out of the report: the samples are in use."));
    CHECK_THAT(log, HasLine(3, "CPKIUtlCheckingThread -- thread exit..."));
}

TEST_CASE("a report does not wait for a stuck sampler longer than 20 seconds")
{
    MachineBench bench;
    StuckCall stuck(bench);
    bench.Start();
    HostAgent agent(bench.names.Key());
    stuck.Engage("network"); // it holds its store's lock
    bench.clock.Advance(65);
    agent.Ask(60, 1);
    bench.clock.Advance(19);
    CHECK_FALSE(agent.TakeFinish());
    bench.clock.Advance(1);
    CHECK(agent.TakeFinish());
    CHECK(ReadReport(agent.Text()).children.size() == 4);
}

TEST_CASE("two stops at once end every worker once")
{
    MachineBench bench;
    for (int nRound = 0; nRound < 10; ++nRound)
    {
        bench.Start();
        bench.clock.RunOnOtherThread([] { StopPKIUtlThread(); });
        bench.clock.RunOnOtherThread([] { StopPKIUtlThread(); });
        // Mostly a second. But a thread's real end takes real time, in which the virtual seconds of a stop that waits
        // for it run away: 15 for all threads together, and one more for each.
        bench.clock.AdvanceUntilWorkersEnd(15 + 5);
        CHECK(bench.WorkersInSlots() == 0);
    }
    CHECK(bench.imports.Calls("TerminateThread") == 0);
}

TEST_CASE("starts and stops leave no thread and no handle behind")
{
    MachineBench bench(1);
    const auto startAndStop = [&bench]
    {
        bench.Start();
        CHECK(bench.Stop() <= 2);
    };
    startAndStop();
    const std::size_t nHandles = CountHandles();
    const std::size_t nThreads = CountThreads();
    for (int i = 0; i < 20; ++i)
    {
        startAndStop();
    }
    CHECK(CountHandles() == nHandles);
    CHECK(CountThreads() == nThreads);
}

} // namespace varnex::test
