#pragma once

#include "ConfigFixture.h"

#include "common/Handles.h"
#include "config/XmlConfig.h"
#include "support/VirtualClock.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace varnex::test
{

// A configuration whose saving is watched call by call. Time is virtual.
struct SavedConfig : ConfigFixture
{
    static constexpr char OLD_TEXT[] = "<KPMConfiguration><One>old</One></KPMConfiguration>";
    static constexpr wchar_t PATH[] = L"KPMConfiguration/One";

    VirtualClock clock{redirector};
    std::vector<std::wstring> savedTo; // the files that were opened to be written
    std::vector<std::string> contents; // the file's bytes when each step of a save began

    SavedConfig()
    {
        BeginAnew();
        redirector.CountCalls("MoveFileExW");
    }
    // The old file, and every call going well.
    void BeginAnew()
    {
        DeleteFileW(TemporaryFile().c_str());
        tree.WriteConfigText(OLD_TEXT);
        savedTo.clear();
        contents.clear();
        for (const char* const pszImport : {"CreateFileW", "WriteFile", "FlushFileBuffers", "MoveFileExW"})
        {
            redirector.StopFailing(pszImport);
        }
        AnswerOpenings([] { return ERROR_SUCCESS; });
        AnswerWrites([](HANDLE hFile, const void* pBytes, DWORD cbBytes)
                     { return WriteBytes(hFile, pBytes, cbBytes); });
        AnswerFlushes([](HANDLE hFile) { return FlushFileBuffers(hFile); });
    }
    // What happens when a file is opened to be written: an error, or the opening.
    void AnswerOpenings(const std::function<DWORD()>& answer)
    {
        redirector.Replace<decltype(::CreateFileW)>(
            "CreateFileW",
            [this, answer](LPCWSTR pwszFile, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity,
                           DWORD dwDisposition, DWORD dwFlags, HANDLE hTemplate)
            {
                if ((dwAccess & GENERIC_WRITE) != 0)
                {
                    contents.push_back(FileBytes());
                    savedTo.emplace_back(pwszFile);
                    const DWORD dwError = answer();
                    if (dwError != ERROR_SUCCESS)
                    {
                        SetLastError(dwError);
                        return INVALID_HANDLE_VALUE;
                    }
                }
                return CreateFileW(pwszFile, dwAccess, dwShare, pSecurity, dwDisposition, dwFlags, hTemplate);
            });
    }
    // What a write does: how many bytes it takes, or nothing with an error. The log's own go their way.
    static std::optional<DWORD> WriteBytes(HANDLE hFile, const void* pBytes, DWORD cbBytes)
    {
        DWORD cbWritten = 0;
        return WriteFile(hFile, pBytes, cbBytes, &cbWritten, nullptr) ? std::optional<DWORD>(cbWritten) : std::nullopt;
    }
    void AnswerWrites(const std::function<std::optional<DWORD>(HANDLE, const void*, DWORD)>& answer)
    {
        redirector.Replace<decltype(::WriteFile)>(
            "WriteFile",
            [answer](HANDLE hFile, LPCVOID pBytes, DWORD cbBytes, LPDWORD pcbWritten, LPOVERLAPPED) -> BOOL
            {
                const std::optional<DWORD> written = answer(hFile, pBytes, cbBytes);
                *pcbWritten = written.value_or(0);
                return written ? TRUE : FALSE;
            });
    }
    void AnswerFlushes(const std::function<BOOL(HANDLE)>& answer)
    {
        redirector.Replace<BOOL(HANDLE)>("FlushFileBuffers", answer);
    }
    bool WritesTemporary() const { return !savedTo.empty() && savedTo.back() == TemporaryFile(); }
    std::wstring TemporaryFile() const { return File() + L".tmp"; }
    int Write() const { return SetXMLNodeValue(nullptr, PATH, L"new"); }
    // The replacing of the file fails from here on.
    void RefuseReplacing(DWORD dwError, FailMode mode = FailMode::FromThereOn)
    {
        redirector.FailCall("MoveFileExW", 1, mode, dwError);
    }
    // A CreateFileW of the module fails.
    void RefuseOpening(ULONGLONG ullCall, FailMode mode, DWORD dwError)
    {
        CallFailure failure;
        failure.dwLastError = dwError;
        failure.ullResult = reinterpret_cast<ULONGLONG>(INVALID_HANDLE_VALUE);
        redirector.FailCall("CreateFileW", ullCall, mode, failure);
    }
    Lines SaveFailed(const std::string& status) const
    {
        return {Line(1, "SetXMLNodeValue -- DocumentPtr save to file(%s) fail(%s)", {FileInLog(), status})};
    }
    // What any reader of the configuration gets now.
    std::wstring Value() const
    {
        wchar_t wszValue[16] = L"";
        CHECK(GetXMLNodeValue(nullptr, PATH, wszValue, 16) == 0);
        return wszValue;
    }
    bool HasTemporaryFile() const { return FileExists(TemporaryFile()); }
    void CheckIsOld() const
    {
        CHECK(FileBytes() == OLD_TEXT);
        CHECK_FALSE(HasTemporaryFile());
    }
    void CheckIsNew() const
    {
        CHECK(tree.ConfigNode(PATH) == L"new");
        CHECK_FALSE(HasTemporaryFile());
    }
    // The temporary file in the configuration's place, as an operator would put it there.
    void CheckTemporaryIsWholeNew()
    {
        REQUIRE(HasTemporaryFile());
        WriteFileBytes(File(), ReadFileBytes(TemporaryFile()));
        CHECK(tree.ConfigNode(PATH) == L"new");
    }
};

// Another program's opener of a file; none when it cannot be opened.
inline UniqueFile OpenShared(const std::wstring& path, DWORD dwShare, DWORD dwAccess = GENERIC_READ)
{
    const UnscriptedScope unscripted;
    return UniqueFile(
        CreateFileW(path.c_str(), dwAccess, dwShare, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

} // namespace varnex::test
