// Days of everything under the virtual clock: what the module keeps of each is what it keeps on purpose, to the byte.

#include "CoarseTime.h"
#include "HeapLedger.h"
#include "PolicyFile.h"
#include "TimedMachine.h"
#include "reliability/LongForm.h"

#include "support/AlertLines.h"
#include "support/ChildProcess.h"
#include "support/HostAgent.h"
#include "support/LogFile.h"
#include "support/ProcessMeter.h"
#include "support/XmlReader.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <utility>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr int MAX_ALERTS = 5;
constexpr int KINDS = 5;
constexpr unsigned HOUR = 3600;
constexpr std::size_t LOG_LIMIT = 8'388'608;
constexpr std::size_t LONGEST_LINE = 1024; // no line of these days is longer

// What a day keeps on purpose. Of each start of the disk monitor, the disk sampler and the processors' sampler: the name
// of the aggregate instance, "_Total".
constexpr long long KEPT_NAMES = 3;
constexpr long long KEPT_NAME_BYTES = sizeof "_Total" + 2 * sizeof L"_Total";
// Of each disk measurement, one block from GlobalAlloc.
constexpr long long KEPT_BLOCK_BYTES = 16;
// Of each worker that ended, the debug record of its critical section, which the system's libraries take.
constexpr long long WORKERS = 9;
// What the system's libraries and the stand-ins have in hand, one time more and another time less; the module's own blocks
// are counted to the byte.
constexpr long long BLOCKS_IN_HAND = 16;
// What these cost with the heap's own, and what the heap takes from the system at a time. A block that is kept between
// others that are given back holds room open, up to its own size again.
constexpr long long HEAP_BLOCK_BYTES = 32;
constexpr long long DEBUG_RECORD_BYTES = 64;
constexpr long long HEAP_STEP_BYTES = 64 * 1024;

ConfigBuilder SoakConfig()
{
    ConfigBuilder config;
    for (const char* pszResource : {"CPU", "Memory", "Disk", "Network"})
    {
        config.SetPolicy(pszResource, 600, 50, 2, MAX_ALERTS);
    }
    return config.SetLogLevel(4).SetCounter("Date", "");
}

// The state at the end of a day, everything running.
struct DayEnd
{
    HeapLedger::Blocks ordinary;
    HeapLedger::Blocks global;
    long long llMeasured; // of the disk
    long long llHandles;
    long long llThreads;
    long long llPrivate;
    long long llHeapBlocks; // of the whole process: the module's, the system libraries' and the test's
};

long long CountHeapBlocks()
{
    const UnscriptedScope unscripted;
    long long llBlocks = 0;
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(GetProcessHeap(), &entry) != FALSE)
    {
        llBlocks += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? 1 : 0;
    }
    REQUIRE(GetLastError() == ERROR_NO_MORE_ITEMS);
    return llBlocks;
}

class SoakMachine
{
    // The log is near its limit when the module loads, so that it rolls on the first day.
    class FullLogMachine : public TimedMachine
    {
    public:
        FullLogMachine() : TimedMachine(SoakConfig(), Utc(), Attach::Later)
        {
            std::string lines;
            while (lines.size() < LOG_LIMIT - 10'000)
            {
                lines += "2026-04-30 12:00:00 [3] - the days before\r\n";
            }
            WriteFileBytes(tree.InLogs(L"Varnex.log"), lines);
        }
    };

public:
    SoakMachine() : m_heap(m_machine.imports), m_time(m_machine.imports, m_machine.module.Handle())
    {
        m_machine.AttachNow();
    }

    // One hour less than that; then everything is stopped, and the next day begins an hour after that.
    DayEnd LiveADay(int nHours);
    void End()
    {
        m_machine.Stop();
        m_nFetched += FetchAll();
    }

    TimedMachine& Machine() { return m_machine; }
    int Fetched() const { return m_nFetched; }
    int Reports() const { return m_nReports; }
    int Policies() const { return m_nPolicies; }

private:
    ULONGLONG ToFullHour() const { return HOUR * 1000 - m_machine.clock.ElapsedMs() % (HOUR * 1000); }
    void LiveAnHour(int nHour);
    void ForgetCalls();
    void AskForReport();
    int Fetch();
    int FetchAll();
    DayEnd TakeStock();

    FullLogMachine m_machine;
    HeapLedger m_heap;
    CoarseTime m_time;
    WORD m_wDay = 0;
    int m_nFetched = 0;
    int m_nReports = 0;
    int m_nPolicies = 0;
};

DayEnd SoakMachine::LiveADay(int nHours)
{
    m_machine.zone.SetUtc(LocalTime{2026, 5, ++m_wDay, 0, 30});
    m_machine.StartMonitors();
    m_machine.StartReporting();
    for (int nHour = 0; nHour < nHours - 1; ++nHour)
    {
        LiveAnHour(nHour);
    }
    const DayEnd end = TakeStock();
    m_machine.Stop();
    m_machine.clock.AdvanceMs(ToFullHour());
    return end;
}

void SoakMachine::LiveAnHour(int nHour)
{
    static constexpr std::array<int, 3> INTERVALS = {600, 300, 900};
    m_machine.SetLoad(nHour % 2 == 1);
    if (nHour % 6 == 3)
    {
        ++m_nPolicies;
        ChangeThresholds(m_machine.tree, m_nPolicies % 2 == 0 ? 50 : 60);
        ChangeIntervals(m_machine.tree, INTERVALS.at(static_cast<std::size_t>(nHour / 6) % INTERVALS.size()));
    }
    m_machine.clock.Advance(HOUR / 2);
    AskForReport();
    m_machine.clock.AdvanceMs(ToFullHour());
    if (nHour % 4 == 2)
    {
        m_nFetched += Fetch();
    }
    ForgetCalls();
}

void SoakMachine::ForgetCalls()
{
    m_machine.pdh.ForgetCalls();
    m_machine.wmi.ForgetCalls();
    m_machine.table.ForgetCalls();
    m_machine.registry.ForgetOpenedKeys();
    m_machine.names.ForgetAsked();
}

void SoakMachine::AskForReport()
{
    HostAgent agent(m_machine.names.Key());
    agent.Ask(60, 1);
    REQUIRE(m_machine.clock.AdvanceUntil([&agent] { return agent.TakeFinish(); }, 20));
    REQUIRE(agent.Text().find(L"<CPUUtil") != std::wstring::npos);
    ++m_nReports;
}

int SoakMachine::Fetch()
{
    constexpr int nMaxCount = 10;
    constexpr unsigned cchText = 256;
    int anTypes[nMaxCount + 1] = {};
    int anThresholds[nMaxCount + 1] = {};
    int anValues[nMaxCount + 1] = {};
    wchar_t awszTexts[nMaxCount + 1][cchText] = {};
    wchar_t* apwszTexts[nMaxCount + 1] = {};
    std::transform(std::begin(awszTexts), std::end(awszTexts), std::begin(apwszTexts),
                   [](wchar_t(&wszText)[cchText]) { return wszText; });
    const int nCount = m_machine.module.Export<decltype(::GetAlertRecord)>("GetAlertRecord")(
        anTypes, apwszTexts, cchText, anThresholds, anValues, nMaxCount);
    REQUIRE(nCount <= nMaxCount + 1);
    return std::max(nCount, 0);
}

int SoakMachine::FetchAll()
{
    int nAll = 0;
    for (int nCount = Fetch(); nCount != 0; nCount = Fetch())
    {
        nAll += nCount;
    }
    return nAll;
}

DayEnd SoakMachine::TakeStock()
{
    // Nobody in the middle of a measurement.
    REQUIRE(m_machine.clock.AdvanceUntil([this] { return m_machine.pdh.OpenQueries() == 0; }, 60));
    ForgetCalls();
    return {m_heap.Ordinary(),
            m_heap.Global(),
            static_cast<long long>(m_machine.Measured().ullDisk),
            static_cast<long long>(CountHandles()),
            static_cast<long long>(CountThreads()),
            static_cast<long long>(PrivateBytes()),
            CountHeapBlocks()};
}

// What each day's end has to have in common with the first one's.
void CheckDayEnds(const std::vector<DayEnd>& days)
{
    const DayEnd& first = days.front();
    for (const DayEnd& day : days)
    {
        CHECK(day.llHandles == first.llHandles);
        CHECK(day.llThreads == first.llThreads);
        CHECK(day.global.llCount == day.llMeasured);
        CHECK(day.global.llBytes == day.llMeasured * KEPT_BLOCK_BYTES);
    }
}

// The log rolled, each file in its bounds, and nothing in them is an error but the report thread's word at each end.
void CheckLogs(const ModuleTree& tree, int nDays)
{
    std::size_t nFiles = 0;
    std::size_t nErrors = 0;
    for (const std::wstring& name : tree.FilesInLogs())
    {
        if (name.find(L"Varnex") == 0)
        {
            const std::string bytes = ReadFileBytes(tree.InLogs(name));
            ++nFiles;
            nErrors += LogFile::FromBytes(bytes).CountOfLevel(1);
            CHECK(bytes.size() <= LOG_LIMIT + LONGEST_LINE);
        }
    }
    CHECK(nFiles >= 2);
    CHECK(nErrors == static_cast<std::size_t>(nDays));
}

// VARNEX_SOAK_DAYS=N lives so many instead, for a machine that has no time.
int LongDays()
{
    wchar_t wszDays[8] = L"";
    GetEnvironmentVariableW(L"VARNEX_SOAK_DAYS", wszDays, 8);
    const int nDays = _wtoi(wszDays);
    return nDays >= 2 ? nDays : 30;
}

constexpr wchar_t SABOTAGE_VARIABLE[] = L"VARNEX_TEST_SABOTAGE";
constexpr DWORD PATIENCE_MS = 300'000;

bool IsSabotaged()
{
    return GetEnvironmentVariableW(SABOTAGE_VARIABLE, nullptr, 0) != 0;
}

// The exit code, which counts the failed checks, and the output of a child that lives two short days.
std::pair<DWORD, std::string> LiveShortDaysInChild(const ChildOptions& options)
{
    const ChildProcess child = ChildProcess::OfTestCase("child: lives two short days of everything", options);
    REQUIRE(child.WaitForEnd(PATIENCE_MS));
    return {child.ExitCode(), child.Output()};
}

std::string Range(long long llFirst, long long llLast)
{
    return std::to_string(llFirst) + " -> " + std::to_string(llLast);
}

} // namespace

TEST_CASE("days of everything keep what is kept on purpose, to the byte, and no handle")
{
    const int nDays = IsLongForm() ? LongDays() : 2;
    const int nHours = IsLongForm() ? 24 : 12;
    SoakMachine machine;
    machine.LiveADay(2); // makes what is made once
    std::vector<DayEnd> days;
    days.reserve(static_cast<std::size_t>(nDays));
    for (int nDay = 0; nDay < nDays; ++nDay)
    {
        days.push_back(machine.LiveADay(nHours));
    }
    machine.End();

    const DayEnd& first = days.front();
    const DayEnd& last = days.back();
    const long long llDays = nDays - 1;
    CheckDayEnds(days);
    CHECK(last.llMeasured - first.llMeasured >= llDays * (nHours - 1) * 60);
    CHECK(last.ordinary.llCount - first.ordinary.llCount == llDays * KEPT_NAMES);
    CHECK(last.ordinary.llBytes - first.ordinary.llBytes == llDays * KEPT_NAME_BYTES);
    const long long llKeptBlocks = last.global.llCount - first.global.llCount + llDays * KEPT_NAMES;
    const long long llGrown = last.llHeapBlocks - first.llHeapBlocks;
    CHECK(llGrown >= llKeptBlocks - BLOCKS_IN_HAND);
    CHECK(llGrown <= llKeptBlocks + llDays * WORKERS + BLOCKS_IN_HAND); // six a day of the nine were seen to stay
    const long long llKept = llKeptBlocks * HEAP_BLOCK_BYTES + llDays * WORKERS * DEBUG_RECORD_BYTES;
    CHECK(last.llPrivate - first.llPrivate <= 5 * llKept / 2 + 2 * HEAP_STEP_BYTES);
    CHECK(machine.Fetched() == nDays * KINDS * MAX_ALERTS);
    CHECK(machine.Reports() == nDays * (nHours - 1) + 1);
    CHECK(machine.Machine().wmi.LiveObjects() == 0);
    CHECK(machine.Machine().wmi.LiveTexts() == 0);
    CHECK(machine.Machine().pdh.OpenQueries() == 0);
    CheckLogs(machine.Machine().tree, nDays + 1);
    PrintFigure("soak: " + std::to_string(nDays) + " days of " + std::to_string(nHours) + " hours of everything: " +
                std::to_string(machine.Fetched()) + " alerts, " + std::to_string(machine.Reports()) + " reports, " +
                std::to_string(machine.Policies()) + " policies; handles " + Range(first.llHandles, last.llHandles) +
                ", threads " + Range(first.llThreads, last.llThreads) + "; blocks of the module's own " +
                Range(first.ordinary.llCount, last.ordinary.llCount) + ", of disk measurements " +
                Range(first.global.llCount, last.global.llCount) + ", of the whole process " +
                Range(first.llHeapBlocks, last.llHeapBlocks) + " (kept on purpose " +
                std::to_string(llKeptBlocks + llDays * WORKERS) + "); private bytes " +
                Range(first.llPrivate, last.llPrivate) + " (kept on purpose " + std::to_string(llKept) + ")");
}

TEST_CASE("child: lives two short days of everything", "[.]")
{
    SoakMachine machine;
    machine.LiveADay(1); // makes what is made once
    std::vector<DayEnd> days = {machine.LiveADay(1)};
    if (IsSabotaged())
    {
        (void)CreateEventW(nullptr, TRUE, FALSE, nullptr); // never closed, that is the point
    }
    days.push_back(machine.LiveADay(1));
    machine.End();
    CheckDayEnds(days);
}

TEST_CASE("the soak notices a handle that is not given back")
{
    const auto [dwSound, soundOutput] = LiveShortDaysInChild({});
    INFO(soundOutput);
    CHECK(dwSound == 0);

    ChildOptions sabotage;
    sabotage.environment = {{SABOTAGE_VARIABLE, L"handle"}};
    const auto [dwSabotaged, output] = LiveShortDaysInChild(sabotage);
    INFO(output);
    CHECK(dwSabotaged == 1);
    CHECK_THAT(output, Catch::Contains("day.llHandles == first.llHandles"));
}

} // namespace varnex::test
