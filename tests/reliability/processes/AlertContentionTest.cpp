#include "ModuleInChild.h"
#include "SharedPage.h"

#include "reliability/LongForm.h"

#include "alerting/AlertStore.h"
#include "common/LocalTime.h"
#include "common/Procedure.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <algorithm>
#include <vector>

// Many processes store alerts, two fetch them through the shipped DLL, and some are killed within a store, with the
// mutex in hand.

namespace varnex::test
{

namespace
{

constexpr int PROCESSES = 8;
constexpr int THREADS = 4;
constexpr int WRITERS = PROCESSES * THREADS;
constexpr int ALERTS = 250; // of each writer
constexpr int FETCHERS = 2;
constexpr int VICTIMS = 3; // of each round; their alerts have WRITERS for a threshold
constexpr int FETCHED_AT_ONCE = 20;
constexpr DWORD PATIENCE_MS = 300'000;
constexpr LONG LONGEST_CALL_MS = 30'000; // half of the time after which a store or a fetch goes on without the mutex
constexpr wchar_t STORE_MUTEX_NAME[] = L"Global\\{A2C32408-95FF-4183-8208-1C370A075B80}";

struct Exchange
{
    volatile LONG anTaken[WRITERS + 1][ALERTS]; // how often each record came out; the victims' come last
    volatile LONG nStored;
    volatile LONG nRefused;
    volatile LONG nUnknown; // records that nobody stored
    volatile LONG anFetches[FETCHERS];
    volatile LONG nLongestStoreMs;
    volatile LONG nLongestFetchMs;
    volatile LONG nFoundAbandoned; // waits that got the mutex of a process that had died with it
    volatile LONG nWritersDone;
};

// Every wait of these imports for a mutex that its owner died with is counted.
void CountAbandoned(ImportRedirector& imports, const SharedPage<Exchange>& exchange)
{
    imports.Replace<decltype(::WaitForSingleObject)>(
        "WaitForSingleObject",
        [&exchange](HANDLE hObject, DWORD dwMilliseconds)
        {
            const DWORD dwResult = WaitForSingleObject(hObject, dwMilliseconds);
            InterlockedExchangeAdd(&exchange->nFoundAbandoned, dwResult == WAIT_ABANDONED ? 1 : 0);
            return dwResult;
        });
}

void StoreAll(const SharedPage<Exchange>& exchange, int nWriter)
{
    for (int nAlert = 0; nAlert < ALERTS; ++nAlert)
    {
        const ULONGLONG ullBegin = GetTickCount64();
        const int nResult = SaveLocalAlertInfo(1, nWriter, nAlert, "", AsHappenTime(SecondsNow()), nullptr);
        RaiseTo(exchange->nLongestStoreMs, static_cast<LONG>(GetTickCount64() - ullBegin));
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
    const ULONGLONG ullBegin = GetTickCount64();
    const int nCount = pfnGetAlertRecord(anTypes, apwszTexts, 0, anThresholds, anValues, FETCHED_AT_ONCE);
    RaiseTo(exchange->nLongestFetchMs, static_cast<LONG>(GetTickCount64() - ullBegin));
    for (int i = 0; i < nCount; ++i)
    {
        const bool bKnown = anTypes[i] == 1 && anThresholds[i] >= 0 && anThresholds[i] <= WRITERS && anValues[i] >= 0 &&
                            anValues[i] < ALERTS;
        InterlockedIncrement(bKnown ? &exchange->anTaken[anThresholds[i]][anValues[i]] : &exchange->nUnknown);
    }
    return nCount;
}

// What a victim's write has done when it is killed.
enum Victim : int
{
    VICTIM_BEFORE_WRITE,
    VICTIM_AFTER_WRITE,
    VICTIM_HALF_WRITTEN
};

// Stores its alert like anybody; the write tells that it has begun and never returns.
void StoreUntilKilled(ImportRedirector& imports, int nVictim, HANDLE hHolding)
{
    imports.Replace<decltype(::WriteFile)>(
        "WriteFile",
        [nVictim, hHolding](HANDLE hFile, LPCVOID pData, DWORD cbData, LPDWORD pcbWritten, LPOVERLAPPED pOverlapped)
        {
            if (nVictim != VICTIM_BEFORE_WRITE)
            {
                WriteFile(hFile, pData, nVictim == VICTIM_AFTER_WRITE ? cbData : cbData / 2, pcbWritten, pOverlapped);
            }
            SetEvent(hHolding);
            Sleep(PATIENCE_MS);
            return FALSE;
        });
    SaveLocalAlertInfo(1, WRITERS, nVictim, "", AsHappenTime(SecondsNow()), nullptr);
}

// How often the alerts of all rounds came out.
struct Tally
{
    int nOnce = 0;
    int nNever = 0;
    int nMoreOften = 0;
    int nStored = 0;
    int nVictimsOut = 0;     // alerts of victims that had written the whole line
    int nAmongWriters = 0;   // victims killed while the writers were at work, and could not get on
    int nFoundAbandoned = 0; // the mutexes of victims that were found by others
    LONG nLongestStoreMs = 0;
    LONG nLongestFetchMs = 0;
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

    // Kills a process within its store, with the mutex in hand.
    void KillWithinStore(int nVictim, Tally& tally)
    {
        m_orders.nIndex = nVictim;
        ChildProcess victim = StartChild("child: stores an alert and is killed within it", m_orders);
        REQUIRE(WaitForSingleObject(m_holding.Get(), PATIENCE_MS) == WAIT_OBJECT_0);
        Sleep(20); // some wait for the mutex now, and a store that was done is counted
        const LONG nStored = m_exchange->nStored;
        Sleep(20);
        CHECK(m_exchange->nStored == nStored); // or the victim had no mutex
        REQUIRE(victim.Runs());
        CHECK(IsStoreTaken());
        victim.Kill();
        tally.nAmongWriters += nStored > 0 && nStored < WRITERS * ALERTS ? 1 : 0;
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

    void Count(Tally& tally) const
    {
        CountTaken(tally);
        tally.nStored += m_exchange->nStored;
        tally.nFoundAbandoned += m_exchange->nFoundAbandoned;
        tally.nLongestStoreMs = (std::max)(tally.nLongestStoreMs, LONG{m_exchange->nLongestStoreMs});
        tally.nLongestFetchMs = (std::max)(tally.nLongestFetchMs, LONG{m_exchange->nLongestFetchMs});
    }

    const Exchange& Result() const { return *m_exchange.operator->(); }

private:
    static bool IsStoreTaken()
    {
        const UniqueHandle mutex(OpenMutexW(SYNCHRONIZE, FALSE, STORE_MUTEX_NAME));
        REQUIRE(mutex);
        const bool bTaken = WaitForSingleObject(mutex.Get(), 0) == WAIT_TIMEOUT;
        ReleaseMutex(mutex.Get()); // fails without harm
        return bTaken;
    }

    void CountTaken(Tally& tally) const
    {
        for (int nWriter = 0; nWriter < WRITERS; ++nWriter)
        {
            for (const LONG nTaken : m_exchange->anTaken[nWriter])
            {
                ++(nTaken == 0 ? tally.nNever : nTaken == 1 ? tally.nOnce : tally.nMoreOften);
            }
        }
        const volatile LONG* const pnVictims = m_exchange->anTaken[WRITERS];
        CHECK(pnVictims[VICTIM_BEFORE_WRITE] == 0);
        CHECK(pnVictims[VICTIM_AFTER_WRITE] == 1);
        CHECK(pnVictims[VICTIM_HALF_WRITTEN] == 0); // dropped, and it alone
        tally.nVictimsOut += pnVictims[VICTIM_AFTER_WRITE];
    }

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
    const SharedPage<Exchange> exchange(orders.Name(L"exchange"));
    ModuleInChild module(orders.modulePath);
    CountAbandoned(module.Imports(), exchange);
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
    ImportRedirector imports(hModule);
    CountAbandoned(imports, exchange);
    for (bool bDone = false; !bDone;)
    {
        bDone = exchange->nWritersDone != 0; // read before the fetch that finds nothing
        const int nCount = FetchSome(pfnGetAlertRecord, exchange);
        InterlockedExchangeAdd(&exchange->anFetches[orders.nIndex], nCount != 0 && !bDone ? 1 : 0);
        bDone = bDone && nCount == 0;
    }
    FreeLibrary(hModule);
}

TEST_CASE("child: stores an alert and is killed within it", "[.]")
{
    const Orders orders = Orders::FromParent();
    const SharedPage<Exchange> exchange(orders.Name(L"exchange"));
    ModuleInChild module(orders.modulePath);
    CountAbandoned(module.Imports(), exchange); // of the victim before
    const UniqueHandle holding(OpenEventW(EVENT_MODIFY_STATE, FALSE, orders.Name(L"holding").c_str()));
    REQUIRE(holding);
    StoreUntilKilled(module.Imports(), orders.nIndex, holding.Get());
}

TEST_CASE("alerts of eight processes come out exactly once while two fetch and others are killed within their stores")
{
    const int nRounds = IsLongForm() ? 10 : 1;
    Tally tally;
    for (int nRound = 0; nRound < nRounds; ++nRound)
    {
        CAPTURE(nRound);
        ModuleTree tree;
        tree.CopyModule();
        Round round(tree);
        round.WaitForFirstAlerts();
        for (int nVictim = 0; nVictim < VICTIMS; ++nVictim)
        {
            round.KillWithinStore(nVictim, tally);
        }
        round.End();
        const Exchange& result = round.Result();
        CHECK(result.nStored == WRITERS * ALERTS);
        CHECK(result.nRefused == 0);
        CHECK(result.nUnknown == 0);
        CHECK(result.nFoundAbandoned == VICTIMS); // each died with the mutex, and somebody had it next
        round.Count(tally);
        CHECK(tree.Alerts().empty());
        for (const LONG nFetches : result.anFetches)
        {
            CHECK(nFetches > 0); // while the writers were at work
        }
    }
    CHECK(tally.nAmongWriters > 0);
    CHECK(tally.nLongestStoreMs < LONGEST_CALL_MS);
    CHECK(tally.nLongestFetchMs < LONGEST_CALL_MS);
    CHECK(tally.nOnce == nRounds * WRITERS * ALERTS);
    CHECK(tally.nNever == 0);
    CHECK(tally.nMoreOften == 0);
    PrintFigure("contention: " + std::to_string(tally.nStored) + " alerts of " + std::to_string(PROCESSES) +
                " processes with " + std::to_string(THREADS) + " writers each, fetched by " + std::to_string(FETCHERS) +
                " processes: " + std::to_string(tally.nOnce) + " once, " + std::to_string(tally.nNever) + " never, " +
                std::to_string(tally.nMoreOften) + " more often; " + std::to_string(tally.nFoundAbandoned) +
                " more processes killed within their stores, " + std::to_string(tally.nAmongWriters) +
                " of them while the writers were at work, " + std::to_string(tally.nVictimsOut) +
                " with the line written, which came out; longest store " + std::to_string(tally.nLongestStoreMs) +
                " ms, longest fetch " + std::to_string(tally.nLongestFetchMs) + " ms");
}

} // namespace varnex::test
