#include "ConfigTree.h"

#include "HostError.h"
#include "WholeFile.h"
#include "common/Com.h"

#include <algorithm>
#include <new>

#include <msxml2.h>
#include <shlwapi.h>

namespace varnex::host
{

namespace
{

// The reader of the same parser as the module's document object.
constexpr CLSID CLASS_SAX_READER = {0x079AA557, 0x4A18, 0x424A, {0x8E, 0xEE, 0xE3, 0x9F, 0x0A, 0x8D, 0x41, 0xB9}};
constexpr IID INTERFACE_SAX_READER = {0xA4F96ED0, 0xF829, 0x476E, {0x81, 0xC0, 0xCD, 0xC7, 0xBD, 0x2A, 0x08, 0x02}};

std::wstring TextOf(const wchar_t* pwchText, int cchText)
{
    return pwchText != nullptr && cchText > 0 ? std::wstring(pwchText, static_cast<std::size_t>(cchText)) : L"";
}

bool DeclaresNamespace(const std::wstring& attribute)
{
    return attribute == L"xmlns" || attribute.rfind(L"xmlns:", 0) == 0;
}

std::vector<std::wstring> NamesOf(ISAXAttributes* pAttributes)
{
    std::vector<std::wstring> names;
    int nCount = 0;
    if (pAttributes == nullptr || FAILED(pAttributes->getLength(&nCount)))
    {
        return names;
    }
    for (int i = 0; i < nCount; ++i)
    {
        const wchar_t* pwchName = nullptr;
        int cchName = 0;
        if (SUCCEEDED(pAttributes->getQName(i, &pwchName, &cchName)))
        {
            names.push_back(TextOf(pwchName, cchName));
        }
    }
    names.erase(std::remove_if(names.begin(), names.end(), DeclaresNamespace), names.end());
    return names;
}

// Lives on the stack of its reader's caller, whatever the reader counts.
template <class Interface>
class StackHandler : public Interface
{
public:
    virtual ~StackHandler() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppObject) override
    {
        *ppObject = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
};

class TreeBuilder final : public StackHandler<ISAXContentHandler>
{
public:
    explicit TreeBuilder(ConfigElement& root) : m_root(root) {}

    HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator* pLocator) override
    {
        m_locator = pLocator;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE startElement(const wchar_t*, int, const wchar_t*, int, const wchar_t* pwchName,
                                           int cchName, ISAXAttributes* pAttributes) override
    {
        try
        {
            Open({TextOf(pwchName, cchName), Line(), NamesOf(pAttributes), {}});
            return S_OK;
        }
        catch (const std::bad_alloc&)
        {
            return E_OUTOFMEMORY;
        }
    }
    HRESULT STDMETHODCALLTYPE endElement(const wchar_t*, int, const wchar_t*, int, const wchar_t*, int) override
    {
        m_open.pop_back();
        return S_OK;
    }

    // What tells nothing about the structure.
    HRESULT STDMETHODCALLTYPE startDocument() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE endDocument() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE startPrefixMapping(const wchar_t*, int, const wchar_t*, int) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE endPrefixMapping(const wchar_t*, int) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE characters(const wchar_t*, int) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE ignorableWhitespace(const wchar_t*, int) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE processingInstruction(const wchar_t*, int, const wchar_t*, int) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE skippedEntity(const wchar_t*, int) override { return S_OK; }

private:
    // The open elements are the last children of each other, so that none of them moves while it is open.
    void Open(ConfigElement element)
    {
        ConfigElement* pElement = &m_root;
        if (m_open.empty())
        {
            m_root = std::move(element);
        }
        else
        {
            m_open.back()->children.push_back(std::move(element));
            pElement = &m_open.back()->children.back();
        }
        m_open.push_back(pElement);
    }
    int Line() const
    {
        int nLine = 0;
        return m_locator && SUCCEEDED(m_locator->getLineNumber(&nLine)) ? nLine : 0;
    }

    ConfigElement& m_root;
    std::vector<ConfigElement*> m_open;
    ComPtr<ISAXLocator> m_locator;
};

class FaultKeeper final : public StackHandler<ISAXErrorHandler>
{
public:
    explicit FaultKeeper(std::optional<XmlFault>& fault) : m_fault(fault) {}

    HRESULT STDMETHODCALLTYPE error(ISAXLocator* pLocator, const wchar_t* pwszText, HRESULT nResult) override
    {
        return fatalError(pLocator, pwszText, nResult);
    }
    HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* pLocator, const wchar_t* pwszText, HRESULT nResult) override
    {
        try
        {
            Keep(pLocator, pwszText != nullptr ? pwszText : L"");
        }
        catch (const std::bad_alloc&)
        {
            return E_OUTOFMEMORY;
        }
        return nResult;
    }
    HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator*, const wchar_t*, HRESULT) override { return S_OK; }

private:
    // The first one; what follows it are its consequences.
    void Keep(ISAXLocator* pLocator, std::wstring reason)
    {
        if (m_fault)
        {
            return;
        }
        while (!reason.empty() && reason.back() <= L' ')
        {
            reason.pop_back();
        }
        m_fault.emplace();
        m_fault->reason = Printable(reason);
        if (pLocator != nullptr)
        {
            pLocator->getLineNumber(&m_fault->nLine);
            pLocator->getColumnNumber(&m_fault->nColumn);
        }
    }

    std::optional<XmlFault>& m_fault;
};

ComPtr<ISAXXMLReader> MakeReader()
{
    ComPtr<ISAXXMLReader> reader;
    const HRESULT nResult = CoCreateInstance(CLASS_SAX_READER, nullptr, CLSCTX_INPROC_SERVER, INTERFACE_SAX_READER,
                                             reinterpret_cast<void**>(reader.GetAddressOf()));
    if (FAILED(nResult))
    {
        throw HostError(L"The system's XML parser (MSXML 3) is not there: " +
                        SystemErrorText(static_cast<DWORD>(nResult)));
    }
    return reader;
}

} // namespace

ConfigTree ReadConfigTree(const std::wstring& path)
{
    const std::string bytes = ReadWholeFile(path);
    ComPtr<IStream> stream;
    stream.Attach(SHCreateMemStream(reinterpret_cast<const BYTE*>(bytes.data()), static_cast<UINT>(bytes.size())));
    if (!stream)
    {
        throw std::bad_alloc();
    }
    VARIANT input;
    VariantInit(&input);
    input.vt = VT_UNKNOWN;
    input.punkVal = stream.Get(); // stays the stream's, so the variant is not cleared

    ConfigTree tree;
    TreeBuilder builder(tree.root);
    FaultKeeper faults(tree.fault);
    const ComPtr<ISAXXMLReader> reader = MakeReader();
    reader->putContentHandler(&builder);
    reader->putErrorHandler(&faults);
    const HRESULT nResult = reader->parse(input);
    reader->putContentHandler(nullptr);
    reader->putErrorHandler(nullptr);
    if (FAILED(nResult) && !tree.fault)
    {
        tree.fault = XmlFault{SystemErrorText(static_cast<DWORD>(nResult)), 0, 0};
    }
    return tree;
}

} // namespace varnex::host
