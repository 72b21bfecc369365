#include "config/XmlDocument.h"

#include "common/BoundedText.h"
#include "common/Handles.h"
#include "common/LastError.h"
#include "common/ModulePath.h"
#include "common/SharingPatience.h"

#include <cwchar>
#include <utility>

namespace varnex
{

namespace
{

constexpr CLSID CLASS_DOM_DOCUMENT = {0x2933BF90, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr IID INTERFACE_DOM_DOCUMENT = {0x2933BF81, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

constexpr wchar_t TEMPORARY_ENDING[] = L".tmp";

HRESULT LastStatus() noexcept
{
    return HRESULT_FROM_WIN32(LastErrorOr(ERROR_GEN_FAILURE));
}

HRESULT FlushFile(const wchar_t* pwszPath) noexcept
{
    const UniqueFile file(CreateFileW(pwszPath, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file || !FlushFileBuffers(file.Get()))
    {
        return LastStatus();
    }
    return S_OK;
}

HRESULT ReplaceFileBy(const wchar_t* pwszPath, const wchar_t* pwszNewPath) noexcept
{
    const bool bMoved = MoveFileExW(pwszNewPath, pwszPath, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
    return bMoved ? S_OK : LastStatus();
}

// False when there is no room for the name.
bool TemporaryPathOf(const wchar_t* pwszPath, wchar_t (&wszTemporaryPath)[PATH_CHARS]) noexcept
{
    FormatTextW(wszTemporaryPath, L"%s%s", pwszPath, TEMPORARY_ENDING);
    return std::wcslen(wszTemporaryPath) == std::wcslen(pwszPath) + std::wcslen(TEMPORARY_ENDING);
}

} // namespace

HRESULT XmlDocument::Create(DWORD dwContext) noexcept
{
    ComPtr<IUnknown> unknown;
    HRESULT nResult = CoCreateInstance(CLASS_DOM_DOCUMENT, nullptr, dwContext, IID_IUnknown,
                                       reinterpret_cast<void**>(unknown.ReleaseAndGetAddressOf()));
    if (SUCCEEDED(nResult))
    {
        nResult = OleRun(unknown.Get());
    }
    if (SUCCEEDED(nResult))
    {
        nResult = unknown->QueryInterface(INTERFACE_DOM_DOCUMENT,
                                          reinterpret_cast<void**>(m_document.ReleaseAndGetAddressOf()));
    }
    return nResult;
}

// S_OK, S_FALSE when the file does not load for whatever reason, or E_OUTOFMEMORY.
HRESULT XmlDocument::LoadOnce(const wchar_t* pwszPath) noexcept
{
    UniqueBstr path(pwszPath);
    if (!path)
    {
        return E_OUTOFMEMORY;
    }
    ScopedVariant source;
    source.SetText(std::move(path));
    VARIANT_BOOL bLoaded = VARIANT_FALSE;
    const HRESULT nResult = m_document->load(source.Get(), &bLoaded);
    if (nResult == E_OUTOFMEMORY)
    {
        return nResult;
    }
    return SUCCEEDED(nResult) && bLoaded != VARIANT_FALSE ? S_OK : S_FALSE;
}

// The document reports a file in use and a malformed one alike. Opening the file without letting anybody write it tells
// them apart, also from a file that is half written by one who lets it be read; and as long as it is open like that, a
// last load decides, whatever came between the first one and the look.
HRESULT XmlDocument::LoadOrLook(const wchar_t* pwszPath) noexcept
{
    const HRESULT nResult = LoadOnce(pwszPath);
    if (nResult != S_FALSE)
    {
        return nResult;
    }
    const UniqueFile file(
        CreateFileW(pwszPath, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return file ? LoadOnce(pwszPath) : LastStatus();
}

HRESULT XmlDocument::Load(const wchar_t* pwszPath) noexcept
{
    return SharingPatience().Try([&]() noexcept { return LoadOrLook(pwszPath); });
}

HRESULT XmlDocument::Find(const wchar_t* pwszNodePath, ComPtr<IXMLDOMNode>& node) noexcept
{
    if (*pwszNodePath == L'\0')
    {
        return E_INVALIDARG; // some document objects crash on it
    }
    const UniqueBstr path(pwszNodePath);
    if (!path)
    {
        return E_OUTOFMEMORY;
    }
    return m_document->selectSingleNode(path.Get(), node.ReleaseAndGetAddressOf());
}

HRESULT XmlDocument::CreateNode(long nType, const wchar_t* pwszName, ComPtr<IXMLDOMNode>& node) noexcept
{
    const UniqueBstr name(pwszName);
    const UniqueBstr space(m_pwszNamespace);
    if (!name || !space)
    {
        return E_OUTOFMEMORY;
    }
    ScopedVariant type;
    type.SetLong(nType);
    const HRESULT nResult = m_document->createNode(type.Get(), name.Get(), space.Get(), node.ReleaseAndGetAddressOf());
    return SUCCEEDED(nResult) && !node ? E_FAIL : nResult;
}

HRESULT XmlDocument::AppendElement(IXMLDOMNode* pParent, const wchar_t* pwszName, ComPtr<IXMLDOMNode>& node) noexcept
{
    ComPtr<IXMLDOMElement> root;
    if (pParent == nullptr && m_document->get_documentElement(root.GetAddressOf()) == S_OK && root)
    {
        return E_FAIL; // a second document element: not every document object refuses it by itself
    }
    ComPtr<IXMLDOMNode> element;
    const HRESULT nResult = CreateNode(NODE_ELEMENT, pwszName, element);
    if (FAILED(nResult))
    {
        return nResult;
    }
    IXMLDOMNode* const pTarget = pParent != nullptr ? pParent : m_document.Get();
    return pTarget->appendChild(element.Get(), node.ReleaseAndGetAddressOf());
}

HRESULT XmlDocument::AddAttribute(IXMLDOMNode& element, const wchar_t* pwszName, const wchar_t* pwszValue) noexcept
{
    ComPtr<IXMLDOMNode> attribute;
    HRESULT nResult = CreateNode(NODE_ATTRIBUTE, pwszName, attribute);
    if (SUCCEEDED(nResult))
    {
        nResult = SetText(*attribute.Get(), pwszValue);
    }
    ComPtr<IXMLDOMNamedNodeMap> attributes;
    if (SUCCEEDED(nResult))
    {
        nResult = element.get_attributes(attributes.GetAddressOf());
    }
    if (SUCCEEDED(nResult) && !attributes)
    {
        nResult = E_FAIL;
    }
    if (SUCCEEDED(nResult))
    {
        ComPtr<IXMLDOMNode> attached;
        nResult = attributes->setNamedItem(attribute.Get(), attached.GetAddressOf());
    }
    return nResult;
}

HRESULT XmlDocument::GetXml(UniqueBstr& text) noexcept
{
    return m_document->get_xml(text.Receive());
}

HRESULT XmlDocument::SaveTo(const wchar_t* pwszPath) noexcept
{
    UniqueBstr path(pwszPath);
    if (!path)
    {
        return E_OUTOFMEMORY;
    }
    ScopedVariant target;
    target.SetText(std::move(path));
    return m_document->save(target.Get());
}

// As SaveTo, but a file that may not be written is always told by a sharing error: not every document object says so.
HRESULT XmlDocument::SaveToTemporary(const wchar_t* pwszTemporaryPath) noexcept
{
    const HRESULT nResult = SaveTo(pwszTemporaryPath);
    if (SUCCEEDED(nResult))
    {
        return nResult;
    }
    const UniqueFile file(
        CreateFileW(pwszTemporaryPath, GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    const HRESULT nOpened = file ? S_OK : LastStatus();
    return IsSharingStatus(nOpened) ? nOpened : nResult;
}

// bSafe: whether the new content is on the disk for good.
HRESULT XmlDocument::SaveInPlace(const wchar_t* pwszPath, bool& bSafe) noexcept
{
    bSafe = false;
    const HRESULT nResult = SaveTo(pwszPath);
    if (FAILED(nResult))
    {
        return nResult;
    }
    const HRESULT nFlushed = FlushFile(pwszPath);
    bSafe = SUCCEEDED(nFlushed);
    // A reader that came at once keeps the file from being flushed, but saved it is.
    return IsSharingStatus(nFlushed) ? S_OK : nFlushed;
}

HRESULT XmlDocument::Save(const wchar_t* pwszPath) noexcept
{
    const SharingPatience patience;
    bool bSafe = false;
    wchar_t wszTemporaryPath[PATH_CHARS];
    if (!TemporaryPathOf(pwszPath, wszTemporaryPath))
    {
        return patience.Try([&]() noexcept { return SaveInPlace(pwszPath, bSafe); });
    }
    HRESULT nResult = patience.Try([&]() noexcept { return SaveToTemporary(wszTemporaryPath); });
    const bool bWritten = SUCCEEDED(nResult);
    if (bWritten)
    {
        nResult = patience.Try([&]() noexcept { return FlushFile(wszTemporaryPath); });
    }
    if (SUCCEEDED(nResult))
    {
        nResult = patience.Try([&]() noexcept { return ReplaceFileBy(pwszPath, wszTemporaryPath); });
    }
    if (SUCCEEDED(nResult))
    {
        return S_OK;
    }
    if (IsSharingStatus(nResult)) // somebody keeps one of the files open: what is left is to write into the old one
    {
        nResult = SaveInPlace(pwszPath, bSafe);
        if (!bSafe && bWritten)
        {
            return nResult; // the old file may be torn now or later: the temporary one stays, which is whole
        }
    }
    DeleteFileW(wszTemporaryPath);
    return nResult;
}

HRESULT XmlDocument::GetText(IXMLDOMNode& node, UniqueBstr& text) noexcept
{
    return node.get_text(text.Receive());
}

HRESULT XmlDocument::SetText(IXMLDOMNode& node, const wchar_t* pwszText) noexcept
{
    const UniqueBstr text(pwszText);
    return text ? node.put_text(text.Get()) : E_OUTOFMEMORY;
}

} // namespace varnex
