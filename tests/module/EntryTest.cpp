// The library entry of the shipped DLL: what a load leaves behind, what a load may fail over, what an unload waits for.

#include "ModuleAtWork.h"
#include "ModuleInHost.h"

#include "common/Handles.h"
#include "support/ChildProcess.h"
#include "support/LogMatchers.h"
#include "support/ProcessMeter.h"

#include <catch2/catch.hpp>

#include <objbase.h>

#include <functional>
#include <optional>

namespace varnex::test
{

namespace
{

constexpr char STORE_MUTEX[] = "Global\\{A2C32408-95FF-4183-8208-1C370A075B80}";
constexpr DWORD CHILD_WAIT_MS = 20'000;

// A thread's COM model for a scope.
class Apartment
{
public:
    explicit Apartment(COINIT model) { REQUIRE(SUCCEEDED(CoInitializeEx(nullptr, model))); }
    ~Apartment() { CoUninitialize(); }
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;
};

bool IsStoreMutexOpenHere()
{
    return static_cast<bool>(UniqueHandle(OpenMutexA(SYNCHRONIZE, FALSE, STORE_MUTEX)));
}

// The module in a tree, mapped, for the test to attach.
struct LateModule
{
    ShippedTree tree{ConfigBuilder()};
    LoadedModule module{tree, LoadedModule::Start::Later};
    ImportRedirector redirector{module.Handle()};
};

} // namespace

TEST_CASE("each load leaves two empty lines in the log and the store's mutex open")
{
    const ShippedTree tree{ConfigBuilder()};
    for (int i = 1; i <= 3; ++i)
    {
        LoadedModule module(tree);
        std::string expected;
        for (int nLine = 0; nLine < 2 * i; ++nLine)
        {
            expected += "\r\n";
        }
        CHECK(tree.Log() == expected);
        CHECK(IsStoreMutexOpenHere());
        CHECK(module.Unload());
    }
}

TEST_CASE("a load makes the log's directory when it is missing")
{
    ModuleTree tree(false);
    tree.CopyModule();
    CHECK_FALSE(FileExists(tree.LogsPath()));
    const LoadedModule module(tree);
    CHECK(tree.FilesInLogs() == std::vector<std::wstring>{L"Varnex.log"});
    CHECK(tree.Log() == "\r\n\r\n");
}

TEST_CASE("a load changes no file beside the module")
{
    ModuleTree tree;
    tree.CopyModule();
    const LoadedModule module(tree);
    CHECK(tree.FilesInBin() == std::vector<std::wstring>{L"Varnex.dll"});
}

TEST_CASE("before each of its two empty lines the load puts a log of more than 8388608 bytes aside")
{
    struct Size
    {
        std::size_t cbLog;
        std::size_t cbPutAside; // 0 for nothing
        std::size_t cbLogAfter;
    };
    const auto size =
        GENERATE(values<Size>({{8'388'606, 0, 8'388'610}, {8'388'608, 8'388'610, 2}, {8'388'609, 8'388'609, 4}}));
    const ShippedTree tree{ConfigBuilder()};
    WriteFileBytes(tree.InLogs(L"Varnex.log"), std::string(size.cbLog, 'x'));
    const LoadedModule module(tree);
    std::size_t cbPutAside = 0;
    for (const std::wstring& name : tree.FilesInLogs())
    {
        cbPutAside += name == L"Varnex.log" ? 0 : ReadFileBytes(tree.InLogs(name)).size();
    }
    CHECK(cbPutAside == size.cbPutAside);
    CHECK(tree.FilesInLogs().size() == (size.cbPutAside == 0 ? 1U : 2U));
    CHECK(tree.Log().size() == size.cbLogAfter);
}

TEST_CASE("a host thread in the multithreaded COM model cannot load the module")
{
    const ShippedTree tree{ConfigBuilder()};
    const Apartment apartment(COINIT_MULTITHREADED);
    DWORD dwError = 0;
    CHECK_FALSE(CanLoadModule(tree, &dwError));
    CHECK(dwError == ERROR_DLL_INIT_FAILED);
    const LogFile log(tree);
    CHECK_THAT(log, HasLine(1, "initialize COM interface failed."));
    CHECK(log.RawLines().size() == 4);
    CHECK(log.RawLines().front().empty());
    CHECK(log.RawLines().back().empty());
}

TEST_CASE("a host thread in the apartment model can load the module, and keeps its own COM")
{
    const ShippedTree tree{ConfigBuilder()};
    const Apartment apartment(COINIT_APARTMENTTHREADED);
    {
        const LoadedModule module(tree);
        CHECK(tree.Log() == "\r\n\r\n");
    }
    CHECK(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED) == S_FALSE); // still initialised
    CoUninitialize();
}

TEST_CASE("loads and unloads leave COM as it was")
{
    const ShippedTree tree{ConfigBuilder()};
    for (int i = 0; i < 3; ++i)
    {
        const LoadedModule module(tree);
        CHECK(CoInitializeEx(nullptr, COINIT_MULTITHREADED) == RPC_E_CHANGED_MODE);
    }
    CHECK(CoInitializeEx(nullptr, COINIT_MULTITHREADED) == S_OK);
    CoUninitialize();
}

TEST_CASE("one COM status is let pass, and the detach leaves COM all the same")
{
    LateModule late;
    late.redirector.FailCall("CoInitialize", 1, FailMode::Once, CallFailure{0, 0x80010119, true});
    late.redirector.Replace<decltype(::CoUninitialize)>("CoUninitialize", [] {});
    CHECK(late.module.Attach());
    CHECK(late.redirector.Failures("CoInitialize") == 1);
    CHECK(late.tree.Log() == "\r\n\r\n");
    late.module.Detach();
    CHECK(late.redirector.Calls("CoUninitialize") == 1);
}

TEST_CASE("after an attach that COM failed nothing is made, and the detach undoes nothing")
{
    LateModule late;
    late.redirector.FailCall("CoInitialize", 1, FailMode::Once, CallFailure{0, 0x80004005, true});
    std::vector<std::string> mutexes;
    late.redirector.Replace<decltype(::CreateMutexA)>(
        "CreateMutexA",
        [&mutexes](LPSECURITY_ATTRIBUTES pSecurity, BOOL bInitialOwner, LPCSTR pszName)
        {
            mutexes.emplace_back(pszName);
            return CreateMutexA(pSecurity, bInitialOwner, pszName);
        });
    for (const char* pszImport : {"CoUninitialize", "CreateEventW", "CreateFileMappingW"})
    {
        late.redirector.CountCalls(pszImport);
    }
    CHECK_FALSE(late.module.Attach());
    CHECK(late.redirector.Calls("CoUninitialize") == 0);
    CHECK(late.redirector.Calls("CreateEventW") == 0);
    CHECK(late.redirector.Calls("CreateFileMappingW") == 0);
    REQUIRE(mutexes.size() == 1); // the log's own
    CHECK(mutexes.front().rfind("SPLogger_", 0) == 0);
    const LogFile log(late.tree);
    CHECK(log.Has(1, "initialize COM interface failed."));
    CHECK(log.RawLines().size() == 4);
}

TEST_CASE("a store's mutex that cannot be made is logged, the load goes on, and alerts are fetched without it")
{
    LateModule late;
    late.redirector.FailCall("CreateMutexA", 2, FailMode::Once, ERROR_ACCESS_DENIED); // the first is the log's
    CHECK(late.module.Attach());
    const LogFile log(late.tree);
    CHECK_THAT(log, HasLine(1, "PrePKIAlertInf -- Failed to create event for alert local file (5)."));
    CHECK(log.Lines().size() == 1);
    CHECK(late.redirector.Failures("CreateMutexA") == 1);
    CHECK(late.redirector.Calls("CreateMutexA") == 2); // it is not tried again

    late.tree.WriteAlerts("1;85;90;2147483647(2038-01-19 03:14:07);;\r\n");
    int anTypes[2];
    int anThresholds[2];
    int anValues[2];
    wchar_t* apwszTexts[2] = {};
    const auto pfnGet = late.module.Export<decltype(::GetAlertRecord)>("GetAlertRecord");
    CHECK(pfnGet(anTypes, apwszTexts, 0, anThresholds, anValues, 1) == 1);
    CHECK(anValues[0] == 90);
}

TEST_CASE("a fetch outlasts a program that has the alert file open for a moment")
{
    const ShippedTree tree{ConfigBuilder()};
    const std::string alert = "1;85;90;2147483647(2038-01-19 03:14:07);;\r\n";
    WriteFileBytes(tree.InBin(L"LocalAlt.dat"), alert + alert + alert);
    const LoadedModule module(tree);
    UniqueFile reader(CreateFileW(tree.InBin(L"LocalAlt.dat").c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, OPEN_EXISTING, 0, nullptr));
    REQUIRE(reader);
    ImportRedirector redirector(module.Handle());
    redirector.Replace<decltype(::Sleep)>("Sleep", [&reader](DWORD) { reader.Reset(); });

    int anNumbers[2];
    wchar_t* apwszTexts[2] = {};
    const auto pfnGet = module.Export<decltype(::GetAlertRecord)>("GetAlertRecord");
    CHECK(pfnGet(anNumbers, apwszTexts, 0, anNumbers, anNumbers, 1) == 2);
    CHECK(redirector.Calls("Sleep") == 1);
    CHECK(tree.Alerts() == alert);
    CHECK_FALSE(FileExists(tree.InBin(L"LocalAlt_Backup.dat")));
}

TEST_CASE("the report's hand-off that cannot be made is logged and does not fail the load")
{
    LateModule late;
    late.redirector.FailCall("CreateEventW", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);
    CHECK(late.module.Attach());
    CHECK(late.redirector.Failures("CreateEventW") >= 1);
    const LogFile log(late.tree);
    CHECK(log.CountContaining("PrepareSendingMMFAndEvent -- CreateEvent fail(5)") >= 1);
    CHECK(log.CountOfLevel(1) == log.Lines().size());
}

TEST_CASE("a reload keeps the handles of the report's two events and section open, and no others")
{
    constexpr std::size_t HANDLES_OF_A_LOAD = 3;
    constexpr std::size_t RELOADS = 20;
    const ShippedTree tree{ConfigBuilder()};
    const auto reload = [&tree]
    {
        LoadedModule module(tree);
        CHECK(module.Unload());
    };
    reload(); // what the first load brings into the process stays
    const std::size_t nHandles = CountHandles();
    const std::size_t nThreads = CountThreads();
    for (std::size_t i = 0; i < RELOADS; ++i)
    {
        reload();
    }
    CHECK(CountHandles() <= nHandles + RELOADS * HANDLES_OF_A_LOAD);
    CHECK(CountThreads() == nThreads);
}

TEST_CASE("ten loads and unloads, or loads that fail, leave the heap as the first left it")
{
    const ShippedTree tree{ConfigBuilder()};
    std::function<void()> reload = [&tree]
    {
        LoadedModule module(tree);
        CHECK(module.Unload());
    };
    std::optional<Apartment> refused;
    if (GENERATE(false, true))
    {
        refused.emplace(COINIT_MULTITHREADED);
        reload = [&tree] { CHECK_FALSE(CanLoadModule(tree)); };
    }
    reload(); // what the first load brings into the process stays
    const HeapUse first = CountHeapBlocks();
    for (int i = 0; i < 10; ++i)
    {
        reload();
    }
    const HeapUse last = CountHeapBlocks();
    CHECK(last.nBlocks == first.nBlocks);
    CHECK(last.cbBlocks == first.cbBlocks);
}

TEST_CASE("a monitor can be started after a reload")
{
    const ShippedTree tree{ConfigBuilder()};
    for (int i = 0; i < 2; ++i)
    {
        LoadedModule module(tree);
        ImportRedirector redirector(module.Handle());
        VirtualClock clock(redirector);
        CHECK(module.Export<decltype(::StartWorkingThread)>("StartWorkingThread")(VARNEX_ALERT_CPU) == VARNEX_OK);
        clock.WaitUntilAllAsleep();
        CHECK(clock.Workers() == 1);
        CHECK(module.Export<decltype(::StopWorkingThread)>("StopWorkingThread")(VARNEX_ALERT_CPU) == VARNEX_OK);
        clock.AdvanceUntilWorkersEnd(2);
    }
    const LogFile log(tree);
    CHECK(log.CountContaining("has exist") == 0);
    CHECK(log.CountContaining("]Monitor CPU Usage thread begin: ") == 2);
}

TEST_CASE("a detach with a running monitor waits for nothing and leaves the monitor's slot as it is")
{
    LateModule late;
    REQUIRE(late.module.Attach());
    const auto pfnStart = late.module.Export<decltype(::StartWorkingThread)>("StartWorkingThread");
    const auto pfnStop = late.module.Export<decltype(::StopWorkingThread)>("StopWorkingThread");
    VirtualClock clock(late.redirector);
    pfnStart(VARNEX_ALERT_CPU);
    clock.WaitUntilAllAsleep();
    const ULONGLONG ullBefore = clock.ElapsedMs();
    late.module.Detach();
    CHECK(clock.ElapsedMs() == ullBefore);
    CHECK(clock.Workers() == 1);
    const ULONGLONG ullThreads = late.redirector.Calls("CreateThread");
    pfnStart(VARNEX_ALERT_CPU);
    CHECK(late.redirector.Calls("CreateThread") == ullThreads); // it exists
    pfnStop(VARNEX_ALERT_CPU);
    clock.AdvanceUntilWorkersEnd(2);
}

TEST_CASE("child: ends its process while all monitors run", "[.]")
{
    const ModuleInHost module;
    ImportRedirector redirector(module.Handle());
    redirector.CountCalls("Sleep");
    module.Start(VARNEX_ALERT_ALL);
    while (redirector.Calls("Sleep") == 0) // a monitor has done its first cycle; the parent does not wait for ever
    {
        Sleep(1);
    }
    ExitProcess(23);
}

TEST_CASE("a host that ends while its monitors run ends at once")
{
    const ShippedTree tree(ConfigBuilder().SetPolicy("CPU", 1, 85, 5, 5));
    const ChildProcess child =
        ChildProcess::OfTestCase("child: ends its process while all monitors run", ModuleInHost::OptionsFor(tree));
    REQUIRE(child.WaitForEnd(CHILD_WAIT_MS));
    CHECK(child.ExitCode() == 23);
    CHECK_THAT(LogFile(tree), HasLineContaining("]Monitor CPU Usage thread begin: "));
}

} // namespace varnex::test
