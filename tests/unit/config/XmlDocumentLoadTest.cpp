#include "ConfigFixture.h"
#include "ScriptedDom.h"

#include "common/Com.h"
#include "common/Handles.h"
#include "config/DailyCounters.h"
#include "config/XmlConfig.h"
#include "support/VirtualClock.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <oleauto.h>

#include <msxml2.h>

#include <climits>
#include <functional>
#include <optional>

namespace varnex::test
{

namespace
{

constexpr char CONFIG_TEXT[] = "<KPMConfiguration><One>text</One></KPMConfiguration>";
constexpr wchar_t PATH[] = L"KPMConfiguration/One";

// A configuration that somebody else has open without letting anyone in, for a while.
struct LockedConfig : ConfigFixture
{
    VirtualClock clock{redirector};
    UniqueFile lock;

    LockedConfig()
    {
        tree.WriteConfigText(CONFIG_TEXT);
        const UnscriptedScope unscripted;
        lock.Reset(
            CreateFileW(File().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        REQUIRE(lock);
    }
    void Unlock()
    {
        const UnscriptedScope unscripted;
        lock.Reset();
    }
};

// A configuration whose documents report a success when they are told to load, and load later. Time is virtual.
struct LoadingConfig : ConfigFixture
{
    VirtualClock clock{redirector};
    std::optional<ScriptedDom> dom; // of the apartment in which the documents are
    ULONGLONG ullTaken = 0;         // of the last operation

    explicit LoadingConfig(Com com = Com::Initialised) : ConfigFixture(com)
    {
        tree.WriteConfigText(CONFIG_TEXT);
        if (com == Com::Initialised)
        {
            dom.emplace();
        }
    }
    // The documents load when their state is asked for and it is time.
    void CompleteWhen(const std::function<bool()>& isTime)
    {
        dom->Replace<HRESULT(IXMLDOMDocument*, VARIANT, VARIANT_BOOL*)>(
            DomMethod::Load,
            [this](IXMLDOMDocument*, VARIANT source, VARIANT_BOOL* pbLoaded)
            {
                m_source = source.bstrVal;
                *pbLoaded = VARIANT_TRUE;
                return S_OK;
            });
        dom->Replace<HRESULT(IXMLDOMDocument*, long*)>(DomMethod::GetReadyState,
                                                       [this, isTime](IXMLDOMDocument* pDocument, long* pnState)
                                                       {
                                                           *pnState = isTime() ? 4 : 1;
                                                           if (*pnState == 4)
                                                           {
                                                               ScopedVariant source;
                                                               source.SetText(UniqueBstr(m_source.c_str()));
                                                               VARIANT_BOOL bLoaded = VARIANT_FALSE;
                                                               pDocument->load(source.Get(), &bLoaded);
                                                           }
                                                           return S_OK;
                                                       });
    }
    void CompleteAfter(int nAsked)
    {
        CompleteWhen([nAsked, n = 0]() mutable { return ++n > nAsked; });
    }
    ULONGLONG TakeElapsed()
    {
        ullTaken = clock.ElapsedMs() - m_ullBefore;
        m_ullBefore = clock.ElapsedMs();
        return ullTaken;
    }

private:
    std::wstring m_source;
    ULONGLONG m_ullBefore = 0;
};

// A window of this thread that counts what is sent to it.
class MessageWindow
{
public:
    MessageWindow()
        : m_hWindow(CreateWindowExW(0, L"STATIC", nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr))
    {
        REQUIRE(m_hWindow != nullptr);
        SetWindowLongPtrW(m_hWindow, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&Serve));
        s_nServed = 0;
    }
    ~MessageWindow() { DestroyWindow(m_hWindow); }
    MessageWindow(const MessageWindow&) = delete;
    MessageWindow& operator=(const MessageWindow&) = delete;

    void Post() const { PostMessageW(m_hWindow, WM_USER, 0, 0); }
    bool HasServed() const { return s_nServed != 0; }

private:
    static LRESULT CALLBACK Serve(HWND hWindow, UINT nMessage, WPARAM wParam, LPARAM lParam)
    {
        s_nServed += nMessage == WM_USER ? 1 : 0;
        return DefWindowProcW(hWindow, nMessage, wParam, lParam);
    }

    static inline int s_nServed = 0;
    HWND m_hWindow;
};

} // namespace

TEST_CASE("a file that another opener keeps locked is tried again until it is free")
{
    LockedConfig config;
    ScriptedDom dom;
    int nLoads = 0;
    dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT, VARIANT_BOOL*)>(
        DomMethod::Load,
        [&](IXMLDOMDocument* pDocument, VARIANT source, VARIANT_BOOL* pbLoaded)
        {
            if (++nLoads == 6)
            {
                config.Unlock();
            }
            return pDocument->load(source, pbLoaded);
        });
    wchar_t wszValue[16] = L"before";
    CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
    CHECK(std::wstring(wszValue) == L"text");
    CHECK(nLoads == 6);
    CHECK(config.clock.ElapsedMs() > 0);
    CHECK(config.clock.ElapsedMs() < 1000);
    CHECK(config.TakeLog().empty());
}

TEST_CASE("a file that stays locked is tried for a second and then counts as one that does not load")
{
    LockedConfig config;
    wchar_t wszValue[16] = L"before";
    int nLevel = 77;
    auto checkTookASecond = [&, ullBefore = ULONGLONG(0)]() mutable
    {
        const ULONGLONG ullTook = config.clock.ElapsedMs() - ullBefore;
        CHECK(ullTook > 900);
        CHECK(ullTook <= 1000);
        ullBefore = config.clock.ElapsedMs();
    };
    CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
    CHECK(std::wstring(wszValue) == L"before");
    checkTookASecond();
    CHECK(SetXMLNodeValue(nullptr, PATH, L"new") == -1);
    checkTookASecond();
    CHECK(GetAlertConfValue(1, 1) == -1);
    checkTookASecond();
    CHECK(GetLogLevel(&nLevel) == -1);
    checkTookASecond();
    CHECK(nLevel == 77);
    const std::string number =
        Line(1, "GetAlertConfValue -- DocumentPtr load file(%s) failed(0x00000000)", {config.FileInLog()});
    CHECK(config.TakeLog() ==
          Lines{Line(4, "GetXMLNodeValue -- fail to load XML file(%s)(0x00000000).", {config.FileInLog()}),
                Line(4, "SetXMLNodeValue -- fail to load XML file(%s)(0x00000000).", {config.FileInLog()}), number,
                number});
    config.Unlock();
    CHECK(config.FileBytes() == CONFIG_TEXT);
}

TEST_CASE("a malformed file is not waited for")
{
    ConfigFixture config;
    VirtualClock clock(config.redirector);
    config.tree.WriteConfigText("<KPMConfiguration>");
    wchar_t wszValue[16] = L"before";
    CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
    CHECK(SetXMLNodeValue(nullptr, PATH, L"new") == -1);
    CHECK(GetAlertConfValue(1, 1) == -1);
    CHECK(clock.ElapsedMs() == 0);
}

TEST_CASE("a file that was locked at the load but is free at the look is loaded once more")
{
    ConfigFixture config;
    VirtualClock clock(config.redirector);
    config.tree.WriteConfigText(CONFIG_TEXT);
    ScriptedDom dom;
    dom.FailCall(DomMethod::Load, 1, FailMode::Once, E_FAIL);
    wchar_t wszValue[16] = L"before";
    CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
    CHECK(std::wstring(wszValue) == L"text");
    CHECK(dom.Calls(DomMethod::Load) == 2);
    CHECK(clock.ElapsedMs() == 0);
}

TEST_CASE("while the last load decides, nobody can write the file or replace it")
{
    ConfigFixture config;
    VirtualClock clock(config.redirector);
    config.tree.WriteConfigText(CONFIG_TEXT);
    const std::wstring other = config.tree.InBin(L"other.xml");
    WriteFileBytes(other, "<KPMConfiguration>");
    ScriptedDom dom;
    std::vector<bool> written;
    std::vector<bool> replaced;
    dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT, VARIANT_BOOL*)>(
        DomMethod::Load,
        [&](IXMLDOMDocument* pDocument, VARIANT source, VARIANT_BOOL* pbLoaded) -> HRESULT
        {
            if (written.empty()) // the first load: the file is locked, and free again at the look
            {
                written.push_back(true);
                return E_FAIL;
            }
            const DWORD dwShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
            const UniqueFile writer(CreateFileW(config.File().c_str(), GENERIC_WRITE, dwShareAll, nullptr,
                                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
            written.push_back(static_cast<bool>(writer));
            replaced.push_back(MoveFileExW(other.c_str(), config.File().c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE);
            return pDocument->load(source, pbLoaded);
        });
    wchar_t wszValue[16] = L"before";
    CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
    CHECK(std::wstring(wszValue) == L"text");
    CHECK(written == std::vector<bool>{true, false});
    CHECK(replaced == std::vector<bool>{false});
}

TEST_CASE("a locked file whose loads take their time is tried for a second all the same")
{
    LockedConfig config;
    const ULONGLONG ullBefore = config.clock.TickCount();
    ScriptedDom dom;
    dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT, VARIANT_BOOL*)>(
        DomMethod::Load,
        [&](IXMLDOMDocument* pDocument, VARIANT source, VARIANT_BOOL* pbLoaded)
        {
            config.clock.SetTickCount(config.clock.TickCount() + 300);
            return pDocument->load(source, pbLoaded);
        });
    wchar_t wszValue[16] = L"before";
    CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
    CHECK(dom.Calls(DomMethod::Load) == 3); // at 0, 350 and 700 ms
    CHECK(config.clock.TickCount() - ullBefore <= 1000);
}

TEST_CASE("a configuration in a directory with percent signs is read and saved, and not another one")
{
    ConfigFixture config;
    const auto configIn = [&](const std::vector<std::wstring>& directories, int nInterval)
    {
        std::wstring path = config.tree.BinPath();
        for (const std::wstring& directory : directories)
        {
            path += L"\\" + directory;
            CreateDirectoryW(path.c_str(), nullptr);
        }
        WriteFileBytes(path + L"\\KpmCfg.xml", ConfigBuilder().Set("CPUInterval", nInterval).Build());
        return path;
    };
    const std::wstring directory = configIn({L"P%41", L"q%zz", L"%2541", L"100%"}, 12);
    const std::wstring other = configIn({L"PA", L"q%zz", L"%41", L"100%"}, 34);
    const std::string otherBytes = ReadFileBytes(other + L"\\KpmCfg.xml");
    config.modulePath.Set(directory + L"\\Varnex.dll");
    CHECK(GetAlertConfValue(1, 1) == 12);
    CHECK(SetXMLNodeValue(nullptr, L"KPMConfiguration/PkiAlert/CPUInterval", L"13") == 0);
    CHECK(GetAlertConfValue(1, 1) == 13);
    CHECK(ReadFileBytes(other + L"\\KpmCfg.xml") == otherBytes);
    CHECK(config.TakeLog().empty());
}

TEST_CASE("a document that goes on to load after the load's success is waited for")
{
    LoadingConfig config;
    config.CompleteAfter(5);
    wchar_t wszValue[16] = L"before";
    CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
    CHECK(std::wstring(wszValue) == L"text");
    CHECK(config.clock.ElapsedMs() > 0);
    CHECK(config.clock.ElapsedMs() < 200);
    config.CompleteAfter(5);
    CHECK(SetXMLNodeValue(nullptr, PATH, L"new") == 0);
    CHECK(config.tree.ConfigNode(PATH) == L"new");
    CHECK(config.TakeLog().empty());
}

TEST_CASE("a document that never gets complete is waited for a second, and nothing is read or saved")
{
    LoadingConfig config;
    config.CompleteAfter(INT_MAX);
    wchar_t wszValue[16] = L"before";
    int nValue = 77;
    const auto checkTookASecond = [&](int nResult, int nExpected)
    {
        CHECK(nResult == nExpected);
        CHECK(config.TakeElapsed() > 900);
        CHECK(config.ullTaken <= 1000);
        CHECK(config.FileBytes() == CONFIG_TEXT);
    };
    checkTookASecond(GetXMLNodeValue(nullptr, PATH, wszValue, 16), 0);
    CHECK(config.dom->Calls(DomMethod::Abort) == 1); // no load goes on behind an operation
    checkTookASecond(ReadXMLNodeValue(PATH, wszValue, 16), E_PENDING);
    checkTookASecond(SetXMLNodeValue(nullptr, PATH, L"new"), -1);
    checkTookASecond(GetAlertConfValue(1, 1), -1);
    checkTookASecond(GetLogLevel(&nValue), -1);
    checkTookASecond(GetAlertNumFromLocal(L"2026-01-31", 1, &nValue), E_PENDING);
    checkTookASecond(SaveAlertNumIntoLocal(L"2026-01-31", 1, 5), E_PENDING); // no new day
    CHECK(std::wstring(wszValue) == L"before");
    CHECK(nValue == 77);
}

TEST_CASE("a document that turns out to be malformed after the load's success is not loaded, and is not saved")
{
    LoadingConfig config;
    config.tree.WriteConfigText("<KPMConfiguration>");
    config.CompleteAfter(3);
    wchar_t wszValue[16] = L"before";
    CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
    CHECK(std::wstring(wszValue) == L"before");
    CHECK(SetXMLNodeValue(nullptr, PATH, L"new") == -1);
    CHECK(config.FileBytes() == "<KPMConfiguration>");
}

TEST_CASE("a document that does not tell what came of its load is not loaded, and is not waited for")
{
    ConfigFixture config;
    VirtualClock clock(config.redirector);
    config.tree.WriteConfigText(CONFIG_TEXT);
    ScriptedDom dom;
    for (const DomMethod method : {DomMethod::GetReadyState, DomMethod::GetParseError, DomMethod::GetErrorCode})
    {
        CAPTURE(static_cast<int>(method));
        dom.StopFailing();
        dom.FailCall(method, 1, FailMode::FromThereOn, E_UNEXPECTED);
        wchar_t wszValue[16] = L"before";
        CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
        CHECK(ReadXMLNodeValue(PATH, wszValue, 16) == E_UNEXPECTED);
        CHECK(std::wstring(wszValue) == L"before");
        CHECK(SetXMLNodeValue(nullptr, PATH, L"new") == -1);
    }
    CHECK(config.FileBytes() == CONFIG_TEXT);
    CHECK(clock.ElapsedMs() == 0);
}

TEST_CASE("a file in use and a document that goes on to load share one second")
{
    LoadingConfig config;
    config.CompleteAfter(INT_MAX);
    int nLoads = 0;
    config.dom->Replace<HRESULT(IXMLDOMDocument*, VARIANT, VARIANT_BOOL*)>(
        DomMethod::Load,
        [&](IXMLDOMDocument*, VARIANT, VARIANT_BOOL* pbLoaded)
        {
            *pbLoaded = ++nLoads > 10 ? VARIANT_TRUE : VARIANT_FALSE;
            return S_OK;
        });
    const UniqueFile user = [&]
    {
        const UnscriptedScope unscripted;
        return UniqueFile(CreateFileW(config.File().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    }();
    wchar_t wszValue[16] = L"before";
    CHECK(ReadXMLNodeValue(PATH, wszValue, 16) == E_PENDING);
    CHECK(nLoads == 11);
    CHECK(config.TakeElapsed() > 900);
    CHECK(config.ullTaken <= 1000);
}

TEST_CASE("a document that loads by messages gets them in a single-threaded apartment, and others keep theirs")
{
    LoadingConfig config;
    const MessageWindow window;
    config.CompleteWhen([&] { return window.HasServed(); });
    window.Post();
    PostThreadMessageW(GetCurrentThreadId(), WM_QUIT, 7, 0);
    wchar_t wszValue[16] = L"before";
    CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
    CHECK(std::wstring(wszValue) == L"text");
    MSG message = {};
    CHECK(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    CHECK(message.message == WM_QUIT);
    CHECK(message.wParam == 7);
}

TEST_CASE("in the multithreaded apartment no messages are served while a document loads")
{
    LoadingConfig config(ConfigFixture::Com::Absent);
    REQUIRE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    config.dom.emplace();
    {
        const MessageWindow window;
        config.CompleteAfter(5);
        window.Post();
        wchar_t wszValue[16] = L"before";
        CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
        CHECK(std::wstring(wszValue) == L"text");
        CHECK_FALSE(window.HasServed());
    }
    CoUninitialize();
}

TEST_CASE("only the errors of a file in other hands are waited for")
{
    ConfigFixture config;
    VirtualClock clock(config.redirector);
    config.tree.WriteConfigText("<KPMConfiguration>");
    struct LookResult
    {
        DWORD dwError;
        bool bWaits;
    };
    for (const LookResult& look : {LookResult{ERROR_ACCESS_DENIED, true},
                                   {ERROR_SHARING_VIOLATION, true},
                                   {ERROR_LOCK_VIOLATION, true},
                                   {ERROR_FILE_NOT_FOUND, false},
                                   {ERROR_NOT_READY, false}})
    {
        CAPTURE(look.dwError);
        const ULONGLONG ullBefore = clock.ElapsedMs();
        CallFailure failure;
        failure.dwLastError = look.dwError;
        failure.ullResult = reinterpret_cast<ULONGLONG>(INVALID_HANDLE_VALUE);
        config.redirector.FailCall("CreateFileW", 1, FailMode::Once, failure);
        wchar_t wszValue[16] = L"before";
        CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
        CHECK(config.redirector.Failures("CreateFileW") == 1);
        CHECK((clock.ElapsedMs() != ullBefore) == look.bWaits);
    }
}

} // namespace varnex::test
