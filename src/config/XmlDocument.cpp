#include "config/XmlDocument.h"

#include "common/Handles.h"
#include "common/LastError.h"
#include "common/SharingPatience.h"
#include "config/FileSaving.h"
#include "config/XmlBytes.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace varnex
{

namespace
{

constexpr CLSID CLASS_DOM_DOCUMENT = {0x2933BF90, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr IID INTERFACE_DOM_DOCUMENT = {0x2933BF81, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

constexpr long COMPLETE = 4; // of the states of a document
constexpr DWORD LOADING_PAUSE_MS = 10;
constexpr int MESSAGES_AT_ONCE = 100; // a bound, should each one bring the next

HRESULT LastStatus() noexcept
{
    return HRESULT_FROM_WIN32(LastErrorOr(ERROR_GEN_FAILURE));
}

// A path as a document object takes it, which is for a URL: there a percent sign begins an escape.
UniqueBstr UrlOf(const wchar_t* pwszPath) noexcept
{
    const std::wstring_view path(pwszPath);
    const auto nPercents = static_cast<std::size_t>(std::count(path.begin(), path.end(), L'%'));
    UniqueBstr url;
    url.Reset(SysAllocStringLen(nullptr, static_cast<UINT>(path.size() + 2 * nPercents)));
    if (url)
    {
        wchar_t* pwchNext = url.Get();
        for (const wchar_t ch : path)
        {
            *pwchNext++ = ch;
            if (ch == L'%')
            {
                *pwchNext++ = L'2';
                *pwchNext++ = L'5';
            }
        }
    }
    return url;
}

// In a single-threaded apartment a document that loads in the background gets its data by messages. All are served: it is
// the module's own threads that load, and they have no windows but COM's and the loader's.
void ServeMessages() noexcept
{
    APTTYPE type = APTTYPE_MTA;
    APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
    if (FAILED(CoGetApartmentType(&type, &qualifier)) || (type != APTTYPE_STA && type != APTTYPE_MAINSTA))
    {
        return;
    }
    MSG message;
    for (int i = 0; i < MESSAGES_AT_ONCE && PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE); ++i)
    {
        if (message.message == WM_QUIT) // somebody else's
        {
            PostQuitMessage(static_cast<int>(message.wParam));
            return;
        }
        DispatchMessageW(&message);
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

// A document that loads in the background has only begun when its load reports a success. What came of it is told by its
// parse error alone. Returns S_OK, S_FALSE for a malformed file, or a failing status.
HRESULT XmlDocument::WaitUntilComplete(const SharingPatience& patience) noexcept
{
    for (;;)
    {
        long nState = 0;
        const HRESULT nResult = m_document->get_readyState(&nState);
        if (FAILED(nResult))
        {
            return nResult;
        }
        if (nState == COMPLETE)
        {
            return ParseResult();
        }
        if (!patience.Pause(LOADING_PAUSE_MS))
        {
            m_document->abort();
            return E_PENDING;
        }
        ServeMessages();
    }
}

HRESULT XmlDocument::ParseResult() noexcept
{
    ComPtr<IXMLDOMParseError> parseError;
    HRESULT nResult = m_document->get_parseError(parseError.GetAddressOf());
    if (SUCCEEDED(nResult) && !parseError)
    {
        nResult = E_FAIL;
    }
    long nError = 0;
    if (SUCCEEDED(nResult))
    {
        nResult = parseError->get_errorCode(&nError);
    }
    if (FAILED(nResult))
    {
        return nResult;
    }
    return nError == 0 ? S_OK : S_FALSE;
}

// S_OK, S_FALSE when the file does not load for whatever reason, or a failing status (see Load).
HRESULT XmlDocument::LoadOnce(const wchar_t* pwszPath, const SharingPatience& patience) noexcept
{
    UniqueBstr url = UrlOf(pwszPath);
    if (!url)
    {
        return E_OUTOFMEMORY;
    }
    ScopedVariant source;
    source.SetText(std::move(url));
    VARIANT_BOOL bLoaded = VARIANT_FALSE;
    const HRESULT nResult = m_document->load(source.Get(), &bLoaded);
    if (nResult == E_OUTOFMEMORY)
    {
        return nResult;
    }
    return SUCCEEDED(nResult) && bLoaded != VARIANT_FALSE ? WaitUntilComplete(patience) : S_FALSE;
}

// The document reports a file in use and a malformed one alike. Opening the file without letting anybody write it tells
// them apart, also from a file that is half written by one who lets it be read; and as long as it is open like that, a
// last load decides, whatever came between the first one and the look.
HRESULT XmlDocument::LoadOrLook(const wchar_t* pwszPath, const SharingPatience& patience) noexcept
{
    const HRESULT nResult = LoadOnce(pwszPath, patience);
    if (nResult != S_FALSE)
    {
        return nResult;
    }
    const UniqueFile file(
        CreateFileW(pwszPath, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return file ? LoadOnce(pwszPath, patience) : LastStatus();
}

HRESULT XmlDocument::Load(const wchar_t* pwszPath) noexcept
{
    const SharingPatience patience;
    return patience.Try([&]() noexcept { return LoadOrLook(pwszPath, patience); });
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

// Not by the document's own save: it can report a success when the disk is full, and write bytes that do not agree with
// the encoding that they declare.
HRESULT XmlDocument::Save(const wchar_t* pwszPath) noexcept
{
    UniqueBstr text;
    HRESULT nResult = GetXml(text);
    const std::size_t cchText = SysStringLen(text.Get());
    if (SUCCEEDED(nResult) && cchText == 0)
    {
        nResult = E_FAIL;
    }
    XmlBytes bytes;
    if (SUCCEEDED(nResult))
    {
        nResult = EncodeXml(text.Get(), cchText, bytes);
    }
    return SUCCEEDED(nResult) ? SaveFile(pwszPath, bytes.data.get(), bytes.cbData) : nResult;
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
