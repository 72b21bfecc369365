#include "ConfigFixture.h"
#include "ScriptedDom.h"

#include "common/Handles.h"
#include "config/DailyCounters.h"
#include "config/XmlConfig.h"
#include "support/VirtualClock.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <oleauto.h>

#include <msxml2.h>

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
