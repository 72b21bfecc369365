// Counting while another program has the configuration in use.

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

#include <functional>

namespace varnex::test
{

namespace
{

constexpr wchar_t TODAY[] = L"2026-01-31";
constexpr wchar_t TOMORROW[] = L"2026-02-01";
constexpr HRESULT IN_USE = HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION);

const Lines SAVE_BEGINS = {
    "[4] - SaveAlertNumIntoLocal -- input parameter: date(2026-01-31), Alert Type(1), Alert number(7)",
    "[4] - SaveAlertNumIntoLocal -- get the control of KPMcfg.xml."};

// A day's counts in a file that another program can have in use. Time is virtual.
struct UsedConfig : ConfigFixture
{
    VirtualClock clock{redirector};
    ScriptedDom dom;
    UniqueFile user;
    std::string day; // the file's bytes at the beginning

    UsedConfig()
    {
        tree.WriteConfig(ConfigBuilder()
                             .SetCounter("Date", "2026-01-31")
                             .SetCounter("CPU", "1")
                             .SetCounter("PH", "2")
                             .SetCounter("PF", "3")
                             .SetCounter("Disk", "4")
                             .SetCounter("Network", "5"));
        day = FileBytes();
    }
    void Use(DWORD dwAccess = GENERIC_READ, DWORD dwShare = 0)
    {
        const UnscriptedScope unscripted;
        user.Reset(
            CreateFileW(File().c_str(), dwAccess, dwShare, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        REQUIRE(user);
    }
    void EndUse()
    {
        const UnscriptedScope unscripted;
        user.Reset();
    }
    // The other program is done with the file behind the first attempt to open it at a time that will do.
    void EndUseAfterOpening(const std::function<bool()>& isTime)
    {
        redirector.Replace<decltype(::CreateFileW)>(
            "CreateFileW",
            [this, isTime](LPCWSTR pwszFile, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity,
                           DWORD dwDisposition, DWORD dwFlags, HANDLE hTemplate)
            {
                const HANDLE hFile =
                    CreateFileW(pwszFile, dwAccess, dwShare, pSecurity, dwDisposition, dwFlags, hTemplate);
                const LastErrorKeeper keeper;
                if (isTime())
                {
                    EndUse();
                }
                return hFile;
            });
    }
    // Something happens behind the nLoad-th load of a document, counted from here.
    void AfterLoad(int nLoad, const std::function<void()>& action)
    {
        dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT, VARIANT_BOOL*)>(
            DomMethod::Load,
            [nLoad, action, nLoads = 0](IXMLDOMDocument* pDocument, VARIANT source, VARIANT_BOOL* pbLoaded) mutable
            {
                const HRESULT nResult = pDocument->load(source, pbLoaded);
                if (++nLoads == nLoad)
                {
                    action();
                }
                return nResult;
            });
    }
    // The file ends in the middle of its text, and whoever has it so goes on to write it.
    void HoldHalfWritten()
    {
        WriteFileBytes(File(), day.substr(0, day.size() / 2));
        Use(GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    }
    void FinishWriting()
    {
        const UnscriptedScope unscripted;
        DWORD cbWritten = 0;
        SetFilePointer(user.Get(), 0, nullptr, FILE_END);
        WriteFile(user.Get(), day.data() + day.size() / 2, static_cast<DWORD>(day.size() - day.size() / 2), &cbWritten,
                  nullptr);
        user.Reset();
    }
    std::string NotLoaded() const
    {
        return Line(4, "GetXMLNodeValue -- fail to load XML file(%s)(0x00000000).", {FileInLog()});
    }
};

Lines operator+(Lines left, const Lines& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

} // namespace

TEST_CASE("a file in use while the date is read, and free for the writes, keeps the day's counts")
{
    UsedConfig config;
    config.Use();
    // The last look finds the file in use, and then the other program is done with it.
    config.EndUseAfterOpening([&config] { return config.clock.ElapsedMs() > 950; });
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == IN_USE);
    CHECK_FALSE(config.user);
    CHECK(config.FileBytes() == config.day);
    CHECK(config.clock.ElapsedMs() <= 1000);
    CHECK(config.TakeLog() == SAVE_BEGINS + Lines{config.NotLoaded(),
                                                  "[2] - SaveAlertNumIntoLocal -- get date in configure file "
                                                  "failed(0x80070020), exit..."});
}

TEST_CASE("a save that waits over midnight for a file in use counts for the date it was given")
{
    UsedConfig config;
    config.clock.Set(LocalTime{2026, 1, 31, 23, 59, 59});
    config.clock.AdvanceMs(500);
    config.Use();
    const ULONGLONG ullBegin = config.clock.ElapsedMs();
    config.EndUseAfterOpening([&config] { return config.clock.Now().wDay == 1; });
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == 0);
    CHECK(config.clock.Now().wDay == 1);
    CHECK(config.clock.ElapsedMs() - ullBegin <= 1000);
    CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/Date") == TODAY);
    CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/CPU") == L"7");
    CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/Network") == L"5"); // no new day began
    CHECK(SaveAlertNumIntoLocal(TOMORROW, 1, 1) == 0);
    CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/CPU") == L"1");
    CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/Network") == L"0");
}

TEST_CASE("a file in use gives no count, and not the count of a file without a date")
{
    UsedConfig config;
    config.Use();
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == IN_USE);
    CHECK(nCount == 77);
    CHECK(config.TakeLog() ==
          Lines{config.NotLoaded(),
                "[2] - GetAlertNumFromLocal -- get date in configure file failed(0x80070020), exit..."});
}

TEST_CASE("a file that comes into use between a date and its count gives no count, and not a count of 0")
{
    UsedConfig config;
    config.AfterLoad(1, [&] { config.Use(); });
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == IN_USE);
    CHECK(nCount == 77);
    CHECK(config.TakeLog() == Lines{config.NotLoaded(),
                                    "[2] - GetAlertNumFromLocal -- get alert number(77) failed. alert type(1), "
                                    "date(2026-01-31), error code(0x80070020)."});
}

TEST_CASE("a file that cannot be opened at all keeps the day's counts")
{
    UsedConfig config;
    config.dom.FailCall(DomMethod::Load, 1, FailMode::FromThereOn, E_FAIL);
    CallFailure failure;
    failure.dwLastError = ERROR_NOT_READY;
    failure.ullResult = reinterpret_cast<ULONGLONG>(INVALID_HANDLE_VALUE);
    config.redirector.FailCall("CreateFileW", 1, FailMode::Once, failure);
    CHECK(SaveAlertNumIntoLocal(TOMORROW, 1, 7) == HRESULT_FROM_WIN32(ERROR_NOT_READY));
    CHECK(config.clock.ElapsedMs() == 0);
    CHECK(config.FileBytes() == config.day);
}

TEST_CASE("a count is read from a file that somebody is writing as soon as it is whole again")
{
    UsedConfig config;
    config.HoldHalfWritten();
    config.AfterLoad(3, [&] { config.FinishWriting(); });
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == 0);
    CHECK(nCount == 1);
    CHECK(config.clock.ElapsedMs() == 100);
    CHECK(config.TakeLog() == Lines{"[4] - GetAlertNumFromLocal -- get alert number(1) successful, alert type(1), "
                                    "date(2026-01-31)."});
}

TEST_CASE("a count is saved into a file that somebody was writing when it was read, and no new day begins")
{
    UsedConfig config;
    config.HoldHalfWritten();
    config.AfterLoad(3, [&] { config.FinishWriting(); });
    CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == 0);
    CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/CPU") == L"7");
    CHECK(config.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/Network") == L"5");
}

TEST_CASE("a file that is left half-written counts as one in use while it is held, and as malformed afterwards")
{
    UsedConfig config;
    config.HoldHalfWritten();
    int nCount = 77;
    CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == IN_USE);
    CHECK(config.clock.ElapsedMs() > 900);
    config.EndUse();
    CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == -1);
    CHECK(config.clock.ElapsedMs() <= 1000);
    CHECK(nCount == 77);
}

TEST_CASE("counting without the memory to name the file fails, and no new day begins")
{
    UsedConfig config;
    int nCount = 77;
    const auto checkBoth = [&](const std::function<void()>& arm)
    {
        arm();
        CHECK(GetAlertNumFromLocal(TODAY, 1, &nCount) == E_OUTOFMEMORY);
        arm();
        CHECK(SaveAlertNumIntoLocal(TODAY, 1, 7) == E_OUTOFMEMORY);
        CHECK(config.FileBytes() == config.day);
        CHECK(config.TakeLog() ==
              Lines{config.NotLoaded(),
                    "[2] - GetAlertNumFromLocal -- get date in configure file failed(0x8007000e), exit..."} +
                  SAVE_BEGINS +
                  Lines{config.NotLoaded(),
                        "[2] - SaveAlertNumIntoLocal -- get date in configure file failed(0x8007000e), exit..."});
    };
    checkBoth([&] { config.redirector.FailCall("SysAllocStringLen", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY); });
    CHECK(config.redirector.Failures("SysAllocStringLen") == 1);
    checkBoth([&] { config.dom.FailCall(DomMethod::Load, 1, FailMode::Once, E_OUTOFMEMORY); });
    CHECK(config.dom.Failures(DomMethod::Load) == 1);
    CHECK(config.clock.ElapsedMs() == 0);
    CHECK(nCount == 77);
}

} // namespace varnex::test
