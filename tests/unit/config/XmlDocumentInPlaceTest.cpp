// Saving when another program keeps one of the two files from being written, flushed or replaced.

#include "SavedConfig.h"

#include <catch2/catch.hpp>

#include <functional>

namespace varnex::test
{

namespace
{

using Files = std::vector<std::wstring>;

constexpr DWORD SHARING_ERRORS[] = {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION};

// The document cannot write the temporary file.
void RefuseTemporary(SavedConfig& config, FailMode mode, HRESULT nResult)
{
    config.AnswerSaves(
        [&config, mode, nResult](IXMLDOMDocument* pDocument, VARIANT to)
        {
            const bool bRefuses =
                to.bstrVal == config.TemporaryFile() && (mode == FailMode::FromThereOn || config.savedTo.size() == 1);
            return bRefuses ? nResult : pDocument->save(to);
        });
}

// The writing in place ends with that status, after it has cut the file to a few bytes.
void TearInPlace(SavedConfig& config, HRESULT nResult)
{
    config.AnswerSaves(
        [&config, nResult](IXMLDOMDocument* pDocument, VARIANT to)
        {
            if (to.bstrVal != config.File())
            {
                return pDocument->save(to);
            }
            WriteFileBytes(config.File(), "<KPMConf");
            return nResult;
        });
}

// A configuration with a path of that many characters, which it returns.
std::wstring MoveConfigTo(SavedConfig& config, std::size_t cchPath)
{
    const std::wstring bin = config.tree.BinPath() + L"\\";
    const std::wstring name = L"\\KpmCfg.xml";
    const std::wstring directory = bin + std::wstring(cchPath - bin.size() - name.size(), L'd');
    REQUIRE(CreateDirectoryW(directory.c_str(), nullptr));
    WriteFileBytes(directory + name, SavedConfig::OLD_TEXT);
    config.modulePath.Set(directory + L"\\Varnex.dll");
    return directory + name;
}

// The steps of a save that another program can be in the way of.
struct Step
{
    const char* pszWhat;
    std::function<void(SavedConfig&, FailMode, DWORD)> refuse;
};

const Step STEPS[] = {
    {"write", [](SavedConfig& config, FailMode mode, DWORD dwError)
     { RefuseTemporary(config, mode, HRESULT_FROM_WIN32(dwError)); }},
    {"open to flush",
     [](SavedConfig& config, FailMode mode, DWORD dwError) { config.RefuseOpening(1, mode, dwError); }},
    {"flush", [](SavedConfig& config, FailMode mode, DWORD dwError)
     { config.redirector.FailCall("FlushFileBuffers", 1, mode, dwError); }},
    {"replace", [](SavedConfig& config, FailMode mode, DWORD dwError) { config.RefuseReplacing(dwError, mode); }},
};

} // namespace

TEST_CASE("a sharing error that goes away, at whichever step of a save, is tried again and not made in place")
{
    SavedConfig config;
    for (const Step& step : STEPS)
    {
        for (const DWORD dwError : SHARING_ERRORS)
        {
            CAPTURE(step.pszWhat, dwError);
            config.BeginAnew();
            const ULONGLONG ullBefore = config.clock.ElapsedMs();
            step.refuse(config, FailMode::Once, dwError);
            CHECK(config.Write() == 0);
            CHECK(config.clock.ElapsedMs() > ullBefore);
            CHECK(config.clock.ElapsedMs() - ullBefore < 200);
            CHECK(config.savedTo.back() == config.TemporaryFile());
            config.CheckIsNew();
        }
    }
    CHECK(config.TakeLog().empty());
}

TEST_CASE("a sharing error that lasts for a second, at whichever step of a save, makes it in place")
{
    SavedConfig config;
    for (const Step& step : STEPS)
    {
        for (const DWORD dwError : SHARING_ERRORS)
        {
            CAPTURE(step.pszWhat, dwError);
            config.BeginAnew();
            const ULONGLONG ullBefore = config.clock.ElapsedMs();
            step.refuse(config, FailMode::FromThereOn, dwError);
            CHECK(config.Write() == 0);
            CHECK(config.clock.ElapsedMs() - ullBefore > 900);
            CHECK(config.clock.ElapsedMs() - ullBefore <= 1000);
            CHECK(config.savedTo.back() == config.File());
            CHECK(config.contents.back() == SavedConfig::OLD_TEXT);
            CHECK(config.tree.ConfigNode(SavedConfig::PATH) == L"new");
        }
    }
    CHECK(config.TakeLog().empty());
}

TEST_CASE("all steps of a save share one second")
{
    SavedConfig config;
    int nFlushes = 0;
    config.redirector.Replace<decltype(::FlushFileBuffers)>("FlushFileBuffers",
                                                            [&](HANDLE hFile)
                                                            {
                                                                if (++nFlushes <= 12)
                                                                {
                                                                    SetLastError(ERROR_LOCK_VIOLATION);
                                                                    return FALSE;
                                                                }
                                                                return FlushFileBuffers(hFile);
                                                            });
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    CHECK(config.Write() == 0);
    CHECK(nFlushes == 14); // the last one in place
    CHECK(config.clock.ElapsedMs() > 900);
    CHECK(config.clock.ElapsedMs() <= 1000);
    CHECK(config.savedTo == Files{config.TemporaryFile(), config.File()});
    config.CheckIsNew();
}

TEST_CASE("a temporary file in another program's hands is waited for, whatever the document calls that")
{
    SavedConfig config;
    UniqueFile opener = OpenShared(config.TemporaryFile(), 0);
    REQUIRE(opener);
    config.AnswerSaves(
        [&](IXMLDOMDocument* pDocument, VARIANT to)
        {
            if (config.savedTo.size() == 4)
            {
                opener.Reset();
            }
            return pDocument->save(to);
        });
    CHECK(config.Write() == 0);
    CHECK(config.savedTo == Files(4, config.TemporaryFile()));
    CHECK(config.clock.ElapsedMs() == 150);
    config.CheckIsNew();
}

TEST_CASE("a temporary file that stays in another program's hands has the file written in place")
{
    SavedConfig config;
    UniqueFile opener = OpenShared(config.TemporaryFile(), FILE_SHARE_READ);
    REQUIRE(opener);
    CHECK(config.Write() == 0);
    CHECK(config.savedTo.back() == config.File());
    CHECK(config.clock.ElapsedMs() > 900);
    CHECK(config.clock.ElapsedMs() <= 1000);
    CHECK(config.tree.ConfigNode(SavedConfig::PATH) == L"new");
    // The next save has the temporary file again.
    opener.Reset();
    CHECK(SetXMLNodeValue(nullptr, SavedConfig::PATH, L"next") == 0);
    CHECK(config.savedTo.back() == config.TemporaryFile());
    CHECK(config.Value() == L"next");
    CHECK_FALSE(config.HasTemporaryFile());
}

TEST_CASE("a directory in the temporary file's place has the file written in place")
{
    SavedConfig config;
    REQUIRE(CreateDirectoryW(config.TemporaryFile().c_str(), nullptr));
    CHECK(config.Write() == 0);
    CHECK(config.savedTo.back() == config.File());
    CHECK(config.tree.ConfigNode(SavedConfig::PATH) == L"new");
}

TEST_CASE("a file written in place is flushed before the temporary one goes")
{
    SavedConfig config;
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    std::vector<std::wstring> flushed;
    std::wstring opened;
    config.redirector.Replace<decltype(::CreateFileW)>(
        "CreateFileW",
        [&](LPCWSTR pwszFile, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwDisposition,
            DWORD dwFlags, HANDLE hTemplate)
        {
            opened = pwszFile;
            return CreateFileW(pwszFile, dwAccess, dwShare, pSecurity, dwDisposition, dwFlags, hTemplate);
        });
    config.redirector.Replace<decltype(::FlushFileBuffers)>(
        "FlushFileBuffers",
        [&](HANDLE hFile)
        {
            flushed.push_back(opened + (config.HasTemporaryFile() ? L" beside a temporary one" : L""));
            return FlushFileBuffers(hFile);
        });
    CHECK(config.Write() == 0);
    CHECK(flushed ==
          Files{config.TemporaryFile() + L" beside a temporary one", config.File() + L" beside a temporary one"});
    config.CheckIsNew();
}

TEST_CASE("a file written in place that cannot be flushed fails the save and leaves the whole temporary one")
{
    SavedConfig config;
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    config.redirector.FailCall("FlushFileBuffers", 2, FailMode::Once, ERROR_DISK_FULL);
    CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    CHECK(config.TakeLog() == config.SaveFailed("0x80070070"));
    config.CheckTemporaryIsWholeNew();
}

TEST_CASE("a reader that keeps a file written in place from being flushed does not fail the save")
{
    SavedConfig config;
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    UniqueFile reader;
    config.AnswerSaves(
        [&](IXMLDOMDocument* pDocument, VARIANT to)
        {
            const HRESULT nResult = pDocument->save(to);
            if (to.bstrVal == config.File())
            {
                reader = OpenShared(config.File(), FILE_SHARE_READ);
            }
            return nResult;
        });
    CHECK(config.Write() == 0);
    REQUIRE(reader);
    CHECK(config.TakeLog().empty());
    CHECK(config.tree.ConfigNode(SavedConfig::PATH) == L"new");
    reader.Reset();
    config.CheckTemporaryIsWholeNew(); // nobody knows yet whether the file itself is safe
}

TEST_CASE("a file that can neither be replaced nor written in place keeps its old content, with the new one beside it")
{
    SavedConfig config;
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    config.dom.FailCall(DomMethod::Save, 2, FailMode::Once, E_ACCESSDENIED);
    CHECK(config.Write() == E_ACCESSDENIED);
    CHECK(config.TakeLog() == config.SaveFailed("0x80070005"));
    CHECK(config.FileBytes() == SavedConfig::OLD_TEXT);
    config.CheckTemporaryIsWholeNew();
}

TEST_CASE("a file that the writing in place has torn can be had from the temporary one")
{
    SavedConfig config;
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    TearInPlace(config, STG_E_MEDIUMFULL);
    CHECK(config.Write() == STG_E_MEDIUMFULL);
    CHECK(config.TakeLog() == config.SaveFailed("0x80030070"));
    CHECK(config.FileBytes() == "<KPMConf");
    // Later saves cannot load the file: they leave the temporary one as it is.
    CHECK(SetXMLNodeValue(nullptr, SavedConfig::PATH, L"later") == -1);
    config.CheckTemporaryIsWholeNew();
}

TEST_CASE("a save that could write neither file leaves no half temporary one")
{
    SavedConfig config;
    config.AnswerSaves(
        [&](IXMLDOMDocument*, VARIANT to) -> HRESULT
        {
            if (to.bstrVal == config.TemporaryFile())
            {
                WriteFileBytes(config.TemporaryFile(), "<KPMConf");
            }
            return E_ACCESSDENIED;
        });
    CHECK(config.Write() == E_ACCESSDENIED);
    CHECK(config.savedTo.back() == config.File());
    config.CheckIsOld();
}

TEST_CASE("a file that another opener only lets be read keeps its old content, and the next save replaces it")
{
    SavedConfig config;
    UniqueFile opener = OpenShared(config.File(), FILE_SHARE_READ);
    REQUIRE(opener);
    const int nResult = config.Write();
    CHECK(nResult < 0);
    CHECK(config.TakeLog() == config.SaveFailed(StatusText(nResult)));
    CHECK(config.clock.ElapsedMs() <= 1000);
    CHECK(config.FileBytes() == SavedConfig::OLD_TEXT);
    CHECK(config.Value() == L"old");
    CHECK(config.HasTemporaryFile());
    opener.Reset();
    CHECK(config.Write() == 0);
    config.CheckIsNew();
}

TEST_CASE("a file whose opener goes away when the second is over is written in place")
{
    SavedConfig config;
    UniqueFile opener = OpenShared(config.File(), FILE_SHARE_READ);
    REQUIRE(opener);
    config.AnswerSaves(
        [&](IXMLDOMDocument* pDocument, VARIANT to)
        {
            if (to.bstrVal == config.File())
            {
                opener.Reset();
            }
            return pDocument->save(to);
        });
    CHECK(config.Write() == 0);
    CHECK(config.savedTo == Files{config.TemporaryFile(), config.File()});
    CHECK(config.clock.ElapsedMs() > 900);
    config.CheckIsNew();
}

TEST_CASE("a configuration whose path leaves no room for the temporary one's is written in place")
{
    SavedConfig config;
    const std::wstring file = MoveConfigTo(config, 256);
    CHECK(config.Write() == 0);
    CHECK(config.savedTo == Files{file});
    CHECK(config.redirector.Calls("MoveFileExW") == 0);
    CHECK(config.Value() == L"new");
}

TEST_CASE("a configuration whose path leaves just enough room for the temporary one's is replaced")
{
    SavedConfig config;
    const std::wstring file = MoveConfigTo(config, 255);
    CHECK(config.Write() == 0);
    CHECK(config.savedTo == Files{file + L".tmp"});
    CHECK(config.Value() == L"new");
}

} // namespace varnex::test
