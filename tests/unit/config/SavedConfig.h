#pragma once

#include "ConfigFixture.h"
#include "ScriptedDom.h"

#include "common/Handles.h"
#include "config/XmlConfig.h"
#include "support/VirtualClock.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <oleauto.h>

#include <msxml2.h>

#include <functional>
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
    ScriptedDom dom;
    std::vector<std::wstring> savedTo; // the files that the document was told to save to
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
        for (const char* const pszImport : {"CreateFileW", "FlushFileBuffers", "MoveFileExW"})
        {
            redirector.StopFailing(pszImport);
        }
        AnswerSaves([](IXMLDOMDocument* pDocument, VARIANT to) { return pDocument->save(to); });
    }
    // What the document does when it is told to save.
    void AnswerSaves(const std::function<HRESULT(IXMLDOMDocument*, VARIANT)>& answer)
    {
        dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT)>(DomMethod::Save,
                                                        [this, answer](IXMLDOMDocument* pDocument, VARIANT to)
                                                        {
                                                            contents.push_back(FileBytes());
                                                            savedTo.push_back(to.vt == VT_BSTR ? to.bstrVal : L"?");
                                                            return answer(pDocument, to);
                                                        });
    }
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
