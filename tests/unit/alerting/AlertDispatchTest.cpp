#include "alerting/AlertDispatch.h"

#include "StoreBench.h"

#include "alerting/AlertStore.h"
#include "diag/SPLogger.h"
#include "support/ImportTable.h"
#include "support/LogMatchers.h"

#include <catch2/catch.hpp>

#include <process.h>

#include <algorithm>
#include <memory>
#include <set>
#include <stdexcept>

namespace varnex::test
{

namespace
{

static_assert(sizeof(VARNEX_ALERT_BUF) == 4 * 4 + 384 + 32, "the record has no gaps");

constexpr unsigned g_nFailed = 0xFFFFFFFF;

int SendDiskAlert(const char* pszName = "D1")
{
    return SendAlertToAllServer(3, 50, 72, pszName, MOMENT);
}

VARNEX_ALERT_BUF* NewRecord(int nHappenTime = MOMENT)
{
    auto* const pRecord = static_cast<VARNEX_ALERT_BUF*>(LocalAlloc(LPTR, sizeof(VARNEX_ALERT_BUF)));
    *pRecord = {1, 85, 90, nHappenTime, "", ""};
    return pRecord;
}

// The blocks that were taken and given back.
class BlockBook
{
public:
    explicit BlockBook(ImportRedirector& imports)
    {
        imports.Replace<decltype(::LocalAlloc)>("LocalAlloc",
                                                [this](UINT nFlags, SIZE_T cbBlock)
                                                {
                                                    const HLOCAL hBlock = LocalAlloc(nFlags, cbBlock);
                                                    m_nFlags = nFlags;
                                                    m_cbBlock = cbBlock;
                                                    m_taken.insert(hBlock);
                                                    return hBlock;
                                                });
        imports.Replace<decltype(::LocalFree)>("LocalFree",
                                               [this](HLOCAL hBlock)
                                               {
                                                   m_nFreed += static_cast<int>(m_taken.erase(hBlock));
                                                   return LocalFree(hBlock);
                                               });
    }
    UINT m_nFlags = 0;
    SIZE_T m_cbBlock = 0;
    int m_nFreed = 0;
    std::set<HLOCAL> m_taken;
};

// What the thread was asked for; the thread runs when RunThread is called.
struct ThreadRequest
{
    void* pSecurity = this;
    unsigned cbStack = 1;
    unsigned(__stdcall* pfnBody)(void*) = nullptr;
    VARNEX_ALERT_BUF* pRecord = nullptr;
    unsigned nFlags = 1;
    HANDLE hThread = nullptr;

    static std::shared_ptr<ThreadRequest> Catch(ImportRedirector& imports)
    {
        const auto request = std::make_shared<ThreadRequest>();
        imports.Replace<decltype(::_beginthreadex)>(
            "_beginthreadex",
            [=](void* pSecurity, unsigned cbStack, unsigned(__stdcall * pfnBody)(void*), void* pRecord, unsigned nFlags,
                unsigned*)
            {
                request->pSecurity = pSecurity;
                request->cbStack = cbStack;
                request->pfnBody = pfnBody;
                request->pRecord = static_cast<VARNEX_ALERT_BUF*>(pRecord);
                request->nFlags = nFlags;
                request->hThread = CreateEventW(nullptr, TRUE, FALSE, nullptr); // something that can be closed
                return reinterpret_cast<uintptr_t>(request->hThread);
            });
        return request;
    }
    unsigned RunThread() const { return pfnBody(pRecord); }
};

// Stands in the import table itself, for scripts stop what they throw: another product's hook that throws through its
// caller, once.
std::function<void()> g_thrower;
decltype(&::CreateFileA) g_pfnCreateFile;

HANDLE WINAPI CreateFileThatThrowsOnce(LPCSTR pszPath, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity,
                                       DWORD dwCreation, DWORD dwFlags, HANDLE hTemplate)
{
    if (const auto thrower = std::exchange(g_thrower, nullptr))
    {
        thrower();
    }
    return g_pfnCreateFile(pszPath, dwAccess, dwShare, pSecurity, dwCreation, dwFlags, hTemplate);
}

class ThrowingHook
{
public:
    explicit ThrowingHook(std::function<void()> thrower)
    {
        const std::vector<Import> all = ReadImports(GetModuleHandleW(nullptr));
        const auto found =
            std::find_if(all.begin(), all.end(), [](const Import& import) { return import.name == "CreateFileA"; });
        REQUIRE(found != all.end());
        m_ppSlot = found->ppSlot;
        g_pfnCreateFile = reinterpret_cast<decltype(&::CreateFileA)>(*m_ppSlot);
        g_thrower = std::move(thrower);
        WriteImportSlot(m_ppSlot, reinterpret_cast<void*>(&CreateFileThatThrowsOnce));
    }
    ~ThrowingHook() { WriteImportSlot(m_ppSlot, reinterpret_cast<void*>(g_pfnCreateFile)); }
    ThrowingHook(const ThrowingHook&) = delete;
    ThrowingHook& operator=(const ThrowingHook&) = delete;

private:
    void** m_ppSlot = nullptr;
};

} // namespace

TEST_CASE("a dispatched alert stands in the alert file when its thread has ended")
{
    StoreBench bench;

    CHECK(SendDiskAlert() == 0);
    bench.clock.AdvanceUntilWorkersEnd(1);
    CHECK(bench.tree.Alerts() == "3;50;72;1706745599(2024-01-31 23:59:59);D1;\r\n");
    CHECK(bench.ReadLog().Bytes().empty());
}

TEST_CASE("a dispatch waits for nobody")
{
    StoreBench bench;
    bench.LetOtherThreadHoldMutex();

    CHECK(SendDiskAlert() == 0);
    CHECK(bench.clock.ElapsedMs() == 0);
    CHECK(bench.tree.Alerts().empty());
}

TEST_CASE("a record is a zeroed block with the alert in its first fields")
{
    StoreBench bench;
    BlockBook blocks(bench.imports);
    const auto request = ThreadRequest::Catch(bench.imports);

    REQUIRE(SendDiskAlert() == 0);
    CHECK(blocks.m_nFlags == LPTR);
    CHECK(blocks.m_cbBlock == sizeof(VARNEX_ALERT_BUF));
    REQUIRE(request->pRecord != nullptr);
    const VARNEX_ALERT_BUF& record = *request->pRecord;
    CHECK(record.AlertType == 3);
    CHECK(record.Threshold == 50);
    CHECK(record.Value == 72);
    CHECK(record.HappenTime == MOMENT);
    CHECK(std::string(record.ResourceName, sizeof record.ResourceName) == "D1" + std::string(382, '\0'));
    CHECK(std::string(record.Extra, sizeof record.Extra) == std::string(32, '\0'));
    CHECK(request->RunThread() == 0);
}

TEST_CASE("the thread of an alert starts at once with nothing special and its handle is closed")
{
    StoreBench bench;
    const auto request = ThreadRequest::Catch(bench.imports);
    HANDLE hClosed = nullptr;
    bench.imports.Replace<decltype(::CloseHandle)>("CloseHandle",
                                                   [&](HANDLE hObject)
                                                   {
                                                       hClosed = hObject;
                                                       return CloseHandle(hObject);
                                                   });

    CHECK(SendDiskAlert() == 0);
    CHECK(request->pSecurity == nullptr);
    CHECK(request->cbStack == 0);
    CHECK(request->pfnBody == &WriteAlertRecord_Thread);
    CHECK(request->nFlags == 0);
    CHECK(hClosed == request->hThread);
    CHECK(hClosed != nullptr);
    bench.imports.Restore("CloseHandle");
    CHECK(request->RunThread() == 0);
}

TEST_CASE("no name and an empty name make the same alert")
{
    StoreBench bench;

    CHECK(SendDiskAlert(nullptr) == 0);
    bench.clock.AdvanceUntilWorkersEnd(1);
    CHECK(SendDiskAlert("") == 0);
    bench.clock.AdvanceUntilWorkersEnd(1);
    const std::string line = "3;50;72;1706745599(2024-01-31 23:59:59);;\r\n";
    CHECK(bench.tree.Alerts() == line + line);
}

TEST_CASE("a name of more than 383 characters is stored cut")
{
    StoreBench bench;
    const std::string longest(383, 'n');

    CHECK(SendDiskAlert((longest + "XYZ").c_str()) == 0);
    bench.clock.AdvanceUntilWorkersEnd(1);
    CHECK(bench.tree.Alerts() == "3;50;72;1706745599(2024-01-31 23:59:59);" + longest + ";\r\n");
}

TEST_CASE("a long name is cut between two of its characters")
{
    StoreBench bench;
    // A code page in which 0x81 begins a character of two bytes.
    bench.imports.Replace<decltype(::IsDBCSLeadByte)>("IsDBCSLeadByte",
                                                      [](BYTE byte) -> BOOL { return byte == 0x81 ? TRUE : FALSE; });
    const auto request = ThreadRequest::Catch(bench.imports);
    const std::string name(382, 'n');

    REQUIRE(SendDiskAlert((name + "\x81\x41").c_str()) == 0);
    CHECK(request->pRecord->ResourceName == name);
    CHECK(request->RunThread() == 0);
}

TEST_CASE("an alert for which there is no memory is lost and the log says so")
{
    StoreBench bench;
    bench.imports.CountCalls("_beginthreadex");
    bench.imports.FailCall("LocalAlloc", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);

    CHECK(SendDiskAlert() == -1);
    CHECK(bench.imports.Calls("_beginthreadex") == 0);
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "SendAlertToAllServer -- Failed to allocate TSL memory!"));
    CHECK_FALSE(bench.HasData());
}

TEST_CASE("an alert for which there is no thread is lost and given back and the log says so")
{
    StoreBench bench;
    BlockBook blocks(bench.imports);
    bench.imports.FailCall("_beginthreadex", 1, FailMode::FromThereOn, ERROR_MAX_THRDS_REACHED);

    CHECK(SendDiskAlert() == -1);
    CHECK(blocks.m_nFreed == 1);
    CHECK(blocks.m_taken.empty());
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(4, "SendAlertToAllServer -- Start SendAlert_Tread thread failed(164)!"));
    CHECK_FALSE(bench.HasData());
    CHECK(HandlesGainedBy([] { SendDiskAlert(); }) == 0);
}

TEST_CASE("the thread of an alert ends with what the store says and frees its record")
{
    StoreBench bench;
    BlockBook blocks(bench.imports);
    const auto request = ThreadRequest::Catch(bench.imports);

    SECTION("stored")
    {
        REQUIRE(SendDiskAlert() == 0);
        CHECK(request->RunThread() == 0);
        CHECK(bench.ReadLog().Bytes().empty());
    }
    SECTION("not stored")
    {
        bench.BlockFile(L"LocalAlt.dat");
        REQUIRE(SendDiskAlert() == 0);
        CHECK(request->RunThread() == g_nFailed);
        CHECK(bench.ReadLog().Lines().size() == 2);
        CHECK_THAT(bench.ReadLog(),
                   HasLinesInOrder({{1, "SaveLocalAlertInfo -- open file(" + bench.DataPath() + ") fail."},
                                    {4, "WriteAlertRecord_Thread -- save alert to local fail(-1)"}}));
    }
    SECTION("refused for its time")
    {
        REQUIRE(SendAlertToAllServer(3, 50, 72, "D1", 0) == 0);
        CHECK(request->RunThread() == g_nFailed);
        CHECK(bench.ReadLog().Lines().size() == 1);
        CHECK_THAT(bench.ReadLog(), HasLine(4, "WriteAlertRecord_Thread -- save alert to local fail(-1)"));
        CHECK_FALSE(bench.HasData());
    }
    CHECK(blocks.m_nFreed == 1);
    CHECK(blocks.m_taken.empty());
}

TEST_CASE("the thread of no alert says so and fails")
{
    StoreBench bench;

    CHECK(WriteAlertRecord_Thread(nullptr) == g_nFailed);
    CHECK(bench.ReadLog().Lines().size() == 1);
    CHECK_THAT(bench.ReadLog(), HasLine(1, "WriteAlertRecord_Thread -- Failed to get TLS data!"));
}

TEST_CASE("the extra text of a record reaches its line")
{
    StoreBench bench;
    VARNEX_ALERT_BUF* const pRecord = NewRecord();
    pRecord->Extra[0] = 'e';

    CHECK(WriteAlertRecord_Thread(pRecord) == 0);
    CHECK(bench.tree.Alerts() == "1;85;90;1706745599(2024-01-31 23:59:59);;e\r\n");
}

TEST_CASE("an exception in the store ends at the thread's body")
{
    struct Row
    {
        std::function<void()> thrower;
        const char* pszLine;
    };
    const auto row = GENERATE(values<Row>({
        {[] { throw std::runtime_error("from a hook"); }, "WriteAlertRecord_Thread -- exception stopped(from a hook)."},
        {[] { throw 42; }, "WriteAlertRecord_Thread -- unknown exception stopped."},
    }));
    StoreBench bench;
    BlockBook blocks(bench.imports);
    VARNEX_ALERT_BUF* const pRecord = NewRecord();
    blocks.m_taken.insert(pRecord);
    const ThrowingHook hook(row.thrower);

    CHECK(WriteAlertRecord_Thread(pRecord) == g_nFailed);
    CHECK(bench.ReadLog().Lines().size() == 2);
    CHECK_THAT(bench.ReadLog(),
               HasLinesInOrder({{1, row.pszLine}, {4, "WriteAlertRecord_Thread -- save alert to local fail(-1)"}}));
    CHECK(blocks.m_nFreed == 1);
    CHECK(bench.IsMutexFree());
}

TEST_CASE("an alert is stored without any memory from the heap")
{
    StoreBench bench;
    VARNEX_ALERT_BUF* const pRecord = NewRecord();
    bench.imports.FailCall("malloc", 1, FailMode::FromThereOn, ERROR_NOT_ENOUGH_MEMORY);
    const unsigned nResult = WriteAlertRecord_Thread(pRecord);
    bench.imports.StopFailing("malloc");

    CHECK(nResult == 0);
    CHECK(bench.tree.Alerts() == LineOf(90));
}

TEST_CASE("a dispatched alert leaves no handle behind")
{
    StoreBench bench;

    CHECK(HandlesGainedBy(
              [&]
              {
                  SendDiskAlert();
                  bench.clock.AdvanceUntilWorkersEnd(1);
              }) == 0);
}

} // namespace varnex::test
