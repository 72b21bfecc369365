// What the memory, disk and network monitors have in common, and where callers rely on their differences: policy,
// start, stop and end.

#include "MonitoredModule.h"

#include "sampling/NetworkUtilizationCollector.h"
#include "sampling/SampleHistory.h"
#include "support/ProcessMeter.h"
#include "support/StartedThreads.h"

#include <catch2/catch.hpp>

#include <atomic>
#include <cstdlib>
#include <functional>

namespace varnex::test
{

namespace
{

struct MonitorFacts
{
    unsigned nAlertType;
    const char* pszResource; // as in the names of its policy values
    const char* pszClass;    // as its policy messages name it
    int nInterval;           // the defaults
    int nThreshold;
    const char* pszApartmentFailure;
    const char* pszEnd;
    const char* pszBegin; // of the begin line
    DWORD dwMeasuringMs;  // a pass without its wait
    bool bKeepsSlotAfterApartmentFailure;
    bool bFreesSlotBeforeApartment;
    int nBlocksKept; // of a run: the disk monitor keeps a copy of the aggregate instance's name
};

const std::vector<MonitorFacts>& AllMonitors()
{
    static const std::vector<MonitorFacts> monitors = {
        {VARNEX_ALERT_MEMORY, "Memory", "CMonMemoryThread", 90, 85,
         "1 MonMemThread -- initialize COM interface failed(0x8007000e).",
         "4 Monitor Memory Utilization thread end working...",
         "3 [ID:#]Monitor Memory Usage thread begin: Interval(90)S, Threshold(85%), SamplingAmount InADay(5), "
         "MaxAlertNum(5)",
         0, true, true, 0},
        {VARNEX_ALERT_DISK, "Disk", "CMonDiskThread", 60, 50,
         "1 CMonDiskThread -- initialize COM interface failed(0x8007000e).",
         "4 Monitor Disk throughput thread end working...",
         "3 [ID:#]Monitor Disk Usage thread begin: Interval(60)S, Threshold(50MB/Sec), SamplingAmount InADay(5), "
         "MaxAlertNum(5)",
         100, true, true, 1},
        {VARNEX_ALERT_NETWORK, "Network", "CMonNetworkThread", 90, 60,
         "1 MonNetworkThread -- initialize COM interface failed(0x8007000e).",
         "4 Monitor Network throughput thread end working...",
         "3 [ID:#]Monitor Network utilization thread begin: Interval(90)S, Threshold(60%), SamplingAmount InADay(5), "
         "MaxAlertNum(5)",
         1000, false, false, 0},
    };
    return monitors;
}

MonitorFacts EachMonitor()
{
    return GENERATE(from_range(AllMonitors()));
}

// One quiet resource of each kind.
void SetQuietMachine(MonitoredModule& host)
{
    host.memory.SetUtilization(10, 10);
    host.pdh.SetInstances(L"PhysicalDisk", {L"0 C:", L"_Total"});
    host.pdh.SetValue(L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec", 1000.0);
    host.wmi.SetObjects({WmiAdapter(L"Eth A", 2, WmiText(L"1000000"))});
    host.interfaces.AddRow(2);
}

Lines PolicyLines(const MonitorFacts& facts, int nRead)
{
    const auto line = [&](const std::string& value, int nDefault)
    {
        return std::string("2 ") + facts.pszClass + "::UpdateAlertPolicy -- Get " + value +
               " policy fail, return value(" + std::to_string(nRead) + "), using default value(" +
               std::to_string(nDefault) + ")";
    };
    return {line("Interval", facts.nInterval), line("threshold", facts.nThreshold), line("SamplingAmount", 5),
            line("MaxAlertNum", 5)};
}

// Counts the blocks of memory that the module holds of those that it has asked for since.
class BlockCount
{
public:
    explicit BlockCount(ImportRedirector& imports) : m_imports(imports)
    {
        m_imports.Replace<void*(std::size_t)>("malloc",
                                              [this](std::size_t cb)
                                              {
                                                  void* const pBlock = std::malloc(cb);
                                                  m_nBlocks += pBlock != nullptr ? 1 : 0;
                                                  return pBlock;
                                              });
        m_imports.Replace<void(void*)>("free",
                                       [this](void* pBlock)
                                       {
                                           m_nBlocks -= pBlock != nullptr ? 1 : 0;
                                           std::free(pBlock);
                                       });
    }
    int Blocks() const { return m_nBlocks; }

private:
    RestoredImports m_imports;
    std::atomic<int> m_nBlocks{0};
};

void Measure(MonitoredModule& host, const MonitorFacts& facts)
{
    host.Start(facts.nAlertType);
    host.clock.AdvanceMs(facts.dwMeasuringMs);
}

// A way in which a monitor's thread ends, and the line that tells it from the others.
struct Ending
{
    const char* pszWhat;
    unsigned nAlertType;
    const char* pszSign;
    std::function<void(MonitoredModule&)> bringAbout; // called before the start
};

void FailStatus(MonitoredModule& host, const char* pszImport, ULONGLONG ullCall, HRESULT nStatus)
{
    host.imports.FailCall(pszImport, ullCall, FailMode::Once, {0, static_cast<DWORD>(nStatus), true});
}

// Disks whose names have that many characters.
void SetDisks(MonitoredModule& host, int nDisks, std::size_t cchName)
{
    std::vector<std::wstring> names;
    for (int i = 0; i < nDisks; ++i)
    {
        names.push_back(std::to_wstring(i));
        names.back().resize(cchName, L'd');
    }
    host.pdh.SetInstances(L"PhysicalDisk", names);
}

void FailBlocksOf(MonitoredModule& host, std::size_t cbBlock)
{
    host.imports.Replace<void*(std::size_t)>("malloc",
                                             [=](std::size_t cb) { return cb == cbBlock ? nullptr : std::malloc(cb); });
}

std::vector<Ending> AllEndings()
{
    const auto nothing = [](MonitoredModule&) {};
    std::vector<Ending> endings = {
        {"no disks", VARNEX_ALERT_DISK, "Fail to get physical disk name list, exit!",
         [](MonitoredModule& host) { host.pdh.SetInstances(L"PhysicalDisk", {}); }},
        {"no memory for a disk's name", VARNEX_ALERT_DISK, "AlertReachThreadProc -- exception stopped(std::bad_alloc).",
         [](MonitoredModule& host)
         {
             SetDisks(host, 1, 200);
             FailBlocksOf(host, 201);
         }},
        {"no memory for the disks' histories", VARNEX_ALERT_DISK, "fail to alloc new buffer to all disk throughput",
         [](MonitoredModule& host)
         {
             SetDisks(host, 137, 4);
             FailBlocksOf(host, 137 * sizeof(SampleHistory));
         }},
        {"no first list of adapters", VARNEX_ALERT_NETWORK, "initialize NetworkUtilizationCollector class failed",
         [](MonitoredModule& host) { host.wmi.Fail(ScriptedWmi::Step::Connect, E_ACCESSDENIED); }},
        {"no memory for the first list of adapters", VARNEX_ALERT_NETWORK,
         "CMonNetworkThread -- exception stopped(std::bad_alloc).",
         [](MonitoredModule& host) { FailBlocksOf(host, sizeof(NetworkCard)); }},
        {"no later list of adapters", VARNEX_ALERT_NETWORK, "Refresh the network card list failed",
         [](MonitoredModule& host) { FailStatus(host, "CoSetProxyBlanket", 2, E_ACCESSDENIED); }},
    };
    for (const unsigned nAlertType : {VARNEX_ALERT_CPU, VARNEX_ALERT_MEMORY, VARNEX_ALERT_DISK, VARNEX_ALERT_NETWORK})
    {
        endings.push_back({"a stop", nAlertType, "thread end", nothing});
        endings.push_back({"no COM", nAlertType, "initialize COM interface failed(0x8007000e).",
                           [](MonitoredModule& host) { FailStatus(host, "CoInitialize", 1, E_OUTOFMEMORY); }});
    }
    return endings;
}

} // namespace

TEST_CASE("a policy value that is missing or 0 is said and the default taken, at the start and in each pass")
{
    const MonitorFacts facts = EachMonitor();
    const int nRead = GENERATE(-1, 0);
    INFO(facts.pszClass << " reads " << nRead);
    ConfigBuilder config = ConfigBuilder().SetCounter("Date", "");
    if (nRead == 0)
    {
        config.SetPolicy(facts.pszResource, 0, 0, 0, 0);
    }
    MonitoredModule host(config);
    SetQuietMachine(host);
    Measure(host, facts);

    Lines wanted = PolicyLines(facts, nRead);
    wanted.push_back(facts.pszBegin);
    for (const std::string& line : PolicyLines(facts, nRead))
    {
        wanted.push_back(line);
    }
    CHECK(host.Log() == wanted);
    host.ForgetLog();
    host.clock.Advance(static_cast<unsigned>(facts.nInterval));
    CHECK(host.Log() == PolicyLines(facts, nRead));
    host.StopAndEnd(facts.nAlertType, 3);
}

TEST_CASE("a monitor leaves the log level alone: only the CPU monitor reads it")
{
    const MonitorFacts facts = EachMonitor();
    INFO(facts.pszClass);
    const int nLevel = GENERATE(0, 4);
    MonitoredModule host(ConfigBuilder().SetPolicy(facts.pszResource, 10, 80, 1, 5).SetLogLevel(nLevel));
    SetQuietMachine(host);
    Measure(host, facts);
    host.clock.Advance(12);
    CHECK(host.LogOf("thread begin").size() == 1);
    CHECK(host.LogOf("4 ").empty());
    host.StopAndEnd(facts.nAlertType, 3);
    CHECK(host.Log().size() == 1);
}

TEST_CASE("a monitor that waits ends within a second of the request to stop")
{
    const MonitorFacts facts = EachMonitor();
    INFO(facts.pszClass);
    MonitoredModule host(ConfigBuilder().SetPolicy(facts.pszResource, 1000, 80, 1, 5));
    SetQuietMachine(host);
    Measure(host, facts);
    host.clock.AdvanceMs(2500);
    host.Stop(facts.nAlertType);
    host.clock.AdvanceMs(499);
    CHECK(host.clock.Workers() == 1);
    CHECK(host.IsStartRefused(facts.nAlertType));
    host.clock.AdvanceMs(1);
    CHECK(host.clock.Workers() == 0);
    CHECK_FALSE(host.IsStartRefused(facts.nAlertType));
}

TEST_CASE("a policy edit counts from the next pass on")
{
    const MonitorFacts facts = EachMonitor();
    INFO(facts.pszClass);
    MonitoredModule host(ConfigBuilder().SetPolicy(facts.pszResource, 10, 80, 1, 5).SetCounter("Date", ""));
    SetQuietMachine(host);
    Measure(host, facts);
    host.tree.WriteConfig(ConfigBuilder().SetPolicy(facts.pszResource, 10, -7, 1, 5).SetCounter("Date", ""));
    host.clock.AdvanceMs(10'000 + facts.dwMeasuringMs - 1);
    CHECK(host.Alerts().empty());
    host.clock.AdvanceMs(1);
    const std::string beginning = std::to_string(facts.nAlertType) + ";-7;";
    REQUIRE_FALSE(host.Alerts().empty());
    CHECK_THAT(host.Alerts().front(), Catch::StartsWith(beginning));
    host.StopAndEnd(facts.nAlertType, 3);
}

TEST_CASE("without COM the memory and disk monitors are done at once, the network monitor ends in full")
{
    const MonitorFacts facts = EachMonitor();
    INFO(facts.pszClass);
    MonitoredModule host(ConfigBuilder().SetLogLevel(4)); // a policy read would be heard
    SetQuietMachine(host);
    host.LogEverything();
    host.imports.FailCall("CoInitialize", 1, FailMode::Once, {0, static_cast<DWORD>(E_OUTOFMEMORY), true});
    const ULONGLONG ullLeft = host.imports.Calls("CoUninitialize");
    host.Start(facts.nAlertType);
    host.clock.AdvanceUntilWorkersEnd(0);
    REQUIRE(host.imports.Failures("CoInitialize") == 1);

    Lines said = host.Log();
    REQUIRE_FALSE(said.empty());
    said.erase(said.begin()); // its construction
    const bool bKeeps = facts.bKeepsSlotAfterApartmentFailure;
    CHECK(said == (bKeeps ? Lines{facts.pszApartmentFailure} : Lines{facts.pszApartmentFailure, facts.pszEnd}));
    CHECK(host.imports.Calls("CoUninitialize") - ullLeft == (bKeeps ? 0 : 1));
    CHECK(host.IsStartRefused(facts.nAlertType) == bKeeps);
    host.StopAndEnd(facts.nAlertType, 3);
    CHECK(host.IsStartRefused(facts.nAlertType) == bKeeps);
}

TEST_CASE("a monitor's thread ends with 1, in whatever way it ends")
{
    const Ending ending = GENERATE(from_range(AllEndings()));
    INFO(ending.pszWhat << ", monitor " << ending.nAlertType);
    ConfigBuilder config = ConfigBuilder().SetLogLevel(4);
    for (const char* pszResource : {"CPU", "Memory", "Disk", "Network"})
    {
        config.SetPolicy(pszResource, 10, 200, 1, 5);
    }
    MonitoredModule host(config);
    SetQuietMachine(host);
    host.LogEverything();
    const StartedThreads threads(host.imports);
    ending.bringAbout(host);
    host.Start(ending.nAlertType);
    host.clock.Advance(15);
    host.StopAndEnd(ending.nAlertType, 3);
    CHECK(host.LogOf(ending.pszSign).size() == 1);
    CHECK(threads.ExitCodes() == std::vector<DWORD>{1});
}

TEST_CASE("a thread that is in another kind of apartment already is good enough")
{
    const MonitorFacts facts = EachMonitor();
    INFO(facts.pszClass);
    MonitoredModule host(ConfigBuilder().SetPolicy(facts.pszResource, 10, 80, 1, 5).SetLogLevel(4));
    SetQuietMachine(host);
    host.LogEverything();
    const auto nStatus = std::make_shared<HRESULT>(S_OK);
    host.imports.Replace<decltype(::CoInitialize)>("CoInitialize",
                                                   [nStatus](LPVOID pReserved)
                                                   {
                                                       CoInitializeEx(nullptr, COINIT_MULTITHREADED);
                                                       *nStatus = CoInitialize(pReserved);
                                                       return *nStatus;
                                                   });
    const ULONGLONG ullLeft = host.imports.Calls("CoUninitialize");
    Measure(host, facts);
    CHECK(*nStatus == RPC_E_CHANGED_MODE);
    CHECK(host.LogOf("Before Checking").size() == 1);
    CHECK(host.LogOf("initialize COM").empty());
    host.StopAndEnd(facts.nAlertType, 3);
    CHECK(host.imports.Calls("CoUninitialize") == ullLeft + 1);
}

TEST_CASE("memory and disk free their slots before they leave COM, the network monitor afterwards")
{
    const MonitorFacts facts = EachMonitor();
    INFO(facts.pszClass);
    MonitoredModule host(ConfigBuilder().SetPolicy(facts.pszResource, 10, 80, 1, 5).SetLogLevel(4));
    SetQuietMachine(host);
    host.LogEverything();
    HeldAtUninitialize held(host);
    Measure(host, facts);
    host.Stop(facts.nAlertType);
    host.clock.Advance(2);
    REQUIRE(host.clock.Workers() == 1); // held
    REQUIRE(host.Log().back() == facts.pszEnd);
    CHECK(host.IsStartRefused(facts.nAlertType) != facts.bFreesSlotBeforeApartment);
    host.Stop(facts.nAlertType);
    held.LetGo();
    host.clock.AdvanceUntilWorkersEnd(3);
    CHECK_FALSE(host.IsStartRefused(facts.nAlertType));
}

TEST_CASE("every initialisation of COM is undone once over a full run")
{
    const MonitorFacts facts = EachMonitor();
    INFO(facts.pszClass);
    MonitoredModule host(ConfigBuilder().SetPolicy(facts.pszResource, 10, 80, 1, 5));
    SetQuietMachine(host);
    Measure(host, facts);
    CHECK(host.imports.Calls("CoInitialize") == 1);
    CHECK(host.imports.Calls("CoUninitialize") == 0);
    host.StopAndEnd(facts.nAlertType);
    CHECK(host.imports.Calls("CoInitialize") == 1);
    CHECK(host.imports.Calls("CoUninitialize") == 1);
}

TEST_CASE("two hundred starts and stops leave no handle, thread, memory or slot behind")
{
    const MonitorFacts facts = EachMonitor();
    INFO(facts.pszClass);
    MonitoredModule host(ConfigBuilder().SetPolicy(facts.pszResource, 10, 80, 1, 5));
    SetQuietMachine(host);
    const auto run = [&]
    {
        Measure(host, facts);
        host.StopAndEnd(facts.nAlertType);
    };
    run(); // the first one opens what stays open
    const BlockCount memory(host.imports);
    const std::size_t nHandles = CountHandles();
    const std::size_t nThreads = CountThreads();
    for (int i = 0; i < 200; ++i)
    {
        run();
    }
    CHECK(CountHandles() == nHandles);
    CHECK(CountThreads() == nThreads);
    CHECK(memory.Blocks() == 200 * facts.nBlocksKept);
    CHECK(host.LogOf("thread begin").size() == 201);
    CHECK(host.LogOf("exist").empty());
    CHECK(host.pdh.OpenQueries() == 0);
    CHECK(host.wmi.LiveObjects() == 0);
    CHECK(host.wmi.LiveTexts() == 0);
    CHECK_FALSE(host.IsStartRefused(facts.nAlertType));
}

} // namespace varnex::test
