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

// The temporary file cannot be opened to be written.
void RefuseTemporary(SavedConfig& config, FailMode mode, DWORD dwError)
{
    config.AnswerOpenings(
        [&config, mode, dwError]() -> DWORD
        {
            const bool bRefuses =
                config.WritesTemporary() && (mode == FailMode::FromThereOn || config.savedTo.size() == 1);
            return bRefuses ? dwError : ERROR_SUCCESS;
        });
}

// What is done with the temporary file fails, once or always.
template <class Signature, class Real>
void RefuseForTemporary(SavedConfig& config, const char* pszImport, FailMode mode, DWORD dwError, Real real)
{
    config.redirector.Replace<Signature>(pszImport,
                                         [&config, mode, dwError, real, nRefused = 0](auto... arguments) mutable -> BOOL
                                         {
                                             if (config.WritesTemporary() &&
                                                 (mode == FailMode::FromThereOn || nRefused++ == 0))
                                             {
                                                 SetLastError(dwError);
                                                 return FALSE;
                                             }
                                             return real(arguments...);
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
    {"open", &RefuseTemporary},
    {"write", [](SavedConfig& config, FailMode mode, DWORD dwError)
     { RefuseForTemporary<decltype(::WriteFile)>(config, "WriteFile", mode, dwError, &::WriteFile); }},
    {"flush",
     [](SavedConfig& config, FailMode mode, DWORD dwError) {
         RefuseForTemporary<decltype(::FlushFileBuffers)>(config, "FlushFileBuffers", mode, dwError,
                                                          &::FlushFileBuffers);
     }},
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
    config.AnswerFlushes(
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
    Files files(13, config.TemporaryFile()); // written anew with each flush
    files.push_back(config.File());
    CHECK(config.savedTo == files);
    config.CheckIsNew();
}

TEST_CASE("a temporary file in another program's hands is waited for")
{
    SavedConfig config;
    UniqueFile opener = OpenShared(config.TemporaryFile(), 0);
    REQUIRE(opener);
    config.AnswerOpenings(
        [&]() -> DWORD
        {
            if (config.savedTo.size() == 4)
            {
                opener.Reset();
            }
            return ERROR_SUCCESS;
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
    Files flushed;
    config.AnswerFlushes(
        [&](HANDLE hFile)
        {
            flushed.push_back(config.savedTo.back() + (config.HasTemporaryFile() ? L" beside a temporary one" : L""));
            return FlushFileBuffers(hFile);
        });
    CHECK(config.Write() == 0);
    CHECK(flushed ==
          Files{config.TemporaryFile() + L" beside a temporary one", config.File() + L" beside a temporary one"});
    config.CheckIsNew();
}

TEST_CASE("a shorter file written in place ends where its text ends")
{
    SavedConfig config;
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    config.tree.WriteConfigText("<KPMConfiguration><One>" + std::string(5000, '#') + "</One></KPMConfiguration>");
    CHECK(config.Write() == 0);
    config.CheckIsNew();
    CHECK(config.FileBytes().size() < 100);
}

TEST_CASE("a file that another program keeps open and lets be written is written in place beneath it")
{
    SavedConfig config;
    const UniqueFile opener = OpenShared(config.File(), FILE_SHARE_READ | FILE_SHARE_WRITE);
    REQUIRE(opener);
    config.RefuseReplacing(ERROR_ACCESS_DENIED);
    CHECK(config.Write() == 0);
    CHECK(config.savedTo == Files{config.TemporaryFile(), config.File()});
    CHECK(config.TakeLog().empty());
    config.CheckIsNew();
}

TEST_CASE("while a file is written in place others can read it but not write it")
{
    SavedConfig config;
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    constexpr DWORD dwShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    std::vector<bool> opened;
    config.AnswerFlushes(
        [&](HANDLE hFile)
        {
            if (!config.WritesTemporary())
            {
                opened.push_back(static_cast<bool>(OpenShared(config.File(), dwShareAll, GENERIC_READ)));
                opened.push_back(static_cast<bool>(OpenShared(config.File(), dwShareAll, GENERIC_WRITE)));
            }
            return FlushFileBuffers(hFile);
        });
    CHECK(config.Write() == 0);
    CHECK(opened == std::vector<bool>{true, false});
}

TEST_CASE("a file that can neither be replaced nor written in place keeps its old content, with the new one beside it")
{
    SavedConfig config;
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    config.AnswerOpenings([&]() -> DWORD { return config.WritesTemporary() ? ERROR_SUCCESS : ERROR_ACCESS_DENIED; });
    CHECK(config.Write() == E_ACCESSDENIED);
    CHECK(config.TakeLog() == config.SaveFailed("0x80070005"));
    CHECK(config.FileBytes() == SavedConfig::OLD_TEXT);
    config.CheckTemporaryIsWholeNew();
}

TEST_CASE("a write in place that fails has the old content put back, whichever step fails")
{
    SavedConfig config;
    const std::string longText = "<KPMConfiguration><One>" + std::string(5000, '#') + "</One></KPMConfiguration>";
    struct Failure
    {
        const char* pszWhat;
        const char* pszImport;
        std::string old;
        DWORD dwError;
        ULONGLONG ullCall; // in place
    };
    const Failure failures[] = {
        {"the size", "GetFileSizeEx", SavedConfig::OLD_TEXT, ERROR_GEN_FAILURE, 1},
        {"the old content", "ReadFile", SavedConfig::OLD_TEXT, ERROR_CRC, 1},
        {"the place of the new end", "SetFilePointerEx", SavedConfig::OLD_TEXT, ERROR_GEN_FAILURE, 1},
        {"the new end", "WriteFile", SavedConfig::OLD_TEXT, ERROR_DISK_FULL, 1},
        {"the place of the old content", "SetFilePointerEx", SavedConfig::OLD_TEXT, ERROR_GEN_FAILURE, 2},
        {"over the old content", "WriteFile", SavedConfig::OLD_TEXT, ERROR_DISK_FULL, 2},
        {"the flush", "FlushFileBuffers", SavedConfig::OLD_TEXT, ERROR_DISK_FULL, 1},
        {"over a longer content", "WriteFile", longText, ERROR_DISK_FULL, 1},
        {"the place to cut", "SetFilePointerEx", longText, ERROR_GEN_FAILURE, 2},
        {"the cut", "SetEndOfFile", longText, ERROR_USER_MAPPED_FILE, 1},
        {"the flush of a shorter file", "FlushFileBuffers", longText, ERROR_DISK_FULL, 1},
    };
    for (const Failure& failure : failures)
    {
        CAPTURE(failure.pszWhat);
        config.BeginAnew();
        config.tree.WriteConfigText(failure.old);
        config.RefuseReplacing(ERROR_SHARING_VIOLATION);
        config.TakeLog();
        config.AnswerOpenings(
            [&]() -> DWORD
            {
                if (!config.WritesTemporary())
                {
                    config.redirector.FailCall(failure.pszImport, failure.ullCall, FailMode::Once, failure.dwError);
                }
                return ERROR_SUCCESS;
            });
        CHECK(config.Write() == HRESULT_FROM_WIN32(failure.dwError));
        CHECK(config.redirector.Failures(failure.pszImport) == 1);
        CHECK((config.FileBytes() == failure.old));
        CHECK(config.TakeLog() == config.SaveFailed(StatusText(HRESULT_FROM_WIN32(failure.dwError))));
        config.CheckTemporaryIsWholeNew();
    }
}

TEST_CASE("a write in place that takes only a part has the old content put back")
{
    SavedConfig config;
    for (const int nPart : {1, 2})
    {
        CAPTURE(nPart);
        config.BeginAnew();
        config.RefuseReplacing(ERROR_SHARING_VIOLATION);
        config.TakeLog();
        int nWrites = 0;
        config.AnswerWrites(
            [&](HANDLE hFile, const void* pBytes, DWORD cbBytes)
            {
                const bool bPart = config.savedTo.back() == config.File() && ++nWrites == nPart;
                return SavedConfig::WriteBytes(hFile, pBytes, bPart ? cbBytes / 2 : cbBytes);
            });
        CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_DISK_FULL));
        CHECK(config.FileBytes() == SavedConfig::OLD_TEXT);
        CHECK(config.TakeLog() == config.SaveFailed("0x80070070"));
        config.CheckTemporaryIsWholeNew();
    }
}

TEST_CASE("a disk that takes no more from whichever write in place on leaves the old content")
{
    SavedConfig config;
    for (const int nGood : {0, 1})
    {
        CAPTURE(nGood);
        config.BeginAnew();
        config.RefuseReplacing(ERROR_SHARING_VIOLATION);
        int nWrites = 0;
        config.AnswerWrites(
            [&](HANDLE hFile, const void* pBytes, DWORD cbBytes) -> std::optional<DWORD>
            {
                if (config.savedTo.back() == config.File() && ++nWrites > nGood)
                {
                    SetLastError(ERROR_DISK_FULL);
                    return std::nullopt;
                }
                return SavedConfig::WriteBytes(hFile, pBytes, cbBytes);
            });
        CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_DISK_FULL));
        CHECK(nWrites > nGood + 1); // putting it back was refused, too
        CHECK(config.FileBytes() == SavedConfig::OLD_TEXT);
    }
}

TEST_CASE("a file that the writing in place has torn for good can be had from the temporary one")
{
    SavedConfig config;
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    int nWrites = 0;
    config.AnswerWrites(
        [&](HANDLE hFile, const void* pBytes, DWORD cbBytes) -> std::optional<DWORD>
        {
            if (config.savedTo.back() == config.File() && ++nWrites > 1)
            {
                SavedConfig::WriteBytes(hFile, "#", 1);
                SetLastError(ERROR_CRC);
                return std::nullopt;
            }
            return SavedConfig::WriteBytes(hFile, pBytes, cbBytes);
        });
    CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_CRC));
    CHECK(config.FileBytes().front() == '#');
    // Later saves cannot load the file: they leave the temporary one as it is.
    CHECK(SetXMLNodeValue(nullptr, SavedConfig::PATH, L"later") == -1);
    config.CheckTemporaryIsWholeNew();
}

TEST_CASE("a write in place for whose old content there is no memory touches nothing")
{
    SavedConfig config;
    config.RefuseReplacing(ERROR_SHARING_VIOLATION);
    config.AnswerOpenings(
        [&]() -> DWORD
        {
            if (!config.WritesTemporary())
            {
                config.redirector.FailCall("malloc", 1, FailMode::Once, 0);
            }
            return ERROR_SUCCESS;
        });
    CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY));
    CHECK(config.FileBytes() == SavedConfig::OLD_TEXT);
}

TEST_CASE("a save that could write neither file leaves no half temporary one")
{
    SavedConfig config;
    config.AnswerOpenings([&]() -> DWORD { return config.WritesTemporary() ? ERROR_SUCCESS : ERROR_ACCESS_DENIED; });
    config.AnswerWrites(
        [&](HANDLE hFile, const void* pBytes, DWORD) -> std::optional<DWORD>
        {
            SavedConfig::WriteBytes(hFile, pBytes, 8);
            SetLastError(ERROR_LOCK_VIOLATION);
            return std::nullopt;
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
    CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION));
    CHECK(config.TakeLog() == config.SaveFailed("0x80070020"));
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
    config.AnswerOpenings(
        [&]() -> DWORD
        {
            if (!config.WritesTemporary())
            {
                opener.Reset();
            }
            return ERROR_SUCCESS;
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

TEST_CASE("a configuration that can only be written in place has its second of patience, too")
{
    SavedConfig config;
    const std::wstring file = MoveConfigTo(config, 256);
    UniqueFile opener = OpenShared(file, FILE_SHARE_READ);
    REQUIRE(opener);
    CHECK(config.Write() == HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION));
    CHECK(config.clock.ElapsedMs() > 900);
    CHECK(config.clock.ElapsedMs() <= 1000);
    CHECK(config.Value() == L"old");
    config.savedTo.clear();
    config.AnswerOpenings(
        [&]() -> DWORD
        {
            if (config.savedTo.size() == 4)
            {
                opener.Reset();
            }
            return ERROR_SUCCESS;
        });
    CHECK(config.Write() == 0);
    CHECK(config.savedTo == Files(4, file));
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
