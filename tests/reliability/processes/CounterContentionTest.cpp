#include "ModuleInChild.h"
#include "SharedPage.h"

#include "reliability/LongForm.h"

#include "config/DailyCounters.h"

#include <catch2/catch.hpp>

#include <objbase.h>

#include <vector>

// Four processes, each saving a count of its own and reading those of all.

namespace varnex::test
{

namespace
{

constexpr wchar_t TODAY[] = L"2026-01-31";
constexpr int COUNTERS[] = {ALERT_COUNTER_CPU, ALERT_COUNTER_DISK, ALERT_COUNTER_NETWORK, ALERT_COUNTER_PAGING_FILE};
constexpr int PROCESSES = 4;
constexpr DWORD PATIENCE_MS = 600'000;
constexpr LONG REFUSED_READS_ARE_FEWER_THAN_ONE_IN = 100;

struct Counts
{
    volatile LONG anBegun[PROCESSES]; // between a save's begin and its end either value is right
    volatile LONG anSaved[PROCESSES];
    volatile LONG nSaves;
    volatile LONG nReady;
    volatile LONG nReads;
    volatile LONG nRefusedReads; // with the status of a file in use: documented, and no count
    volatile LONG nWrong;
    volatile LONG nWrongResult;
    volatile LONG nRefusedSaves;
    volatile LONG nRefusedSaveResult;
};

void SaveOne(const SharedPage<Counts>& counts, int nProcess, int nSaves)
{
    for (int nSave = 1; nSave <= nSaves; ++nSave)
    {
        InterlockedExchange(&counts->anBegun[nProcess], nSave);
        const int nResult = SaveAlertNumIntoLocal(TODAY, COUNTERS[nProcess], static_cast<unsigned>(nSave));
        if (nResult == 0)
        {
            InterlockedExchange(&counts->anSaved[nProcess], nSave);
            InterlockedIncrement(&counts->nSaves);
        }
        else
        {
            InterlockedIncrement(&counts->nRefusedSaves);
            InterlockedExchange(&counts->nRefusedSaveResult, nResult);
        }
    }
}

bool IsWrong(int nResult, int nCount, LONG nLeast, LONG nMost)
{
    if (nResult == 0)
    {
        return nCount < nLeast || nCount > nMost;
    }
    // Any of the small results would let a monitor count from 0 or look for another cause.
    return SUCCEEDED(nResult) || nResult == COUNTERS_FAILED || nResult == COUNTERS_NO_FILE || nCount != -77;
}

void ReadAll(const SharedPage<Counts>& counts, int nOwn, int nSaves)
{
    while (counts->anBegun[nOwn] < nSaves)
    {
        for (int i = 0; i < PROCESSES; ++i)
        {
            const LONG nLeast = counts->anSaved[i];
            int nCount = -77;
            const int nResult = GetAlertNumFromLocal(TODAY, COUNTERS[i], &nCount);
            const LONG nMost = counts->anBegun[i];
            InterlockedIncrement(nResult == 0 ? &counts->nReads : &counts->nRefusedReads);
            if (IsWrong(nResult, nCount, nLeast, nMost))
            {
                InterlockedIncrement(&counts->nWrong);
                InterlockedExchange(&counts->nWrongResult, nResult);
            }
        }
    }
}

int SavesOfEach()
{
    return IsLongForm() ? 1000 : 50;
}

} // namespace

TEST_CASE("child: saves one count and reads all", "[.]")
{
    const Orders orders = Orders::FromParent();
    const ModuleInChild module(orders.modulePath);
    const SharedPage<Counts> counts(orders.Name(L"counts"));
    InterlockedIncrement(&counts->nReady);
    while (counts->nReady < PROCESSES)
    {
        Sleep(1);
    }
    RunThreads(2,
               [&](int nThread)
               {
                   CoInitialize(nullptr);
                   nThread == 0 ? SaveOne(counts, orders.nIndex, SavesOfEach())
                                : ReadAll(counts, orders.nIndex, SavesOfEach());
                   CoUninitialize();
               });
}

TEST_CASE("readers of the counts in four processes that save them never see a wrong one")
{
    ModuleTree tree;
    tree.WriteConfig(ConfigBuilder()
                         .SetCounter("Date", "2026-01-31")
                         .SetCounter("CPU", "0")
                         .SetCounter("Disk", "0")
                         .SetCounter("Network", "0")
                         .SetCounter("PF", "0"));
    Orders orders = OrdersOf(tree);
    const SharedPage<Counts> counts(orders.Name(L"counts"));
    std::vector<ChildProcess> children;
    for (orders.nIndex = 0; orders.nIndex < PROCESSES; ++orders.nIndex)
    {
        children.push_back(StartChild("child: saves one count and reads all", orders));
    }
    for (const ChildProcess& child : children)
    {
        REQUIRE(child.WaitForEnd(PATIENCE_MS));
        INFO(child.Output());
        CHECK(child.ExitCode() == 0);
    }
    CAPTURE(counts->nWrongResult, counts->nRefusedSaveResult, counts->nRefusedReads);
    CHECK(counts->nWrong == 0);
    CHECK(counts->nRefusedSaves == 0);
    CHECK(counts->nSaves == PROCESSES * SavesOfEach());
    // Every process reads all the time: a module that refused where it should wait would refuse most of them.
    CHECK(counts->nReads > PROCESSES * SavesOfEach());
    CHECK(counts->nRefusedReads * REFUSED_READS_ARE_FEWER_THAN_ONE_IN < counts->nReads);
    const ModuleInChild module(tree.ModulePath());
    for (const int nCounter : COUNTERS)
    {
        int nCount = -77;
        CHECK(GetAlertNumFromLocal(TODAY, nCounter, &nCount) == 0);
        CHECK(nCount == SavesOfEach());
    }
    PrintFigure("counters: " + std::to_string(counts->nSaves) + " saves of " + std::to_string(PROCESSES) +
                " processes, " + std::to_string(counts->nReads) + " reads meanwhile, " +
                std::to_string(counts->nWrong) + " wrong; refused with the status of a file in use: " +
                std::to_string(counts->nRefusedReads) + " reads, " + std::to_string(counts->nRefusedSaves) + " saves");
}

} // namespace varnex::test
