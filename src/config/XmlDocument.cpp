#include "config/XmlDocument.h"

#include "common/Handles.h"

#include <string>

namespace varnex
{

namespace
{

constexpr CLSID CLASS_DOM_DOCUMENT = {0x2933BF90, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr IID INTERFACE_DOM_DOCUMENT = {0x2933BF81, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

// A file that is in another process's hands is tried again this often, a second in all.
constexpr int SHARING_RETRIES = 20;
constexpr DWORD SHARING_PAUSE_MS = 50;

bool IsSharingError(DWORD dwError) noexcept
{
    return dwError == ERROR_ACCESS_DENIED || dwError == ERROR_SHARING_VIOLATION || dwError == ERROR_LOCK_VIOLATION;
}

// The document reports a locked file and a malformed one alike; opening the file tells them apart.
bool IsLockedByOther(const wchar_t* pwszPath) noexcept
{
    const UniqueFile file(CreateFileW(pwszPath, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return !file && IsSharingError(GetLastError());
}

HRESULT FlushFile(const wchar_t* pwszPath) noexcept
{
    const UniqueFile file(CreateFileW(pwszPath, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file || !FlushFileBuffers(file.Get()))
    {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    return S_OK;
}

// ERROR_SUCCESS, or why the file could not take the other's place.
DWORD ReplaceFileBy(const wchar_t* pwszPath, const wchar_t* pwszNewPath) noexcept
{
    for (int nTry = 0;; ++nTry)
    {
        if (MoveFileExW(pwszNewPath, pwszPath, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        {
            return ERROR_SUCCESS;
        }
        const DWORD dwError = GetLastError();
        if (!IsSharingError(dwError) || nTry == SHARING_RETRIES)
        {
            return dwError;
        }
        Sleep(SHARING_PAUSE_MS);
    }
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

bool XmlDocument::LoadOnce(const wchar_t* pwszPath) noexcept
{
    UniqueBstr path(pwszPath);
    if (!path)
    {
        return false;
    }
    ScopedVariant source;
    source.SetText(std::move(path));
    VARIANT_BOOL bLoaded = VARIANT_FALSE;
    return SUCCEEDED(m_document->load(source.Get(), &bLoaded)) && bLoaded != VARIANT_FALSE;
}

bool XmlDocument::Load(const wchar_t* pwszPath)
{
    for (int nTry = 0;; ++nTry)
    {
        if (LoadOnce(pwszPath))
        {
            return true;
        }
        if (!IsLockedByOther(pwszPath))
        {
            // The lock may have gone between the load and the look: a last load decides, else a file that was locked
            // for a moment would pass for a malformed one, and a malformed one for a new day.
            return LoadOnce(pwszPath);
        }
        if (nTry == SHARING_RETRIES)
        {
            return false;
        }
        Sleep(SHARING_PAUSE_MS);
    }
}

HRESULT XmlDocument::Find(const wchar_t* pwszNodePath, ComPtr<IXMLDOMNode>& node) noexcept
{
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

HRESULT XmlDocument::Save(const wchar_t* pwszPath)
{
    const std::wstring temporaryPath = std::wstring(pwszPath) + L".tmp";
    HRESULT nResult = SaveTo(temporaryPath.c_str());
    if (SUCCEEDED(nResult))
    {
        nResult = FlushFile(temporaryPath.c_str());
    }
    if (SUCCEEDED(nResult))
    {
        const DWORD dwError = ReplaceFileBy(pwszPath, temporaryPath.c_str());
        if (dwError == ERROR_SUCCESS)
        {
            return S_OK;
        }
        // Somebody keeps the file open: what is left is to write into it.
        nResult = IsSharingError(dwError) ? SaveTo(pwszPath) : HRESULT_FROM_WIN32(dwError);
    }
    DeleteFileW(temporaryPath.c_str());
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
