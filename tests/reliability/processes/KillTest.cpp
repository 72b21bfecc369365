#include "ModuleInChild.h"
#include "SharedPage.h"
#include "WaitMicroseconds.h"

#include "reliability/LongForm.h"

#include "alerting/AlertStore.h"
#include "common/LocalTime.h"
#include "config/DailyCounters.h"
#include "support/AlertLines.h"

#include <catch2/catch.hpp>

#include <objbase.h>

#include <algorithm>
#include <random>

// A process that saves its counts and stores its alerts as fast as it can is killed at any moment.

namespace varnex::test
{

namespace
{

constexpr wchar_t TODAY[] = L"2026-01-31";
constexpr DWORD PATIENCE_MS = 60'000;
constexpr unsigned SEED = 20260131;

// How far the process came. Numbers go on from one process to the next; what was begun and not finished is in doubt.
struct Progress
{
    volatile LONG nAlertBegun;
    volatile LONG nAlertStored;
    volatile LONG nCountBegun;
    volatile LONG nCountSaved;
    volatile LONG nRefused; // calls that failed
};

void StoreAlerts(const SharedPage<Progress>& progress)
{
    for (;;)
    {
        const LONG nValue = InterlockedIncrement(&progress->nAlertBegun);
        if (SaveLocalAlertInfo(3, 50, nValue, "0 C:", AsHappenTime(SecondsNow()), nullptr) != 0)
        {
            InterlockedIncrement(&progress->nRefused);
        }
        InterlockedExchange(&progress->nAlertStored, nValue);
    }
}

void SaveCounts(const SharedPage<Progress>& progress)
{
    CoInitialize(nullptr);
    for (;;)
    {
        const LONG nValue = InterlockedIncrement(&progress->nCountBegun);
        if (SaveAlertNumIntoLocal(TODAY, ALERT_COUNTER_CPU, static_cast<unsigned>(nValue)) != 0)
        {
            InterlockedIncrement(&progress->nRefused);
        }
        InterlockedExchange(&progress->nCountSaved, nValue);
    }
}

// What the kills met.
struct Tally
{
    int nKills = 0;
    int nTornLines = 0;   // cut by the test, as a power failure leaves them
    int nTornAlone = 0;   // of these, that the fetch dropped with no other
    int nInDoubt = 0;     // kills in the middle of a store
    int nInDoubtKept = 0; // of these the line was there
    int nLeftOver = 0;    // kills that left the configuration's temporary file
    long long llAlerts = 0;
    long long llLost = 0;   // alerts that were reported as stored and are not there
    int nBrokenConfigs = 0; // that do not load, or are neither the one before the last save nor the one after it
};

class Killing
{
public:
    explicit Killing(ModuleTree& tree) : m_tree(tree), m_orders(OrdersOf(tree)), m_progress(m_orders.Name(L"progress"))
    {
    }

    // Lets a process work for a moment of its life and kills it.
    void KillOne()
    {
        const LONG nAlertsBefore = m_progress->nAlertStored;
        const LONG nCountsBefore = m_progress->nCountSaved;
        ChildProcess child = StartChild("child: saves counts and stores alerts until it is killed", m_orders);
        const ULONGLONG ullGiveUp = GetTickCount64() + PATIENCE_MS;
        while (m_progress->nAlertStored == nAlertsBefore || m_progress->nCountSaved == nCountsBefore)
        {
            INFO(child.Output());
            REQUIRE(child.Runs());
            REQUIRE(GetTickCount64() < ullGiveUp);
            Sleep(1);
        }
        WaitMicroseconds(std::uniform_int_distribution<unsigned>(0, 20'000)(m_random));
        child.Kill();
        ++m_tally.nKills;
        REQUIRE(m_progress->nRefused == 0);
    }

    // The file holds all lines that were reported, in order, and perhaps the one in doubt; all of them are whole.
    void CheckAlertFile()
    {
        const std::vector<AlertLine> lines = ReadAlertLines(m_tree);
        const auto nReported = static_cast<std::size_t>(m_progress->nAlertStored - m_nTaken);
        const bool bInDoubt = m_progress->nAlertBegun != m_progress->nAlertStored;
        m_tally.llLost += static_cast<long long>(nReported - (std::min)(nReported, lines.size()));
        CHECK(lines.size() >= nReported);
        REQUIRE(lines.size() <= nReported + (bInDoubt ? 1 : 0));
        for (std::size_t i = 0; i < lines.size(); ++i)
        {
            REQUIRE(lines[i].nValue == m_nTaken + 1 + static_cast<int>(i));
            REQUIRE(lines[i].resource == "0 C:");
        }
        m_tally.nInDoubt += bInDoubt ? 1 : 0;
        m_tally.nInDoubtKept += lines.size() > nReported ? 1 : 0;
        m_tally.llAlerts += static_cast<long long>(lines.size());
    }

    // The file as it is when its last line did not reach the disk as a whole.
    void TearLastLine()
    {
        const std::string bytes = m_tree.Alerts();
        const std::size_t nLine = bytes.rfind('\n', bytes.size() - 2) + 1; // 0 for a single line
        const std::size_t nSemicolons = bytes.rfind(';') - nLine;          // with all of them the line would be whole
        m_tree.WriteAlerts(
            bytes.substr(0, nLine + std::uniform_int_distribution<std::size_t>(1, nSemicolons)(m_random)));
        m_nTorn = 1;
        ++m_tally.nTornLines;
    }

    // A next process stores one more alert behind whatever is there.
    void StoreOneMore()
    {
        const LONG nValue = InterlockedIncrement(&m_progress->nAlertBegun);
        REQUIRE(SaveLocalAlertInfo(3, 50, nValue, "0 C:", AsHappenTime(SecondsNow()), nullptr) == 0);
        m_nMore = 1;
    }

    // The fetch gives every line but the torn one, and leaves nothing.
    void FetchAll(std::size_t nLinesBefore)
    {
        std::vector<VARNEX_ALERT_BUF> records;
        REQUIRE(ReadLocalAlertInf(records, 1'000'000) == 0);
        REQUIRE(records.size() == nLinesBefore - m_nTorn + m_nMore);
        for (std::size_t i = 0; i + m_nMore < records.size(); ++i)
        {
            REQUIRE(records[i].Value == m_nTaken + 1 + static_cast<int>(i));
        }
        if (m_nMore != 0)
        {
            REQUIRE(records.back().Value == m_progress->nAlertBegun);
        }
        REQUIRE(m_tree.Alerts().empty());
        m_tally.nTornAlone += static_cast<int>(m_nTorn);
        m_nTaken = m_progress->nAlertBegun;
        m_progress->nAlertStored = m_nTaken;
        m_nTorn = 0;
        m_nMore = 0;
    }

    // The configuration is the one before or after the last save, with all that is not the module's.
    void CheckConfig()
    {
        int nCount = -77;
        const int nResult = GetAlertNumFromLocal(TODAY, ALERT_COUNTER_CPU, &nCount);
        const bool bWhole = nResult == 0 && nCount >= m_progress->nCountSaved && nCount <= m_progress->nCountBegun;
        m_tally.nBrokenConfigs += bWhole ? 0 : 1;
        CAPTURE(nResult, nCount, m_progress->nCountSaved, m_progress->nCountBegun);
        CHECK(bWhole);
        CHECK(m_tree.ConfigNode(L"KPMConfiguration/PkiAlert/CPUThreshold") == L"85");
        CHECK(m_tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/Date") == TODAY);
        CHECK(m_tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/CPU") == std::to_wstring(nCount));
        m_tally.nLeftOver += FileExists(m_tree.InBin(L"KpmCfg.xml.tmp")) ? 1 : 0;
    }

    const Tally& Result() const noexcept { return m_tally; }

private:
    ModuleTree& m_tree;
    const Orders m_orders;
    const SharedPage<Progress> m_progress;
    std::mt19937 m_random{SEED};
    Tally m_tally;
    int m_nTaken = 0;        // the last alert that was fetched
    std::size_t m_nTorn = 0; // lines torn and alerts stored after that, since then
    std::size_t m_nMore = 0;
};

} // namespace

TEST_CASE("child: saves counts and stores alerts until it is killed", "[.]")
{
    const Orders orders = Orders::FromParent();
    const ModuleInChild module(orders.modulePath);
    const SharedPage<Progress> progress(orders.Name(L"progress"));
    RunThreads(2, [&](int nThread) { nThread == 0 ? StoreAlerts(progress) : SaveCounts(progress); });
}

TEST_CASE("a process killed at any moment loses no alert that it stored and leaves a whole configuration")
{
    const int nKills = IsLongForm() ? 500 : 100;
    ModuleTree tree;
    tree.WriteConfig(
        ConfigBuilder().SetPolicy("CPU", 60, 85, 5, 3).SetCounter("Date", "2026-01-31").SetCounter("CPU", "0"));
    const ModuleInChild module(tree.ModulePath());
    Killing killing(tree);
    for (int nKill = 0; nKill < nKills; ++nKill)
    {
        CAPTURE(nKill);
        killing.KillOne();
        killing.CheckConfig();
        killing.CheckAlertFile();
        const std::size_t nLines = ReadAlertLines(tree).size();
        if (nKill % 3 != 0)
        {
            killing.TearLastLine();
        }
        if (nKill % 3 == 2)
        {
            killing.StoreOneMore();
        }
        killing.FetchAll(nLines);
    }
    const Tally& tally = killing.Result();
    CHECK(tally.nInDoubt > nKills / 20); // or the kills did not meet the work
    PrintFigure("kill: " + std::to_string(tally.nKills) + " kills, " + std::to_string(tally.llAlerts) + " alerts, " +
                std::to_string(tally.llLost) + " lost, " + std::to_string(tally.nBrokenConfigs) +
                " broken configurations; " + std::to_string(tally.nInDoubt) + " kills within a store (" +
                std::to_string(tally.nInDoubtKept) + " of these lines were whole), " +
                std::to_string(tally.nTornLines) + " lines torn by the test, " + std::to_string(tally.nTornAlone) +
                " of them dropped alone, " + std::to_string(tally.nLeftOver) + " temporary files left");
}

} // namespace varnex::test
