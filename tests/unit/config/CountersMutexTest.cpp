#include "ConfigFixture.h"
#include "ScriptedDom.h"

#include "config/DailyCounters.h"
#include "config/XmlConfig.h"
#include "support/ProcessMeter.h"
#include "support/VirtualClock.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <oleauto.h>

#include <msxml2.h>

#include <functional>

namespace varnex::test
{

namespace
{

constexpr wchar_t MUTEX_NAME[] = L"Global\\{49BCAD94-02E7-4d1d-9CDA-5A7246CDD559}";
constexpr wchar_t TODAY[] = L"2026-01-31";
constexpr char INPUT[] =
    "[4] - SaveAlertNumIntoLocal -- input parameter: date(2026-01-31), Alert Type(1), Alert number(7)";
constexpr char NOT_LOCKED[] =
    "[1] - SaveAlertNumIntoLocal -- Failed to get KPMcfg.xml control, return value(0x00000000)";

ConfigBuilder FullDay()
{
    return ConfigBuilder().SetCounter("Date", "2026-01-31").SetCounter("CPU", "1");
}

} // namespace

TEST_CASE("a mutex that is there is opened by its name, with full access and not inherited")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    config.mutex.Make();
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == 0);
    CHECK(config.mutex.Asked() == std::vector<std::wstring>{std::wstring(L"open 1f0001 0 ") + MUTEX_NAME});
}

TEST_CASE("a mutex that is not there is made, with default security and not owned")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == 0);
    CHECK(config.mutex.Asked() == std::vector<std::wstring>{std::wstring(L"open 1f0001 0 ") + MUTEX_NAME,
                                                            std::wstring(L"create default 0 ") + MUTEX_NAME});
    CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/CPU") == L"7");
}

TEST_CASE("without a mutex nothing is saved")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    const std::string before = config.FileBytes();
    config.redirector.FailCall("OpenMutexW", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);
    config.redirector.FailCall("CreateMutexW", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == -3);
    CHECK(config.redirector.Failures("CreateMutexW") == 1);
    CHECK(config.TakeLog() == Lines{INPUT, NOT_LOCKED});
    CHECK(config.FileBytes() == before);
}

TEST_CASE("a mutex in other hands is waited for, 90 seconds, and stays in those hands")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    const std::string before = config.FileBytes();
    config.mutex.Make();
    const CountsMutexOwner owner(config.mutex);
    VirtualClock clock(config.redirector);
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == -3);
    CHECK(clock.ElapsedMs() == 90000);
    CHECK(config.mutex.WaitElsewhere() == WAIT_TIMEOUT);
    CHECK(config.TakeLog() == Lines{INPUT, NOT_LOCKED});
    CHECK(config.FileBytes() == before);
}

TEST_CASE("a mutex that its owner gives back within the 90 seconds is taken")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    config.mutex.Make();
    VirtualClock clock(config.redirector);
    clock.RunOnOtherThread(
        [hMutex = config.mutex.Get()]
        {
            WaitForSingleObject(hMutex, INFINITE);
            Sleep(89000);
            ReleaseMutex(hMutex);
        });
    clock.WaitUntilAllAsleep();
    REQUIRE(config.mutex.WaitElsewhere() == WAIT_TIMEOUT);
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == 0);
    CHECK(clock.ElapsedMs() >= 89000);
    CHECK(clock.ElapsedMs() < 90000);
    CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/CPU") == L"7");
}

TEST_CASE("a mutex whose owner ended with it is not taken, but the next caller gets it")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    const std::string before = config.FileBytes();
    config.mutex.Make();
    config.mutex.Abandon();
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == -3);
    CHECK(config.TakeLog() == Lines{INPUT, NOT_LOCKED});
    CHECK(config.FileBytes() == before);
    CHECK(config.mutex.WaitElsewhere() == WAIT_OBJECT_0);
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == 0);
}

TEST_CASE("a wait that fails saves nothing")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    const std::string before = config.FileBytes();
    config.redirector.Replace<decltype(::WaitForSingleObject)>(
        "WaitForSingleObject",
        [](HANDLE hObject, DWORD dwMilliseconds)
        {
            // The log's waits, of another length, go their way.
            return dwMilliseconds == 90000 ? WAIT_FAILED : WaitForSingleObject(hObject, dwMilliseconds);
        });
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == -3);
    CHECK(config.TakeLog() == Lines{INPUT, NOT_LOCKED});
    CHECK(config.FileBytes() == before);
}

TEST_CASE("the mutex is held from the reading of the date to the last write")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    config.mutex.Make();
    ScriptedDom dom;
    std::vector<DWORD> waits;
    dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT, VARIANT_BOOL*)>(
        DomMethod::Load,
        [&](IXMLDOMDocument* pDocument, VARIANT source, VARIANT_BOOL* pbLoaded)
        {
            waits.push_back(config.mutex.WaitElsewhere());
            return pDocument->load(source, pbLoaded);
        });
    config.redirector.Replace<decltype(::MoveFileExW)>("MoveFileExW",
                                                       [&](LPCWSTR pwszFrom, LPCWSTR pwszTo, DWORD dwFlags)
                                                       {
                                                           waits.push_back(config.mutex.WaitElsewhere());
                                                           return MoveFileExW(pwszFrom, pwszTo, dwFlags);
                                                       });
    CHECK(SaveAlertNumIntoLocal(L"2026-02-01", 1, 7) == 0);
    // The date's load, then a load and a save for the new date, each of the five resets, and the count.
    CHECK(waits == std::vector<DWORD>(1 + 7 * 2, WAIT_TIMEOUT));
    CHECK(config.mutex.WaitElsewhere() == WAIT_OBJECT_0);
}

TEST_CASE("every save gives the mutex back and closes it, however it ends")
{
    ConfigFixture config;
    config.mutex.Make();
    ScriptedDom dom;
    struct Ending
    {
        const char* pszWhat;
        std::function<void()> arm;
        int nResult;
    };
    const std::vector<Ending> endings = {
        {"saved", [] {}, 0},
        {"date not read", [&] { dom.FailCall(DomMethod::GetText, 1, FailMode::Once, E_OUTOFMEMORY); }, E_OUTOFMEMORY},
        {"count not written",
         [&] { config.redirector.FailCall("FlushFileBuffers", 1, FailMode::Once, ERROR_DISK_FULL); },
         HRESULT_FROM_WIN32(ERROR_DISK_FULL)},
        {"file not loaded", [&] { config.tree.WriteConfigText("<KPMConfiguration>"); }, -1},
        {"owner ended", [&] { config.mutex.Abandon(); }, -3},
    };
    std::size_t nHandles = 0;
    for (int nRound = 0; nRound < 3; ++nRound)
    {
        for (const Ending& ending : endings)
        {
            CAPTURE(ending.pszWhat);
            config.tree.WriteConfig(FullDay());
            ending.arm();
            CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == ending.nResult);
            CHECK(config.mutex.WaitElsewhere() == WAIT_OBJECT_0);
        }
        nHandles = nRound == 0 ? CountHandles() : nHandles; // the first round loads the libraries
    }
    CHECK(CountHandles() == nHandles);
}

TEST_CASE("memory that runs out in the middle of a save raises nothing, and mutex and file stay sound")
{
    ConfigFixture config;
    config.mutex.Make();
    bool bFailed = true;
    for (ULONGLONG ullCall = 1; bFailed; ++ullCall)
    {
        CAPTURE(ullCall);
        REQUIRE(ullCall < 1000);
        config.tree.WriteConfig(FullDay());
        config.redirector.FailCall("malloc", ullCall, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
        const int nResult = SaveAlertNumIntoLocal(TODAY, 1, 7);
        bFailed = config.redirector.Failures("malloc") != 0;
        config.redirector.StopFailing("malloc");
        CHECK((bFailed || ullCall > 1)); // there was something to fail
        CHECK(config.mutex.WaitElsewhere() == WAIT_OBJECT_0);
        CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/CPU") == (nResult == 0 ? L"7" : L"1"));
    }
}

TEST_CASE("a time-out closes the mutex")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    config.mutex.Make();
    VirtualClock clock(config.redirector);
    const CountsMutexOwner owner(config.mutex);
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == -3);
    const std::size_t nHandles = CountHandles();
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == -3);
    CHECK(CountHandles() == nHandles);
}

TEST_CASE("a count is read without the mutex")
{
    ConfigFixture config;
    config.tree.WriteConfig(FullDay());
    config.mutex.Make();
    const CountsMutexOwner owner(config.mutex);
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == 0);
    CHECK(nCount == 1);
    CHECK(config.mutex.Asked().empty()); // nothing can wait for what it never asked for
}

} // namespace varnex::test
