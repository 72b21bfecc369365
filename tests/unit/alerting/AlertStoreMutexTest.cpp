#include "alerting/AlertStore.h"

#include "StoreBench.h"
#include "StoreJournal.h"

#include "diag/SPLogger.h"
#include "entry/ModuleState.h"
#include "support/LogMatchers.h"

#include <catch2/catch.hpp>

#include <cstring>
#include <utility>

namespace varnex::test
{

namespace
{

constexpr char STORE_MUTEX_NAME[] = "Global\\{A2C32408-95FF-4183-8208-1C370A075B80}";

// What PrePKIAlertInf asked the system for.
struct MutexRequest
{
    std::string name;
    bool bOwned = true;
    bool bInheritable = true;
    bool bHasAccessList = false;
    bool bAccessListIsNull = false;
};

MutexRequest ReadRequest(const SECURITY_ATTRIBUTES* pSecurity, BOOL bOwned, LPCSTR pszName)
{
    MutexRequest request;
    request.name = pszName != nullptr ? pszName : "";
    request.bOwned = bOwned != FALSE;
    BOOL bPresent = FALSE;
    BOOL bDefaulted = FALSE;
    PACL pAccessList = nullptr;
    if (pSecurity != nullptr && pSecurity->nLength == sizeof(SECURITY_ATTRIBUTES) &&
        GetSecurityDescriptorDacl(pSecurity->lpSecurityDescriptor, &bPresent, &pAccessList, &bDefaulted))
    {
        request.bInheritable = pSecurity->bInheritHandle != FALSE;
        request.bHasAccessList = bPresent != FALSE;
        request.bAccessListIsNull = pAccessList == nullptr;
    }
    return request;
}

int SaveAlert()
{
    return SaveLocalAlertInfo(1, 85, 90, "", MOMENT, "");
}

} // namespace

TEST_CASE("the mutex of the store is global and free for every account")
{
    StoreBench bench;
    MutexRequest request;
    bench.imports.Replace<decltype(::CreateMutexA)>("CreateMutexA",
                                                    [&](LPSECURITY_ATTRIBUTES pSecurity, BOOL bOwned, LPCSTR pszName)
                                                    {
                                                        request = ReadRequest(pSecurity, bOwned, pszName);
                                                        return CreateMutexA(pSecurity, bOwned, pszName);
                                                    });

    CHECK(PrePKIAlertInf() == 0);
    const UniqueHandle made(std::exchange(g_hAlertFileMutex, nullptr));
    CHECK(made);
    CHECK(request.name == STORE_MUTEX_NAME);
    CHECK_FALSE(request.bOwned);
    CHECK_FALSE(request.bInheritable);
    CHECK(request.bHasAccessList);
    CHECK(request.bAccessListIsNull);
    CHECK(UniqueHandle(OpenMutexA(SYNCHRONIZE, FALSE, STORE_MUTEX_NAME)));
    CHECK(bench.ReadLog().Bytes().empty());
}

TEST_CASE("a mutex of the store that another process made serves as well")
{
    StoreBench bench;
    const UniqueHandle first(CreateMutexA(nullptr, FALSE, STORE_MUTEX_NAME));

    CHECK(PrePKIAlertInf() == 0);
    CHECK(UniqueHandle(std::exchange(g_hAlertFileMutex, nullptr)));
}

TEST_CASE("a mutex that cannot be made is logged and the store goes without one")
{
    StoreBench bench;
    bench.imports.FailCall("CreateMutexA", 1, FailMode::Once, ERROR_ACCESS_DENIED);
    bench.imports.CountCalls("WaitForSingleObject");
    bench.imports.CountCalls("ReleaseMutex");

    CHECK(PrePKIAlertInf() == -1);
    CHECK(g_hAlertFileMutex == nullptr);
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "PrePKIAlertInf -- Failed to create event for alert local file (5)."));

    Log()->Level = 0;
    const ULONGLONG ullWaits = bench.imports.Calls("WaitForSingleObject");
    const ULONGLONG ullReleases = bench.imports.Calls("ReleaseMutex");
    CHECK(SaveAlert() == 0);
    CHECK(bench.Take(1).Values() == std::vector<int>{90});
    CHECK(bench.imports.Calls("WaitForSingleObject") == ullWaits);
    CHECK(bench.imports.Calls("ReleaseMutex") == ullReleases);
}

TEST_CASE("an alert is written while the mutex of the store is held")
{
    StoreBench bench;
    const StoreJournal journal(bench.imports);

    CHECK(SaveAlert() == 0);
    CHECK(journal.Events() ==
          StoreJournal::List{"wait 60000", "open LocalAlt.dat", "write LocalAlt.dat", "close LocalAlt.dat", "release"});
}

TEST_CASE("a fetch takes and rewrites while the mutex of the store is held")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    const StoreJournal journal(bench.imports);

    CHECK(bench.Take(1).nResult == 0);
    // The backup file is opened first: without a data file an empty one is left.
    CHECK(journal.Events() == StoreJournal::List{"wait 60000", "open LocalAlt_Backup.dat", "open LocalAlt.dat",
                                                 "write LocalAlt_Backup.dat", "close LocalAlt_Backup.dat",
                                                 "close LocalAlt.dat",
                                                 "move LocalAlt_Backup.dat to LocalAlt.dat with 1", "release"});
}

TEST_CASE("an alert waits a minute for the mutex and is written without it then")
{
    StoreBench bench;
    bench.LetOtherThreadHoldMutex();

    CHECK(SaveAlert() == 0);
    CHECK(bench.clock.ElapsedMs() == 60000);
    CHECK(bench.tree.Alerts() == LineOf(90));
    // It was not given back for the one who has it.
    CHECK_FALSE(bench.IsMutexFree());
}

TEST_CASE("a fetch waits a minute for the mutex and goes on without it then")
{
    StoreBench bench;
    bench.tree.WriteAlerts(LinesOf(1, 3));
    bench.LetOtherThreadHoldMutex();

    CHECK(bench.Take(1).Values() == std::vector<int>{1, 2});
    CHECK(bench.clock.ElapsedMs() == 60000);
    CHECK(bench.tree.Alerts() == LineOf(3));
    CHECK_FALSE(bench.IsMutexFree());
}

TEST_CASE("an alert that got the mutex within the minute goes on at once")
{
    StoreBench bench;
    bench.clock.RunOnOtherThread(
        [&]
        {
            WaitForSingleObject(bench.Mutex(), INFINITE);
            Sleep(59000);
            ReleaseMutex(bench.Mutex());
        });
    bench.clock.WaitUntilAllAsleep();

    CHECK(SaveAlert() == 0);
    CHECK(bench.clock.ElapsedMs() == 59000);
    CHECK(bench.IsMutexFree());
}

TEST_CASE("an abandoned mutex does not stop the store and is free again afterwards")
{
    StoreBench bench;

    bench.LetOtherThreadAbandonMutex();
    CHECK(SaveAlert() == 0);
    CHECK(bench.IsMutexFree());

    bench.LetOtherThreadAbandonMutex();
    CHECK(bench.Take(1).Values() == std::vector<int>{90});
    CHECK(bench.IsMutexFree());
    CHECK(bench.clock.ElapsedMs() == 0);
}

} // namespace varnex::test
