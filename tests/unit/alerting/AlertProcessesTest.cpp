#include "StoreBench.h"

#include "alerting/AlertDispatch.h"
#include "alerting/AlertStore.h"
#include "diag/SPLogger.h"
#include "entry/ModuleState.h"
#include "support/ChildProcess.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <map>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr wchar_t MODULE_VARIABLE[] = L"VARNEX_TEST_MODULE_PATH";
constexpr wchar_t FIRST_VALUE_VARIABLE[] = L"VARNEX_TEST_FIRST_VALUE";
constexpr wchar_t READY_EVENT_VARIABLE[] = L"VARNEX_TEST_READY_EVENT";
constexpr int g_nAlertsOfEach = 60;
constexpr DWORD g_dwPatienceMs = 60000;

std::wstring ReadVariable(const wchar_t* pwszName)
{
    wchar_t wszValue[512] = L"";
    GetEnvironmentVariableW(pwszName, wszValue, 512);
    return wszValue;
}

// The store as a process of its own has it: real time, and the mutex that all share.
class SharedStore
{
public:
    explicit SharedStore(const std::wstring& modulePath) : m_path(m_imports, modulePath)
    {
        Log()->Level = 0; // no tree of its own
        REQUIRE(PrePKIAlertInf() == 0);
    }
    ~SharedStore()
    {
        const UniqueHandle mutex(g_hAlertFileMutex);
        g_hAlertFileMutex = nullptr;
    }
    SharedStore(const SharedStore&) = delete;
    SharedStore& operator=(const SharedStore&) = delete;

private:
    ImportRedirector m_imports;
    ModulePathScript m_path;
};

int MomentNow()
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    const ULONGLONG ullUnits = (static_cast<ULONGLONG>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return static_cast<int>(ullUnits / 10000000 - 11644473600);
}

ChildProcess StartWriter(const ModuleTree& tree, int nFirstValue)
{
    ChildOptions options;
    options.environment[MODULE_VARIABLE] = tree.ModulePath();
    options.environment[FIRST_VALUE_VARIABLE] = std::to_wstring(nFirstValue);
    return ChildProcess::OfTestCase("child: stores its alerts one after the other", options);
}

// How often each value came out of the store.
class Harvest
{
public:
    // What there is, a few records at a time. Tells whether the fetch went well; no file yet is well.
    bool Collect()
    {
        std::vector<VARNEX_ALERT_BUF> records;
        const int nResult = ReadLocalAlertInf(records, 6);
        if (nResult == 0)
        {
            for (const VARNEX_ALERT_BUF& record : records)
            {
                ++m_counts[record.Value];
            }
        }
        return nResult == 0 || nResult == -1;
    }
    std::size_t Size() const { return m_counts.size(); }
    bool HasEachOnce(int nValues) const
    {
        if (m_counts.size() != static_cast<std::size_t>(nValues))
        {
            return false;
        }
        for (const auto& [nValue, nCount] : m_counts)
        {
            if (nCount != 1 || nValue < 0 || nValue >= nValues)
            {
                return false;
            }
        }
        return true;
    }

private:
    std::map<int, int> m_counts;
};

} // namespace

TEST_CASE("child: stores its alerts one after the other", "[.]")
{
    const SharedStore store(ReadVariable(MODULE_VARIABLE));
    const int nFirst = std::stoi(ReadVariable(FIRST_VALUE_VARIABLE));
    for (int nValue = nFirst; nValue < nFirst + g_nAlertsOfEach; ++nValue)
    {
        REQUIRE(SaveLocalAlertInfo(1, 85, nValue, "", MomentNow(), "") == 0);
    }
}

TEST_CASE("child: ends while it has the mutex of the store", "[.]")
{
    const SharedStore store(ReadVariable(MODULE_VARIABLE));
    WaitForSingleObject(g_hAlertFileMutex, INFINITE);
    const UniqueHandle ready(OpenEventW(EVENT_MODIFY_STATE, FALSE, ReadVariable(READY_EVENT_VARIABLE).c_str()));
    SetEvent(ready.Get());
    Sleep(g_dwPatienceMs);
}

TEST_CASE("alerts of several processes are neither lost nor doubled while one fetches")
{
    constexpr int nWriters = 3;
    const ModuleTree tree;
    std::vector<ChildProcess> writers;
    for (int i = 0; i < nWriters; ++i)
    {
        writers.push_back(StartWriter(tree, i * g_nAlertsOfEach));
    }
    const SharedStore store(tree.ModulePath());
    Harvest harvest;
    int nFetchesMeanwhile = 0;
    const ULONGLONG ullGiveUp = GetTickCount64() + g_dwPatienceMs;
    bool bWriting = true;
    while (bWriting && GetTickCount64() < ullGiveUp)
    {
        bWriting = false;
        for (const ChildProcess& writer : writers)
        {
            bWriting = bWriting || writer.Runs();
        }
        REQUIRE(harvest.Collect());
        nFetchesMeanwhile += harvest.Size() != 0 && bWriting ? 1 : 0;
    }
    REQUIRE_FALSE(bWriting);
    for (const ChildProcess& writer : writers)
    {
        INFO(writer.Output());
        CHECK(writer.ExitCode() == 0);
    }
    while (!tree.Alerts().empty())
    {
        REQUIRE(harvest.Collect());
    }
    CHECK(nFetchesMeanwhile > 0);
    CHECK(harvest.HasEachOnce(nWriters * g_nAlertsOfEach));
}

TEST_CASE("a process that dies with the mutex of the store does not stop the others")
{
    const ModuleTree tree;
    const std::wstring eventName = L"VarnexTestReady" + std::to_wstring(GetCurrentProcessId());
    const UniqueHandle ready(CreateEventW(nullptr, TRUE, FALSE, eventName.c_str()));
    const SharedStore store(tree.ModulePath());
    ChildOptions options;
    options.environment[MODULE_VARIABLE] = tree.ModulePath();
    options.environment[READY_EVENT_VARIABLE] = eventName;
    ChildProcess child = ChildProcess::OfTestCase("child: ends while it has the mutex of the store", options);
    REQUIRE(WaitForSingleObject(ready.Get(), g_dwPatienceMs) == WAIT_OBJECT_0);
    child.Kill();
    REQUIRE(child.WaitForEnd(g_dwPatienceMs));

    const ULONGLONG ullBegin = GetTickCount64();
    CHECK(SaveLocalAlertInfo(1, 85, 1, "", MomentNow(), "") == 0);
    CHECK(GetTickCount64() - ullBegin < 30000); // it did not wait the whole minute
    Harvest harvest;
    CHECK(harvest.Collect());
    CHECK(harvest.Size() == 1);
}

TEST_CASE("alerts of many threads are neither lost nor doubled while one fetches")
{
    constexpr int nAlerts = 60;
    const ModuleTree tree;
    const SharedStore store(tree.ModulePath());
    Harvest harvest;
    for (int nValue = 0; nValue < nAlerts; ++nValue)
    {
        REQUIRE(SendAlertToAllServer(1, 85, nValue, "", MomentNow()) == 0);
        if (nValue % 8 == 0)
        {
            REQUIRE(harvest.Collect());
        }
    }
    const ULONGLONG ullGiveUp = GetTickCount64() + g_dwPatienceMs;
    while (harvest.Size() < nAlerts && GetTickCount64() < ullGiveUp)
    {
        REQUIRE(harvest.Collect());
    }
    CHECK(harvest.HasEachOnce(nAlerts));
}

} // namespace varnex::test
