#include "ModuleInChild.h"
#include "SharedPage.h"

#include "reliability/LongForm.h"

#include "alerting/AlertStore.h"
#include "common/LocalTime.h"
#include "common/Procedure.h"
#include "entry/ModuleState.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <algorithm>
#include <vector>

// Many processes store alerts, two fetch them through the shipped DLL, and some die with the store's mutex in hand.

namespace varnex::test
{

namespace
{

constexpr int PROCESSES = 8;
constexpr int THREADS = 4;
constexpr int WRITERS = PROCESSES * THREADS;
constexpr int ALERTS = 250; // of each writer
constexpr int FETCHERS = 2;
constexpr int FETCHED_AT_ONCE = 20;
constexpr DWORD PATIENCE_MS = 300'000;
constexpr LONG LONGEST_CALL_MS = 30'000; // half of the time after which the store goes on without its mutex

struct Exchange
{
    volatile LONG anTaken[WRITERS][ALERTS]; // how often each record came out
    volatile LONG nStored;
    volatile LONG nRefused;
    volatile LONG nUnknown; // records that nobody stored
    volatile LONG anFetches[FETCHERS];
    volatile LONG nLongestCallMs;
    volatile LONG nWritersDone;
};

void StoreAll(const SharedPage<Exchange>& exchange, int nWriter)
{
    for (int nAlert = 0; nAlert < ALERTS; ++nAlert)
    {
        const ULONGLONG ullBegin = GetTickCount64();
        const int nResult = SaveLocalAlertInfo(1, nWriter, nAlert, "", AsHappenTime(SecondsNow()), nullptr);
        RaiseTo(exchange->nLongestCallMs, static_cast<LONG>(GetTickCount64() - ullBegin));
        InterlockedIncrement(nResult == 0 ? &exchange->nStored : &exchange->nRefused);
    }
}

// One call of the DLL's export; every record is marked in the page.
int FetchSome(decltype(::GetAlertRecord)* pfnGetAlertRecord, const SharedPage<Exchange>& exchange)
{
    int anTypes[FETCHED_AT_ONCE + 1];
    int anThresholds[FETCHED_AT_ONCE + 1];
    int anValues[FETCHED_AT_ONCE + 1];
    wchar_t* apwszTexts[FETCHED_AT_ONCE + 1] = {};
    const int nCount = pfnGetAlertRecord(anTypes, apwszTexts, 0, anThresholds, anValues, FETCHED_AT_ONCE);
    for (int i = 0; i < nCount; ++i)
    {
        const bool bKnown = anTypes[i] == 1 && anThresholds[i] >= 0 && anThresholds[i] < WRITERS && anValues[i] >= 0 &&
                            anValues[i] < ALERTS;
        InterlockedIncrement(bKnown ? &exchange->anTaken[anThresholds[i]][anValues[i]] : &exchange->nUnknown);
    }
    return nCount;
}

// How often the alerts of all rounds came out.
struct Tally
{
    int nOnce = 0;
    int nNever = 0;
    int nMoreOften = 0;
    int nStored = 0;
};

// The writers and the fetchers of one round.
class Round
{
public:
    explicit Round(const ModuleTree& tree)
        : m_orders(OrdersOf(tree)), m_exchange(m_orders.Name(L"exchange")),
          m_holding(CreateEventW(nullptr, FALSE, FALSE, m_orders.Name(L"holding").c_str()))
    {
        for (m_orders.nIndex = 0; m_orders.nIndex < FETCHERS; ++m_orders.nIndex)
        {
            m_fetchers.push_back(StartChild("child: fetches until nothing is left", m_orders));
        }
        for (m_orders.nIndex = 0; m_orders.nIndex < PROCESSES; ++m_orders.nIndex)
        {
            m_writers.push_back(StartChild("child: stores alerts from four threads", m_orders));
        }
    }

    // Kills a process that has the mutex. Returns whether the writers were at work then.
    bool AbandonMutex()
    {
        const LONG nStored = m_exchange->nStored;
        ChildProcess holder = StartChild("child: takes the mutex and keeps it", m_orders);
        REQUIRE(WaitForSingleObject(m_holding.Get(), PATIENCE_MS) == WAIT_OBJECT_0);
        Sleep(20); // some wait for it now
        holder.Kill();
        return nStored > 0 && m_exchange->nStored < WRITERS * ALERTS;
    }

    void End()
    {
        for (const ChildProcess& writer : m_writers)
        {
            CheckEnded(writer);
        }
        InterlockedExchange(&m_exchange->nWritersDone, 1);
        for (const ChildProcess& fetcher : m_fetchers)
        {
            CheckEnded(fetcher);
        }
    }

    void WaitForFirstAlerts() const
    {
        const ULONGLONG ullGiveUp = GetTickCount64() + PATIENCE_MS;
        while (m_exchange->nStored < WRITERS)
        {
            REQUIRE(GetTickCount64() < ullGiveUp);
            Sleep(1);
        }
    }

    void CountTaken(Tally& tally) const
    {
        for (const auto& writer : m_exchange->anTaken)
        {
            for (const LONG nTaken : writer)
            {
                ++(nTaken == 0 ? tally.nNever : nTaken == 1 ? tally.nOnce : tally.nMoreOften);
            }
        }
    }

    const Exchange& Result() const { return *m_exchange.operator->(); }

private:
    static void CheckEnded(const ChildProcess& child)
    {
        REQUIRE(child.WaitForEnd(PATIENCE_MS));
        INFO(child.Output());
        CHECK(child.ExitCode() == 0);
    }

    Orders m_orders;
    const SharedPage<Exchange> m_exchange;
    const UniqueHandle m_holding;
    std::vector<ChildProcess> m_fetchers;
    std::vector<ChildProcess> m_writers;
};

} // namespace

TEST_CASE("child: stores alerts from four threads", "[.]")
{
    const Orders orders = Orders::FromParent();
    const ModuleInChild module(orders.modulePath);
    const SharedPage<Exchange> exchange(orders.Name(L"exchange"));
    RunThreads(THREADS, [&](int nThread) { StoreAll(exchange, orders.nIndex * THREADS + nThread); });
}

TEST_CASE("child: fetches until nothing is left", "[.]")
{
    const Orders orders = Orders::FromParent();
    const SharedPage<Exchange> exchange(orders.Name(L"exchange"));
    const HMODULE hModule = LoadLibraryW(orders.modulePath.c_str());
    REQUIRE(hModule != nullptr);
    const auto pfnGetAlertRecord = ProcedureOf<decltype(::GetAlertRecord)*>(hModule, "GetAlertRecord");
    REQUIRE(pfnGetAlertRecord != nullptr);
    for (bool bDone = false; !bDone;)
    {
        bDone = exchange->nWritersDone != 0; // read before the fetch that finds nothing
        const int nCount = FetchSome(pfnGetAlertRecord, exchange);
        InterlockedExchangeAdd(&exchange->anFetches[orders.nIndex], nCount != 0 && !bDone ? 1 : 0);
        bDone = bDone && nCount == 0;
    }
    FreeLibrary(hModule);
}

TEST_CASE("child: takes the mutex and keeps it", "[.]")
{
    const Orders orders = Orders::FromParent();
    const ModuleInChild module(orders.modulePath);
    WaitForSingleObject(g_hAlertFileMutex, INFINITE);
    const UniqueHandle holding(OpenEventW(EVENT_MODIFY_STATE, FALSE, orders.Name(L"holding").c_str()));
    SetEvent(holding.Get());
    Sleep(PATIENCE_MS);
}

TEST_CASE("alerts of eight processes come out exactly once while two fetch and others die with the mutex")
{
    const int nRounds = IsLongForm() ? 10 : 1;
    Tally tally;
    int nAbandoned = 0;
    LONG nLongestCallMs = 0;
    for (int nRound = 0; nRound < nRounds; ++nRound)
    {
        CAPTURE(nRound);
        ModuleTree tree;
        tree.CopyModule();
        Round round(tree);
        round.WaitForFirstAlerts();
        for (int i = 0; i < 3; ++i)
        {
            nAbandoned += round.AbandonMutex() ? 1 : 0;
        }
        round.End();
        const Exchange& result = round.Result();
        CHECK(result.nStored == WRITERS * ALERTS);
        CHECK(result.nRefused == 0);
        CHECK(result.nUnknown == 0);
        tally.nStored += result.nStored;
        round.CountTaken(tally);
        CHECK(tree.Alerts().empty());
        for (const LONG nFetches : result.anFetches)
        {
            CHECK(nFetches > 0); // while the writers were at work
        }
        CHECK(result.nLongestCallMs < LONGEST_CALL_MS);
        nLongestCallMs = (std::max)(nLongestCallMs, static_cast<LONG>(result.nLongestCallMs));
    }
    CHECK(nAbandoned > 0);
    CHECK(tally.nOnce == nRounds * WRITERS * ALERTS);
    CHECK(tally.nNever == 0);
    CHECK(tally.nMoreOften == 0);
    PrintFigure("contention: " + std::to_string(tally.nStored) + " alerts of " + std::to_string(PROCESSES) +
                " processes with " + std::to_string(THREADS) + " writers each, fetched by " + std::to_string(FETCHERS) +
                " processes: " + std::to_string(tally.nOnce) + " once, " + std::to_string(tally.nNever) + " never, " +
                std::to_string(tally.nMoreOften) + " more often; mutex abandoned " + std::to_string(nAbandoned) +
                " times meanwhile; longest store " + std::to_string(nLongestCallMs) + " ms");
}

} // namespace varnex::test
