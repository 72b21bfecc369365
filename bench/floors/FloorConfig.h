#pragma once

#include <windows.h>

#include <msxml2.h>
#include <oleauto.h>

#include <string>

namespace varnex::bench
{

// The configuration's operations as bare calls of the system's XML document. Every text that a call takes as BSTR is
// made beforehand, once. The thread has initialised COM.
class FloorConfig
{
public:
    // The file must be there.
    explicit FloorConfig(const std::wstring& file);
    ~FloorConfig();
    FloorConfig(const FloorConfig&) = delete;
    FloorConfig& operator=(const FloorConfig&) = delete;

    // Is it there, make a document, load the file, select, read the text, take its number.
    int ReadPolicyValue() const noexcept { return ReadNumber(m_bstrValuePath); }
    int ReadLogLevel() const noexcept { return ReadNumber(m_bstrLevelPath); }
    // Once more is it there; then two such reads, of the date and of the count.
    int ReadCount() const noexcept;
    // The mutex, the date's read, and one load, change and save; on a new day six more of those before it.
    // bSafe: each save beside the file, flushed, and moved over it, in place of a plain one into it.
    void SaveCount(bool bNewDay, bool bSafe) const noexcept;

private:
    IXMLDOMDocument* Load() const noexcept;
    BSTR ReadText(BSTR bstrPath) const noexcept;
    int ReadNumber(BSTR bstrPath) const noexcept;
    void Write(BSTR bstrPath, bool bSafe) const noexcept;
    void Save(IXMLDOMDocument& document, bool bSafe) const noexcept;

    std::wstring m_file;
    std::wstring m_temporaryFile;
    BSTR m_bstrFile;
    BSTR m_bstrTemporaryFile;
    BSTR m_bstrRootPath;
    BSTR m_bstrCountsPath;
    BSTR m_bstrValuePath;
    BSTR m_bstrLevelPath;
    BSTR m_bstrDatePath;
    BSTR m_bstrCountPath;
    BSTR m_bstrZero;
};

} // namespace varnex::bench
