#include "TestWorker.h"

#include "common/Handles.h"
#include "diag/SPLogger.h"
#include "entry/ModuleState.h"
#include "support/ImportRedirector.h"
#include "support/LogMatchers.h"
#include "support/ModulePathScript.h"
#include "support/ModuleTree.h"
#include "support/PrivateNames.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <string>
#include <vector>

#include <objbase.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE hModule, DWORD dwReason, LPVOID pReserved);

namespace varnex::test
{

namespace
{

constexpr char STORE_MUTEX[] = "Global\\{A2C32408-95FF-4183-8208-1C370A075B80}";
const HINSTANCE MODULE = reinterpret_cast<HINSTANCE>(0x180000000);

// The library entry, called by the test itself, with what it asks of the system noted in order.
class Entry
{
public:
    explicit Entry(const std::wstring& modulePath) : m_path(m_redirector, modulePath)
    {
        Log()->Level = 0; // the attach sets it
        ScriptCom();
        ScriptLogFile();
        ScriptStoreMutex();
        ScriptHistoryLocks();
        m_redirector.CountCalls("GetModuleFileNameA");
    }
    ~Entry()
    {
        m_redirector.Restore("CreateMutexA");
        UniqueHandle(std::exchange(g_hAlertFileMutex, nullptr));
    }

    BOOL Call(DWORD dwReason, bool bProcessEnds = false)
    {
        m_steps.clear();
        return DllMain(MODULE, dwReason, bProcessEnds ? this : nullptr);
    }
    ImportRedirector& Imports() { return m_redirector; }
    ModulePathScript& Path() { return m_path; }
    void AnswerCoInitialize(HRESULT nResult) { m_nComResult = nResult; }
    void KeepLogFilesClosed() { m_bLogOpens = false; }

    // The calls that count, of the latest call: "log", "com", "mutex", "uninit", "lock" (a
    // history lock that is deleted), "close" (the store's mutex).
    const std::vector<std::string>& Steps() const { return m_steps; }
    const std::vector<std::string>& LogFiles() const { return m_logFiles; }
    bool IsStoreMutexForEveryone() const { return m_bForEveryone; }
    int StoreMutexesMade() const { return m_nMutexes; }

private:
    void ScriptCom()
    {
        m_redirector.Replace<decltype(::CoInitialize)>("CoInitialize",
                                                       [this](LPVOID pReserved)
                                                       {
                                                           m_steps.emplace_back(
                                                               pReserved == nullptr ? "com" : "com with an argument");
                                                           return m_nComResult;
                                                       });
        m_redirector.Replace<decltype(::CoUninitialize)>("CoUninitialize", [this] { m_steps.emplace_back("uninit"); });
    }

    void ScriptLogFile()
    {
        m_redirector.Replace<decltype(::CreateFileA)>(
            "CreateFileA",
            [this](LPCSTR pszName, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwCreation,
                   DWORD dwFlags, HANDLE hTemplate)
            {
                m_steps.emplace_back("log");
                m_logFiles.emplace_back(pszName);
                return m_bLogOpens ? CreateFileA(pszName, dwAccess, dwShare, pSecurity, dwCreation, dwFlags, hTemplate)
                                   : INVALID_HANDLE_VALUE;
            });
        m_redirector.Replace<decltype(::CreateDirectoryA)>(
            "CreateDirectoryA", [this](LPCSTR pszName, LPSECURITY_ATTRIBUTES pSecurity)
            { return m_bLogOpens ? CreateDirectoryA(pszName, pSecurity) : FALSE; });
    }

    void ScriptStoreMutex()
    {
        m_redirector.Replace<decltype(::CreateMutexA)>(
            "CreateMutexA",
            [this](LPSECURITY_ATTRIBUTES pSecurity, BOOL bInitialOwner, LPCSTR pszName)
            {
                const HANDLE hMutex = CreateMutexA(pSecurity, bInitialOwner, pszName);
                if (std::string(pszName) == STORE_MUTEX)
                {
                    m_steps.emplace_back("mutex");
                    ++m_nMutexes;
                    m_hMutex = hMutex;
                    m_bForEveryone = !bInitialOwner && IsForEveryone(pSecurity);
                }
                return hMutex;
            });
        m_redirector.Replace<decltype(::CloseHandle)>("CloseHandle",
                                                      [this](HANDLE hObject)
                                                      {
                                                          if (hObject == m_hMutex)
                                                          {
                                                              m_steps.emplace_back("close");
                                                          }
                                                          return CloseHandle(hObject);
                                                      });
    }

    void ScriptHistoryLocks()
    {
        m_redirector.Replace<decltype(::DeleteCriticalSection)>("DeleteCriticalSection",
                                                                [this](LPCRITICAL_SECTION pSection)
                                                                {
                                                                    m_steps.emplace_back("lock");
                                                                    DeleteCriticalSection(pSection);
                                                                });
    }

    ImportRedirector m_redirector;
    ModulePathScript m_path;
    HRESULT m_nComResult = S_OK;
    bool m_bLogOpens = true;
    std::vector<std::string> m_steps;
    std::vector<std::string> m_logFiles;
    HANDLE m_hMutex = nullptr;
    int m_nMutexes = 0;
    bool m_bForEveryone = false;
};

using Steps = std::vector<std::string>;

} // namespace

TEST_CASE("an attach prepares the log, then COM, then the alert store")
{
    const ModuleTree tree;
    Entry entry(tree.ModulePath());
    REQUIRE(entry.Call(DLL_PROCESS_ATTACH) == TRUE);
    CHECK(entry.Steps() == Steps{"log", "log", "com", "mutex"});
    CHECK(g_hModule == MODULE);
    CHECK(g_hAlertFileMutex != nullptr);
    CHECK(entry.IsStoreMutexForEveryone());
    CHECK(Log()->Level == 3);
    CHECK(tree.Log() == "\r\n\r\n");
}

TEST_CASE("the log lies in Logs beside the module's directory, or in c: when there is none")
{
    struct Rule
    {
        const wchar_t* pwszModule;
        const char* pszDirectory;
        const char* pszFile;
    };
    const auto rule = GENERATE(values<Rule>({
        {L"D:\\A\\B\\bin\\x.dll", "D:\\A\\B\\Logs", "D:\\A\\B\\Logs\\Varnex.log"},
        {L"X:\\dir\\x.dll", "X:\\Logs", "X:\\Logs\\Varnex.log"},
        {L"X:\\x.dll", "c:", "c:\\Varnex.log"},
        {L"x.dll", "c:", "c:\\Varnex.log"},
        {L"\\x.dll", "c:", "c:\\Varnex.log"},
        {L"\\\\host\\share\\bin\\x.dll", "\\\\host\\share\\Logs", "\\\\host\\share\\Logs\\Varnex.log"},
    }));
    Entry entry(rule.pwszModule);
    entry.KeepLogFilesClosed();
    REQUIRE(entry.Call(DLL_PROCESS_ATTACH) == TRUE);
    CHECK(std::string(Log()->LogDirectory) == rule.pszDirectory);
    CHECK(std::string(Log()->LoggerName) == "Varnex");
    CHECK(std::string(Log()->LogFilePath) == rule.pszFile);
    CHECK(entry.LogFiles() == std::vector<std::string>(2, rule.pszFile));
}

TEST_CASE("a module whose path cannot be read logs into c:")
{
    Entry entry(L"unused");
    entry.Path().Fail(ERROR_INVALID_HANDLE);
    entry.KeepLogFilesClosed();
    REQUIRE(entry.Call(DLL_PROCESS_ATTACH) == TRUE);
    CHECK(std::string(Log()->LogFilePath) == "c:\\Varnex.log");
}

TEST_CASE("a module path that does not fit is no path: its log lies in c:")
{
    Entry entry(L"D:\\A\\B\\" + std::wstring(253, L'x'));
    entry.KeepLogFilesClosed();
    REQUIRE(entry.Call(DLL_PROCESS_ATTACH) == TRUE);
    CHECK(std::string(Log()->LogFilePath) == "c:\\Varnex.log");
}

TEST_CASE("a log path that does not fit is cut")
{
    const std::string parent = "D:\\" + std::string(247, 'p');
    const std::string path = parent + "\\bin\\x.dl"; // 259 characters
    Entry entry(std::wstring(path.begin(), path.end()));
    entry.KeepLogFilesClosed();
    REQUIRE(entry.Call(DLL_PROCESS_ATTACH) == TRUE);
    CHECK(std::string(Log()->LogDirectory) == parent + "\\Logs");
    CHECK(std::string(Log()->LogFilePath) == (parent + "\\Logs\\Varnex.log").substr(0, 259));
}

TEST_CASE("an attach forgets the monitors of whoever used the slots before")
{
    const ModuleTree tree;
    Entry entry(tree.ModulePath());
    TestWorker::Begin({});
    TestWorker worker;
    for (WorkerSlot& slot : g_aMonitorSlots)
    {
        REQUIRE(slot.Publish(&worker));
    }
    REQUIRE(entry.Call(DLL_PROCESS_ATTACH) == TRUE);
    for (const WorkerSlot& slot : g_aMonitorSlots)
    {
        CHECK_FALSE(slot.IsSet());
    }
    CHECK(TestWorker::s_nFreed == 0);
}

TEST_CASE("COM that is initialised already, or one status that is let pass, does not fail the load")
{
    const HRESULT nResult = GENERATE(S_OK, S_FALSE, static_cast<HRESULT>(0x80010119));
    const ModuleTree tree;
    Entry entry(tree.ModulePath());
    entry.AnswerCoInitialize(nResult);
    CHECK(entry.Call(DLL_PROCESS_ATTACH) == TRUE);
    CHECK(entry.Steps() == Steps{"log", "log", "com", "mutex"});
    CHECK(tree.Log() == "\r\n\r\n");
    CHECK(entry.Call(DLL_PROCESS_DETACH) == TRUE);
    CHECK(entry.Steps() == Steps{"uninit", "lock", "lock", "lock", "lock", "close"});
}

TEST_CASE("any other failure of COM fails the load with a line and a blank one, and the detach touches nothing")
{
    const HRESULT nResult = GENERATE(E_FAIL, E_OUTOFMEMORY, RPC_E_CHANGED_MODE, static_cast<HRESULT>(0x80010118),
                                     static_cast<HRESULT>(0x8001011A));
    const ModuleTree tree;
    Entry entry(tree.ModulePath());
    entry.AnswerCoInitialize(nResult);
    CHECK(entry.Call(DLL_PROCESS_ATTACH) == FALSE);
    CHECK(entry.Steps() == Steps{"log", "log", "com", "log"});
    CHECK(g_hAlertFileMutex == nullptr);
    const LogFile log(tree);
    CHECK_THAT(log, HasLine(1, "initialize COM interface failed."));
    CHECK(log.RawLines().size() == 4);
    CHECK(log.RawLines().back().empty());
    CHECK(log.Lines().size() == 1);

    CHECK(entry.Call(DLL_PROCESS_DETACH) == TRUE);
    CHECK(entry.Steps().empty());
    CHECK(LogFile(tree).Bytes() == log.Bytes());
}

TEST_CASE("an alert store without its mutex is logged and does not fail the load")
{
    const ModuleTree tree;
    Entry entry(tree.ModulePath());
    REQUIRE(Log()->Mutex != nullptr); // made before; the next mutex is the store's
    entry.Imports().FailCall("CreateMutexA", 1, FailMode::Once, ERROR_ACCESS_DENIED);
    CHECK(entry.Call(DLL_PROCESS_ATTACH) == TRUE);
    CHECK(entry.Imports().Failures("CreateMutexA") == 1);
    CHECK(g_hAlertFileMutex == nullptr);
    const LogFile log(tree);
    CHECK_THAT(log, HasLine(1, "PrePKIAlertInf -- Failed to create event for alert local file (5)."));
    CHECK(log.Lines().size() == 1);

    CHECK(entry.Call(DLL_PROCESS_DETACH) == TRUE);
    CHECK(entry.Steps() == Steps{"uninit", "lock", "lock", "lock", "lock"});
}

TEST_CASE("a detach leaves COM, deletes the history locks and closes the mutex, and a second one has nothing to do")
{
    const ModuleTree tree;
    Entry entry(tree.ModulePath());
    REQUIRE(entry.Call(DLL_PROCESS_ATTACH) == TRUE);
    const std::string logged = tree.Log();
    CHECK(entry.Call(DLL_PROCESS_DETACH) == TRUE);
    CHECK(entry.Steps() == Steps{"uninit", "lock", "lock", "lock", "lock", "close"});
    CHECK(g_hAlertFileMutex == nullptr);
    CHECK(entry.Call(DLL_PROCESS_DETACH) == TRUE);
    CHECK(entry.Steps().empty());
    CHECK(tree.Log() == logged);
}

// Leaving an apartment may wait for threads, which the end of the process has taken away already.
TEST_CASE("the detach of a process that ends leaves COM alone, waits for nothing and closes the mutex")
{
    const ModuleTree tree;
    Entry entry(tree.ModulePath());
    REQUIRE(entry.Call(DLL_PROCESS_ATTACH) == TRUE);
    entry.Imports().CountCalls("WaitForSingleObject");
    CHECK(entry.Call(DLL_PROCESS_DETACH, true) == TRUE);
    CHECK(entry.Steps() == Steps{"lock", "lock", "lock", "lock", "close"});
    CHECK(entry.Imports().Calls("WaitForSingleObject") == 0);
}

TEST_CASE("a detach leaves the monitors' slots as they are")
{
    const ModuleTree tree;
    Entry entry(tree.ModulePath());
    REQUIRE(entry.Call(DLL_PROCESS_ATTACH) == TRUE);
    TestWorker::Begin({});
    TestWorker worker;
    REQUIRE(g_pMonDiskThread.Publish(&worker));
    CHECK(entry.Call(DLL_PROCESS_DETACH) == TRUE);
    CHECK(g_pMonDiskThread.IsSet());
    CHECK(worker.IsRunning());
    g_pMonDiskThread.Withdraw(&worker);
}

TEST_CASE("a thread's attach and detach read the module's path and do nothing else")
{
    const ModuleTree tree;
    Entry entry(tree.ModulePath());
    const DWORD dwReason = GENERATE(DWORD{DLL_THREAD_ATTACH}, DWORD{DLL_THREAD_DETACH}, DWORD{77});
    const HMODULE hBefore = g_hModule;
    CHECK(entry.Call(dwReason) == TRUE);
    CHECK(entry.Steps().empty());
    CHECK(tree.Log().empty());
    CHECK(g_hModule == hBefore);
    CHECK(entry.Imports().Calls("GetModuleFileNameA") == 1);
}

TEST_CASE("the module's path is read once for every reason")
{
    const ModuleTree tree;
    Entry entry(tree.ModulePath());
    const ULONGLONG ullBefore = entry.Imports().Calls("GetModuleFileNameA");
    entry.Call(DLL_PROCESS_ATTACH);
    CHECK(entry.Imports().Calls("GetModuleFileNameA") == ullBefore + 1);
    entry.Call(DLL_PROCESS_DETACH);
    CHECK(entry.Imports().Calls("GetModuleFileNameA") == ullBefore + 2);
}

TEST_CASE("attach after attach, as a reload does it, opens the mutex again and adds two empty lines")
{
    const ModuleTree tree;
    Entry entry(tree.ModulePath());
    for (int i = 1; i <= 3; ++i)
    {
        REQUIRE(entry.Call(DLL_PROCESS_ATTACH) == TRUE);
        CHECK(entry.StoreMutexesMade() == i);
        CHECK(LogFile(tree).RawLines().size() == static_cast<std::size_t>(2 * i));
        REQUIRE(entry.Call(DLL_PROCESS_DETACH) == TRUE);
    }
}

} // namespace varnex::test
