#include "ImagePages.h"
#include "Rows.h"
#include "Workers.h"

#include "alerting/AlertRecord.h"
#include "config/XmlConfig.h"
#include "diag/SPLogger.h"
#include "support/ChildProcess.h"
#include "support/ConfigBuilder.h"
#include "support/LoadedModule.h"
#include "support/ProcessMeter.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <objbase.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <sstream>

namespace varnex::bench
{

namespace
{

constexpr double DAY_SECONDS = 86'400;
constexpr double KIB = 1024;
constexpr double MIB = 1024 * 1024;

// --- processor time ---------------------------------------------------------------------------------------------------

// A part of a day of all workers, each with all seconds of its waits: module and floor in turn, who is first changing
// from worker to worker, and one pair of processor times in the end. The process's clock counts in hundredths of a
// second.
Pair MeasurePartOfDay(const FloorConfig& config, double dPart, bool bFloorFirst, std::size_t nWarmUp)
{
    Pair pair{};
    for (WorkerKind kind : WorkerKinds())
    {
        kind.nWaitSeconds = kind.nDefaultSeconds;
        const auto nCycles = static_cast<std::size_t>(DAY_SECONDS * dPart / kind.nDefaultSeconds);
        for (const bool bFloor : {bFloorFirst, !bFloorFirst})
        {
            (bFloor ? pair.dFloorNs : pair.dModuleNs) +=
                (bFloor ? CpuSecondsOfFloorCycles(kind, config, nCycles) : CpuSecondsOfCycles(kind, nCycles, nWarmUp)) *
                1e9;
        }
        bFloorFirst = !bFloorFirst;
    }
    return pair;
}

// What the monitors read is what their kinds are run with, or other days than that of the default would be measured.
void RequireDefaultIntervals()
{
    constexpr int MONITORS[] = {ALERT_TYPE_CPU, ALERT_TYPE_MEMORY, ALERT_TYPE_DISK, ALERT_TYPE_NETWORK};
    for (std::size_t i = 0; i < std::size(MONITORS); ++i)
    {
        const int nInterval = GetAlertConfValue(MONITORS[i], static_cast<unsigned>(ConfType::Interval));
        REQUIRE(nInterval == static_cast<int>(WorkerKinds()[i].nDefaultSeconds));
    }
}

// dMinutes: the part of the day that is run, five times.
void MeasureDay(Setting& setting, Results& results, const Machine& machine, const std::string& work, double dMinutes)
{
    const ComScope com;
    setting.WriteExampleConfig();
    RequireDefaultIntervals();
    const FloorConfig config(FloorConfigFile(setting));
    SetMachine(machine);
    const double dPart = (setting.effort.bWholeDay ? dMinutes : 2) * 60 / DAY_SECONDS;
    std::vector<Pair> pairs;
    for (std::size_t i = 0; i < (setting.effort.bWholeDay ? 5U : 1U); ++i)
    {
        const Pair part = MeasurePartOfDay(config, dPart, i % 2 != 0, setting.effort.bWholeDay ? WARM_UP_CYCLES : 1);
        pairs.push_back({part.dModuleNs / dPart, part.dFloorNs / dPart});
    }
    REQUIRE(setting.tree.Alerts().empty()); // an alert's cost in a part would count for many in the day
    Log()->Level = 0;
    setting.WriteConfig();
    Row row;
    row.operation = "processor time of a day";
    row.work = work;
    row.goal = {GoalKind::Ratio, 1.10};
    Summarise(row, pairs);
    results.Add(row);
    results.Add(Figure{work + ": share of one core", row.dModuleNs / 1e9 / DAY_SECONDS * 100, "%"});
    results.Add(Figure{work + ": share of one core of the floors", row.dFloorNs / 1e9 / DAY_SECONDS * 100, "%"});
}

// --- memory, handles, threads -----------------------------------------------------------------------------------------

// In the child: what a worker's sleeps do, until each has slept for a day in all; then it stays in its sleep.
std::atomic<unsigned> g_nDaysOver{0};
HANDLE g_hEnd = nullptr;
DWORD g_dwHostThread = 0;
ULONGLONG g_ullDayMs = 0;

void SleepThroughDay(DWORD dwMilliseconds)
{
    static thread_local ULONGLONG ullSlept = 0;
    if (GetCurrentThreadId() == g_dwHostThread)
    {
        SleepEx(20, FALSE); // an export that waits for workers
        return;
    }
    const ULONGLONG ullBefore = ullSlept;
    ullSlept += dwMilliseconds;
    if (ullBefore < g_ullDayMs && ullSlept >= g_ullDayMs)
    {
        ++g_nDaysOver;
        WaitForSingleObject(g_hEnd, INFINITE);
    }
}

void Tell(const char* pszName, double dValue)
{
    std::printf("figure %.3f %s\n", dValue, pszName);
}

DWORD WINAPI DoNothing(LPVOID)
{
    WaitForSingleObject(g_hEnd, INFINITE);
    return 0;
}

std::size_t BytesOfThread()
{
    const std::size_t cbBefore = test::PrivateBytes();
    const UniqueHandle thread(CreateThread(nullptr, 0, DoNothing, nullptr, 0, nullptr));
    REQUIRE(thread);
    Sleep(50);
    const std::size_t cbAfter = test::PrivateBytes();
    SetEvent(g_hEnd);
    REQUIRE(WaitForSingleObject(thread.Get(), 10'000) == WAIT_OBJECT_0);
    ResetEvent(g_hEnd);
    return cbAfter - cbBefore;
}

// What the loaded module has brought: memory that was asked for, and pages of its file that are no longer the file's.
void TellMemory(const test::LoadedModule& module, std::size_t cbBefore, const std::string& moment)
{
    const std::size_t cbImage = OwnBytesOfImage(module.Handle());
    const double dAllocated = static_cast<double>(test::PrivateBytes()) - static_cast<double>(cbBefore);
    Tell(("private memory " + moment + ", MiB").c_str(), (dAllocated + static_cast<double>(cbImage)) / MIB);
    Tell(("of it pages of the DLL that were written to, " + moment + ", KiB").c_str(),
         static_cast<double>(cbImage) / KIB);
}

// What one bare load of a configuration leaves with a process: the parser itself.
std::size_t BytesOfParser(test::ModuleTree& tree)
{
    const std::size_t cbBefore = test::PrivateBytes();
    const ComScope com;
    const FloorConfig config(tree.InBin(L"KpmCfg.xml"));
    config.ReadPolicyValue();
    return test::PrivateBytes() - cbBefore;
}

void MeasureRun(test::LoadedModule& module, std::size_t cbBefore, std::size_t nHandles, std::size_t nThreads)
{
    InstallStandIns(module.Handle());
    SetSleep(SleepThroughDay);
    module.Export<decltype(::StartWorkingThread)>("StartWorkingThread")(VARNEX_ALERT_ALL);
    module.Export<decltype(::StartPKIUtlThread)>("StartPKIUtlThread")();
    const ULONGLONG ullGiveUp = GetTickCount64() + 3'600'000;
    while (g_nDaysOver < WorkerKinds().size() && GetTickCount64() < ullGiveUp)
    {
        SleepEx(50, FALSE);
    }
    REQUIRE(g_nDaysOver == WorkerKinds().size());
    const std::size_t nWorking = test::CountThreads() - nThreads;
    Tell("threads while everything runs", static_cast<double>(nWorking));
    Tell("handles while everything runs", static_cast<double>(test::CountHandles() - nHandles));
    TellMemory(module, cbBefore, "after the day");
    SetEvent(g_hEnd);
    module.Export<decltype(::StopWorkingThread)>("StopWorkingThread")(VARNEX_ALERT_ALL);
    module.Export<decltype(::StopPKIUtlThread)>("StopPKIUtlThread")();
    for (int i = 0; i < 200 && test::CountThreads() > nThreads; ++i)
    {
        SleepEx(50, FALSE);
    }
    Tell("threads after the stop", static_cast<double>(test::CountThreads() - nThreads));
    TellMemory(module, cbBefore, "after the stop");
}

std::vector<Figure> FiguresOf(const std::string& output, const std::string& machine)
{
    std::vector<Figure> figures;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);)
    {
        std::istringstream words(line);
        std::string first;
        double dValue = 0;
        if (words >> first >> dValue && first == "figure")
        {
            std::string name;
            std::getline(words >> std::ws, name);
            name.erase(name.find_last_not_of("\r") + 1);
            const std::size_t nComma = name.rfind(", ");
            const bool bUnit = nComma != std::string::npos;
            figures.push_back({machine + ": " + name.substr(0, nComma), dValue, bUnit ? name.substr(nComma + 2) : ""});
        }
    }
    return figures;
}

void MeasureMemory(Setting& setting, Results& results, const wchar_t* pwszMachine, const std::string& machine)
{
    test::ChildOptions options;
    options.environment[L"VARNEX_BENCH_MACHINE"] = pwszMachine;
    options.environment[L"VARNEX_BENCH_DAY_SECONDS"] = setting.effort.bWholeDay ? L"86400" : L"600";
    test::ChildProcess child = test::ChildProcess::OfTestCase("child: a day of the shipped module", options);
    REQUIRE(child.WaitForEnd(3'700'000));
    INFO(child.Output());
    REQUIRE(child.ExitCode() == 0);
    const std::vector<Figure> figures = FiguresOf(child.Output(), machine);
    REQUIRE(figures.size() >= 8);
    for (const Figure& figure : figures)
    {
        results.Add(figure);
    }
}

} // namespace

TEST_CASE("child: a day of the shipped module", "[.]")
{
    Machine machine;
    const char* const pszMachine = std::getenv("VARNEX_BENCH_MACHINE");
    const char* const pszDay = std::getenv("VARNEX_BENCH_DAY_SECONDS");
    REQUIRE((pszMachine != nullptr && pszDay != nullptr));
    std::istringstream(pszMachine) >> machine.nProcessors >> machine.nDisks >> machine.nCards;
    SetMachine(machine);
    g_ullDayMs = std::strtoull(pszDay, nullptr, 10) * 1000;
    g_hEnd = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    g_dwHostThread = GetCurrentThreadId();
    test::ModuleTree tree;
    tree.CopyModule();
    tree.WriteConfig(test::ConfigBuilder()
                         .SetPolicy("CPU", 90, 1000, 5, 5)
                         .SetPolicy("Memory", 90, 1000, 5, 5)
                         .SetPolicy("Disk", 60, 1000, 5, 5)
                         .SetPolicy("Network", 90, 1000, 5, 5)
                         .SetCounter("Date", "2026-01-31")
                         .SetLogLevel(3));
    const ComScope com; // a host that uses COM and the parser already: what they bring is not the module's
    const FloorConfig config(tree.InBin(L"KpmCfg.xml"));
    config.ReadPolicyValue();
    Tell("a thread's stack, MiB", static_cast<double>(BytesOfThread()) / MIB);
    const std::size_t nThreads = test::CountThreads();
    const std::size_t nHandles = test::CountHandles();
    const std::size_t cbBefore = test::PrivateBytes();
    test::LoadedModule module(tree);
    TellMemory(module, cbBefore, "after load");
    Tell("handles after load", static_cast<double>(test::CountHandles() - nHandles));
    MeasureRun(module, cbBefore, nHandles, nThreads);
    REQUIRE(module.Unload());
    Tell("handles after unload", static_cast<double>(test::CountHandles() - nHandles));
    Tell("private memory after unload, MiB", static_cast<double>(test::PrivateBytes() - cbBefore) / MIB);
    test::LoadedModule again(tree);
    REQUIRE(again.Unload());
    Tell("handles after another load and unload", static_cast<double>(test::CountHandles() - nHandles));
}

TEST_CASE("child: the XML parser alone", "[.]")
{
    test::ModuleTree tree;
    tree.WriteConfig(test::ConfigBuilder().SetPolicy("CPU", 90, 85, 5, 5).SetCounter("Date", "2026-01-31"));
    Tell("private memory that the XML parser itself brings, MiB", static_cast<double>(BytesOfParser(tree)) / MIB);
}

void MeasureFootprint(Setting& setting, Results& results)
{
    results.Add(Figure{"size of the DLL, stripped",
                       static_cast<double>(std::filesystem::file_size(setting.tree.ModulePath())) / KIB, "KiB", 300});
    MeasureDay(setting, results, {8, 4, 4}, "8/4/4", 60);
    MeasureDay(setting, results, {64, 24, 16}, "64/24/16", 15);
    test::ChildProcess parser = test::ChildProcess::OfTestCase("child: the XML parser alone");
    REQUIRE(parser.WaitForEnd(60'000));
    for (const Figure& figure : FiguresOf(parser.Output(), "without the module"))
    {
        results.Add(figure);
    }
    MeasureMemory(setting, results, L"8 4 4", "8/4/4");
    MeasureMemory(setting, results, L"64 24 16", "64/24/16");
}

} // namespace varnex::bench
