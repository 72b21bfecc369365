#include "FloorConfig.h"

#include <catch2/catch.hpp>

#include <objbase.h>

#include <cstdlib>

namespace varnex::bench
{

namespace
{

constexpr CLSID CLASS_DOM_DOCUMENT = {0x2933BF90, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr IID INTERFACE_DOM_DOCUMENT = {0x2933BF81, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr wchar_t MUTEX_NAME[] = L"Global\\{49BCAD94-02E7-4d1d-9CDA-FLOORFLOOR00}";

} // namespace

FloorConfig::FloorConfig(const std::wstring& file)
    : m_file(file), m_temporaryFile(file + L".tmp"), m_bstrFile(SysAllocString(m_file.c_str())),
      m_bstrTemporaryFile(SysAllocString(m_temporaryFile.c_str())), m_bstrRootPath(SysAllocString(L"KPMConfiguration")),
      m_bstrCountsPath(SysAllocString(L"KPMConfiguration/PkiAlertNum")),
      m_bstrValuePath(SysAllocString(L"KPMConfiguration/PkiAlert/CPUInterval")),
      m_bstrLevelPath(SysAllocString(L"KPMConfiguration/VarnexLog/Level")),
      m_bstrDatePath(SysAllocString(L"KPMConfiguration/PkiAlertNum/Date")),
      m_bstrCountPath(SysAllocString(L"KPMConfiguration/PkiAlertNum/CPU")), m_bstrZero(SysAllocString(L"0"))
{
    // A floor that did less because something is missing would be none.
    BSTR bstrDate = ReadText(m_bstrDatePath);
    REQUIRE(SysStringLen(bstrDate) != 0);
    SysFreeString(bstrDate);
    REQUIRE(ReadPolicyValue() > 0);
}

FloorConfig::~FloorConfig()
{
    for (const BSTR bstr : {m_bstrFile, m_bstrTemporaryFile, m_bstrRootPath, m_bstrCountsPath, m_bstrValuePath,
                            m_bstrLevelPath, m_bstrDatePath, m_bstrCountPath, m_bstrZero})
    {
        SysFreeString(bstr);
    }
}

IXMLDOMDocument* FloorConfig::Load() const noexcept
{
    if (GetFileAttributesW(m_file.c_str()) == INVALID_FILE_ATTRIBUTES)
    {
        return nullptr;
    }
    IUnknown* pUnknown = nullptr;
    CoCreateInstance(CLASS_DOM_DOCUMENT, nullptr, CLSCTX_ALL, IID_IUnknown, reinterpret_cast<void**>(&pUnknown));
    OleRun(pUnknown);
    IXMLDOMDocument* pDocument = nullptr;
    pUnknown->QueryInterface(INTERFACE_DOM_DOCUMENT, reinterpret_cast<void**>(&pDocument));
    pUnknown->Release();
    VARIANT source;
    source.vt = VT_BSTR;
    source.bstrVal = m_bstrFile;
    VARIANT_BOOL bLoaded = VARIANT_FALSE;
    pDocument->load(source, &bLoaded);
    return pDocument;
}

BSTR FloorConfig::ReadText(BSTR bstrPath) const noexcept
{
    IXMLDOMDocument* const pDocument = Load();
    IXMLDOMNode* pNode = nullptr;
    BSTR bstrText = nullptr;
    if (pDocument->selectSingleNode(bstrPath, &pNode) == S_OK)
    {
        pNode->get_text(&bstrText);
        pNode->Release();
    }
    pDocument->Release();
    return bstrText;
}

int FloorConfig::ReadNumber(BSTR bstrPath) const noexcept
{
    const BSTR bstrText = ReadText(bstrPath);
    const int nNumber = bstrText == nullptr ? -1 : _wtoi(bstrText);
    SysFreeString(bstrText);
    return nNumber;
}

int FloorConfig::ReadCount() const noexcept
{
    if (GetFileAttributesW(m_file.c_str()) == INVALID_FILE_ATTRIBUTES)
    {
        return -1;
    }
    SysFreeString(ReadText(m_bstrDatePath));
    return ReadNumber(m_bstrCountPath);
}

void FloorConfig::Save(IXMLDOMDocument& document, bool bSafe) const noexcept
{
    VARIANT target;
    target.vt = VT_BSTR;
    target.bstrVal = bSafe ? m_bstrTemporaryFile : m_bstrFile;
    document.save(target);
    if (bSafe)
    {
        const HANDLE hFile = CreateFileW(m_temporaryFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                         nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        FlushFileBuffers(hFile);
        CloseHandle(hFile);
        MoveFileExW(m_temporaryFile.c_str(), m_file.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
    }
}

void FloorConfig::Write(BSTR bstrPath, bool bSafe) const noexcept
{
    IXMLDOMDocument* const pDocument = Load();
    IXMLDOMNode* pNode = nullptr;
    for (const BSTR bstrStep : {m_bstrRootPath, m_bstrCountsPath, bstrPath})
    {
        if (pNode != nullptr)
        {
            pNode->Release();
            pNode = nullptr;
        }
        pDocument->selectSingleNode(bstrStep, &pNode);
    }
    pNode->put_text(m_bstrZero);
    pNode->Release();
    Save(*pDocument, bSafe);
    pDocument->Release();
}

void FloorConfig::SaveCount(bool bNewDay, bool bSafe) const noexcept
{
    if (GetFileAttributesW(m_file.c_str()) == INVALID_FILE_ATTRIBUTES)
    {
        return;
    }
    HANDLE hMutex = OpenMutexW(MUTEX_ALL_ACCESS, FALSE, MUTEX_NAME);
    if (hMutex == nullptr)
    {
        hMutex = CreateMutexW(nullptr, FALSE, MUTEX_NAME);
    }
    WaitForSingleObject(hMutex, 90'000);
    SysFreeString(ReadText(m_bstrDatePath));
    for (int i = 0; i < (bNewDay ? 6 : 0); ++i)
    {
        Write(m_bstrCountPath, bSafe);
    }
    Write(m_bstrCountPath, bSafe);
    ReleaseMutex(hMutex);
    CloseHandle(hMutex);
}

} // namespace varnex::bench
