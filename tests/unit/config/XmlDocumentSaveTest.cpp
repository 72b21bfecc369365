#include "SavedConfig.h"
#include "ScriptedDom.h"

#include "support/ProcessMeter.h"

#include <catch2/catch.hpp>

#include <oleauto.h>

#include <msxml2.h>

#include <utility>

namespace varnex::test
{

TEST_CASE("a save writes beside the file, flushes that, and replaces the file by it in one step")
{
    SavedConfig config;
    std::vector<std::wstring> steps;
    HANDLE hWritten = nullptr;
    config.AnswerWrites(
        [&](HANDLE hFile, const void* pBytes, DWORD cbBytes)
        {
            steps.emplace_back(L"write");
            hWritten = hFile;
            return SavedConfig::WriteBytes(hFile, pBytes, cbBytes);
        });
    config.AnswerFlushes(
        [&](HANDLE hFile)
        {
            steps.emplace_back(hFile == hWritten ? L"flush it" : L"flush another");
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
    CHECK(steps == std::vector<std::wstring>{L"write", L"flush it", L"move " + temporary + L" to " + config.File()});
    CHECK(dwMoveFlags == (MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH));
    CHECK(config.contents == std::vector<std::string>(3, SavedConfig::OLD_TEXT));
    CHECK(config.clock.ElapsedMs() == 0);
    config.CheckIsNew();
}

TEST_CASE("a replacing that meets an opener is tried again")
{
    SavedConfig config;
    for (const DWORD dwError : {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION})
    {
        CAPTURE(dwError);
        config.tree.WriteConfigText(SavedConfig::OLD_TEXT);
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

TEST_CASE("new content that no file can be opened for is not saved")
{
    SavedConfig config;
    config.RefuseOpening(1, FailMode::Once, ERROR_FILE_NOT_FOUND);
    CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    CHECK(config.TakeLog() == config.SaveFailed("0x80070002"));
    CHECK(config.redirector.Calls("MoveFileExW") == 0);
    config.CheckIsOld();
}

TEST_CASE("new content that cannot be written, or only in part, leaves the file and no temporary one")
{
    SavedConfig config;
    for (const DWORD cbTaken : {DWORD(0), DWORD(8)})
    {
        CAPTURE(cbTaken);
        config.AnswerWrites(
            [&, bFull = true](HANDLE hFile, const void* pBytes, DWORD cbBytes) mutable -> std::optional<DWORD>
            {
                if (!std::exchange(bFull, false)) // the log's
                {
                    return SavedConfig::WriteBytes(hFile, pBytes, cbBytes);
                }
                if (cbTaken != 0)
                {
                    return SavedConfig::WriteBytes(hFile, pBytes, cbTaken); // the disk is full in the middle of it
                }
                SetLastError(ERROR_DISK_FULL);
                return std::nullopt;
            });
        CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_DISK_FULL));
        CHECK(config.TakeLog() == config.SaveFailed("0x80070070"));
        CHECK(config.redirector.Calls("MoveFileExW") == 0);
        config.CheckIsOld();
    }
}

TEST_CASE("new content whose file cannot be closed does not take the file's place")
{
    SavedConfig config;
    config.AnswerFlushes(
        [&](HANDLE hFile)
        {
            config.redirector.FailCall("CloseHandle", 1, FailMode::Once, ERROR_DISK_FULL);
            return FlushFileBuffers(hFile);
        });
    CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    CHECK(config.TakeLog() == config.SaveFailed("0x80070070"));
    CHECK(config.redirector.Calls("MoveFileExW") == 0);
    CHECK(config.FileBytes() == SavedConfig::OLD_TEXT);
}

TEST_CASE("a document that gives no text is not saved")
{
    SavedConfig config;
    ScriptedDom dom;
    for (const HRESULT nStatus : {S_OK, S_FALSE})
    {
        dom.Replace<HRESULT(IXMLDOMDocument*, BSTR*)>(DomMethod::GetXml,
                                                      [nStatus](IXMLDOMDocument*, BSTR* pbstrText)
                                                      {
                                                          *pbstrText = nullptr;
                                                          return nStatus;
                                                      });
        CHECK(config.Write() == E_FAIL);
        CHECK(config.TakeLog() == config.SaveFailed("0x80004005"));
        CHECK(config.savedTo.empty());
    }
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

TEST_CASE("an opener that goes away within the second does not keep the file from being replaced")
{
    SavedConfig config;
    UniqueFile opener = OpenShared(config.File(), FILE_SHARE_READ);
    REQUIRE(opener);
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

TEST_CASE("a failure that leaves no error behind is a failure all the same")
{
    SavedConfig config;
    constexpr HRESULT nGeneral = HRESULT_FROM_WIN32(ERROR_GEN_FAILURE);
    config.RefuseOpening(1, FailMode::Once, ERROR_SUCCESS);
    CHECK(config.Write() == nGeneral);
    CHECK(config.redirector.Failures("CreateFileW") == 1);
    config.redirector.FailCall("FlushFileBuffers", 1, FailMode::Once, ERROR_SUCCESS);
    CHECK(config.Write() == nGeneral);
    config.RefuseReplacing(ERROR_SUCCESS, FailMode::Once);
    CHECK(config.Write() == nGeneral);
    CHECK(config.redirector.Failures("MoveFileExW") == 1);
    CHECK(config.clock.ElapsedMs() == 0);
    config.CheckIsOld();
    CHECK(config.Write() == 0);
}

TEST_CASE("a replacing that takes its time is tried for a second all the same")
{
    SavedConfig config;
    const ULONGLONG ullBefore = config.clock.TickCount();
    int nMoves = 0;
    config.redirector.Replace<decltype(::MoveFileExW)>("MoveFileExW",
                                                       [&](LPCWSTR, LPCWSTR, DWORD)
                                                       {
                                                           ++nMoves;
                                                           config.clock.SetTickCount(config.clock.TickCount() + 300);
                                                           SetLastError(ERROR_SHARING_VIOLATION);
                                                           return FALSE;
                                                       });
    CHECK(config.Write() == 0); // in place
    CHECK(nMoves == 3);         // at 0, 350 and 700 ms
    CHECK(config.clock.TickCount() - ullBefore <= 1000);
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
