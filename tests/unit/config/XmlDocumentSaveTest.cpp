#include "ConfigFixture.h"
#include "ScriptedDom.h"

#include "common/Handles.h"
#include "config/XmlConfig.h"
#include "support/ProcessMeter.h"
#include "support/VirtualClock.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <oleauto.h>

#include <msxml2.h>

namespace varnex::test
{

namespace
{

constexpr char OLD_TEXT[] = "<KPMConfiguration><One>old</One></KPMConfiguration>";
constexpr wchar_t PATH[] = L"KPMConfiguration/One";

// A configuration whose saving is watched call by call. Time is virtual.
struct SavedConfig : ConfigFixture
{
    VirtualClock clock{redirector};
    ScriptedDom dom;
    std::vector<std::wstring> savedTo; // the files that the document was told to save to
    std::vector<std::string> contents; // the file's bytes when each step of a save began

    SavedConfig()
    {
        tree.WriteConfigText(OLD_TEXT);
        dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT)>(DomMethod::Save,
                                                        [this](IXMLDOMDocument* pDocument, VARIANT to)
                                                        {
                                                            contents.push_back(FileBytes());
                                                            savedTo.push_back(to.vt == VT_BSTR ? to.bstrVal : L"?");
                                                            return pDocument->save(to);
                                                        });
        redirector.CountCalls("MoveFileExW");
    }
    std::wstring TemporaryFile() const { return File() + L".tmp"; }
    int Write() const { return SetXMLNodeValue(nullptr, PATH, L"new"); }
    // The replacing of the file fails from here on.
    void RefuseReplacing(DWORD dwError, FailMode mode = FailMode::FromThereOn)
    {
        redirector.FailCall("MoveFileExW", 1, mode, dwError);
    }
    Lines SaveFailed(const std::string& status) const
    {
        return {Line(1, "SetXMLNodeValue -- DocumentPtr save to file(%s) fail(%s)", {FileInLog(), status})};
    }
    void CheckIsOld() const
    {
        CHECK(FileBytes() == OLD_TEXT);
        CHECK(tree.FilesInBin() == std::vector<std::wstring>{L"KpmCfg.xml"});
    }
    void CheckIsNew() const
    {
        CHECK(tree.ConfigNode(PATH) == L"new");
        CHECK(tree.FilesInBin() == std::vector<std::wstring>{L"KpmCfg.xml"});
    }
};

UniqueFile OpenShared(const std::wstring& path, DWORD dwShare)
{
    const UnscriptedScope unscripted;
    UniqueFile file(
        CreateFileW(path.c_str(), GENERIC_READ, dwShare, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    REQUIRE(file);
    return file;
}

} // namespace

TEST_CASE("a save writes beside the file, flushes that, and replaces the file by it in one step")
{
    SavedConfig config;
    std::vector<std::wstring> steps;
    HANDLE hOpened = nullptr;
    config.redirector.Replace<decltype(::CreateFileW)>(
        "CreateFileW",
        [&](LPCWSTR pwszFile, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwDisposition,
            DWORD dwFlags, HANDLE hTemplate)
        {
            steps.push_back(std::wstring(L"open ") + pwszFile);
            hOpened = CreateFileW(pwszFile, dwAccess, dwShare, pSecurity, dwDisposition, dwFlags, hTemplate);
            return hOpened;
        });
    config.redirector.Replace<decltype(::FlushFileBuffers)>("FlushFileBuffers",
                                                            [&](HANDLE hFile)
                                                            {
                                                                steps.push_back(hFile == hOpened ? L"flush it"
                                                                                                 : L"flush another");
                                                                config.contents.push_back(config.FileBytes());
                                                                return FlushFileBuffers(hFile);
                                                            });
    DWORD dwMoveFlags = 0;
    config.redirector.Replace<decltype(::MoveFileExW)>("MoveFileExW",
                                                       [&](LPCWSTR pwszFrom, LPCWSTR pwszTo, DWORD dwFlags)
                                                       {
                                                           steps.push_back(std::wstring(L"move ") + pwszFrom + L" to " +
                                                                           pwszTo);
                                                           config.contents.push_back(config.FileBytes());
                                                           dwMoveFlags = dwFlags;
                                                           return MoveFileExW(pwszFrom, pwszTo, dwFlags);
                                                       });
    CHECK(config.Write() == 0);
    const std::wstring temporary = config.TemporaryFile();
    CHECK(config.savedTo == std::vector<std::wstring>{temporary});
    CHECK(steps ==
          std::vector<std::wstring>{L"open " + temporary, L"flush it", L"move " + temporary + L" to " + config.File()});
    CHECK(dwMoveFlags == (MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH));
    CHECK(config.contents == std::vector<std::string>(3, OLD_TEXT));
    CHECK(config.clock.ElapsedMs() == 0);
    config.CheckIsNew();
}

TEST_CASE("a replacing that meets an opener is tried again")
{
    SavedConfig config;
    for (const DWORD dwError : {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION})
    {
        CAPTURE(dwError);
        config.tree.WriteConfigText(OLD_TEXT);
        config.savedTo.clear();
        const ULONGLONG ullBefore = config.clock.ElapsedMs();
        config.RefuseReplacing(dwError, FailMode::Once);
        CHECK(config.Write() == 0);
        CHECK(config.redirector.Failures("MoveFileExW") == 1);
        CHECK(config.savedTo == std::vector<std::wstring>{config.TemporaryFile()}); // not in place
        CHECK(config.clock.ElapsedMs() > ullBefore);
        CHECK(config.clock.ElapsedMs() - ullBefore < 200);
        config.CheckIsNew();
    }
    CHECK(config.TakeLog().empty());
}

TEST_CASE("a file that is kept open for longer than a second is saved in place")
{
    SavedConfig config;
    for (const DWORD dwError : {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION})
    {
        CAPTURE(dwError);
        config.tree.WriteConfigText(OLD_TEXT);
        config.savedTo.clear();
        const ULONGLONG ullBefore = config.clock.ElapsedMs();
        config.RefuseReplacing(dwError);
        CHECK(config.Write() == 0);
        CHECK(config.clock.ElapsedMs() - ullBefore > 900);
        CHECK(config.clock.ElapsedMs() - ullBefore <= 1000);
        CHECK(config.savedTo == std::vector<std::wstring>{config.TemporaryFile(), config.File()});
        config.CheckIsNew();
    }
    CHECK(config.TakeLog().empty());
}

TEST_CASE("a file that can neither be replaced nor written in place keeps its old content")
{
    SavedConfig config;
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    config.dom.FailCall(DomMethod::Save, 2, FailMode::Once, E_ACCESSDENIED);
    CHECK(config.Write() == E_ACCESSDENIED);
    CHECK(config.TakeLog() == config.SaveFailed("0x80070005"));
    config.CheckIsOld();
}

TEST_CASE("a replacing that fails for another reason is neither tried again nor followed by a save in place")
{
    SavedConfig config;
    config.RefuseReplacing(ERROR_DISK_FULL);
    CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    CHECK(config.TakeLog() == config.SaveFailed("0x80070070"));
    CHECK(config.redirector.Calls("MoveFileExW") == 1);
    CHECK(config.savedTo == std::vector<std::wstring>{config.TemporaryFile()});
    CHECK(config.clock.ElapsedMs() == 0);
    config.CheckIsOld();
}

TEST_CASE("new content that cannot be flushed does not take the file's place")
{
    SavedConfig config;
    config.redirector.FailCall("FlushFileBuffers", 1, FailMode::Once, ERROR_DISK_FULL);
    CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    CHECK(config.TakeLog() == config.SaveFailed("0x80070070"));
    CHECK(config.redirector.Calls("MoveFileExW") == 0);
    config.CheckIsOld();
}

TEST_CASE("new content that cannot be opened for flushing does not take the file's place")
{
    SavedConfig config;
    CallFailure failure;
    failure.dwLastError = ERROR_FILE_NOT_FOUND;
    failure.ullResult = reinterpret_cast<ULONGLONG>(INVALID_HANDLE_VALUE);
    config.redirector.FailCall("CreateFileW", 1, FailMode::Once, failure);
    CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    CHECK(config.TakeLog() == config.SaveFailed("0x80070002"));
    CHECK(config.redirector.Calls("MoveFileExW") == 0);
    config.CheckIsOld();
}

TEST_CASE("new content that cannot be written leaves the file and no temporary one")
{
    SavedConfig config;
    config.dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT)>(
        DomMethod::Save,
        [&](IXMLDOMDocument*, VARIANT)
        {
            WriteFileBytes(config.TemporaryFile(), "<KPMConf"); // the disk is full in the middle of it
            return STG_E_MEDIUMFULL;
        });
    CHECK(config.Write() == STG_E_MEDIUMFULL);
    CHECK(config.TakeLog() == config.SaveFailed("0x80030070"));
    CHECK(config.redirector.Calls("MoveFileExW") == 0);
    config.CheckIsOld();
}

TEST_CASE("a temporary file that an earlier end of the process left is used again")
{
    SavedConfig config;
    WriteFileBytes(config.TemporaryFile(), std::string(5000, '#'));
    CHECK(config.Write() == 0);
    config.CheckIsNew();
    CHECK(config.FileBytes().find('#') == std::string::npos);
}

TEST_CASE("a directory in the temporary file's place is a failed save")
{
    SavedConfig config;
    REQUIRE(CreateDirectoryW(config.TemporaryFile().c_str(), nullptr));
    const int nResult = config.Write();
    CHECK(nResult < 0);
    CHECK(config.TakeLog() == config.SaveFailed(StatusText(nResult)));
    CHECK(config.FileBytes() == OLD_TEXT);
}

TEST_CASE("a file that another opener only lets be read keeps its old content")
{
    SavedConfig config;
    const UniqueFile opener = OpenShared(config.File(), FILE_SHARE_READ);
    const int nResult = config.Write();
    CHECK(nResult < 0);
    CHECK(config.TakeLog() == config.SaveFailed(StatusText(nResult)));
    CHECK(config.clock.ElapsedMs() <= 1000);
    config.CheckIsOld();
    wchar_t wszValue[16] = L"";
    CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
    CHECK(std::wstring(wszValue) == L"old");
}

TEST_CASE("an opener that goes away within the second does not keep the file from being replaced")
{
    SavedConfig config;
    UniqueFile opener = OpenShared(config.File(), FILE_SHARE_READ);
    int nMoves = 0;
    config.redirector.Replace<decltype(::MoveFileExW)>("MoveFileExW",
                                                       [&](LPCWSTR pwszFrom, LPCWSTR pwszTo, DWORD dwFlags)
                                                       {
                                                           if (++nMoves == 4)
                                                           {
                                                               opener.Reset();
                                                           }
                                                           return MoveFileExW(pwszFrom, pwszTo, dwFlags);
                                                       });
    CHECK(config.Write() == 0);
    CHECK(nMoves == 4);
    CHECK(config.savedTo == std::vector<std::wstring>{config.TemporaryFile()});
    config.CheckIsNew();
}

TEST_CASE("a failed save leaves no handle open")
{
    SavedConfig config;
    CHECK(config.Write() == 0);
    const std::size_t nHandles = CountHandles();
    config.redirector.FailCall("FlushFileBuffers", 1, FailMode::Once, ERROR_DISK_FULL);
    CHECK(config.Write() < 0);
    config.RefuseReplacing(ERROR_DISK_FULL);
    CHECK(config.Write() < 0);
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    CHECK(config.Write() == 0);
    CHECK(CountHandles() == nHandles);
}

} // namespace varnex::test
