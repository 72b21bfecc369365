#include "support/XmlReader.h"

#include "common/Com.h"
#include "support/ScriptScope.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <msxml.h>

namespace varnex::test
{

namespace
{

constexpr CLSID DOM_CLASS = {0x2933BF90, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr IID DOM_INTERFACE = {0x2933BF81, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

// COM on this thread for as long as the document lives, in whatever model it is already there.
class ComUse
{
public:
    ComUse() noexcept : m_bEntered(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
    ~ComUse()
    {
        if (m_bEntered)
        {
            CoUninitialize();
        }
    }
    ComUse(const ComUse&) = delete;
    ComUse& operator=(const ComUse&) = delete;

private:
    bool m_bEntered;
};

} // namespace

struct XmlReader::Document
{
    ComUse use;
    ComPtr<IXMLDOMDocument> dom;

    Document()
    {
        const HRESULT nResult = CoCreateInstance(DOM_CLASS, nullptr, CLSCTX_INPROC_SERVER, DOM_INTERFACE,
                                                 reinterpret_cast<void**>(dom.GetAddressOf()));
        REQUIRE(nResult == S_OK);
        dom->put_async(VARIANT_FALSE);
    }

    ComPtr<IXMLDOMNodeList> Select(const std::wstring& path) const
    {
        ComPtr<IXMLDOMNodeList> nodes;
        const HRESULT nResult = dom->selectNodes(UniqueBstr(path.c_str()).Get(), nodes.GetAddressOf());
        if (nResult != S_OK)
        {
            FAIL("The document refuses the path " << Utf8FromWide(path));
        }
        return nodes;
    }
};

XmlReader::XmlReader(std::unique_ptr<Document> document) noexcept : m_document(std::move(document)) {}

XmlReader::XmlReader(XmlReader&& other) noexcept = default;

XmlReader::~XmlReader()
{
    const UnscriptedScope unscripted;
    m_document.reset();
}

XmlReader XmlReader::FromFile(const std::wstring& path)
{
    const UnscriptedScope unscripted;
    auto document = std::make_unique<Document>();
    ScopedVariant source;
    source.SetText(UniqueBstr(path.c_str()));
    VARIANT_BOOL bLoaded = VARIANT_FALSE;
    document->dom->load(source.Get(), &bLoaded);
    if (bLoaded == VARIANT_FALSE)
    {
        FAIL("Not an XML file: " << Utf8FromWide(path));
    }
    return XmlReader(std::move(document));
}

XmlReader XmlReader::FromText(const std::wstring& text)
{
    const UnscriptedScope unscripted;
    auto document = std::make_unique<Document>();
    VARIANT_BOOL bLoaded = VARIANT_FALSE;
    document->dom->loadXML(UniqueBstr(text.c_str()).Get(), &bLoaded);
    if (bLoaded == VARIANT_FALSE)
    {
        FAIL("Not an XML text: " << Utf8FromWide(text));
    }
    return XmlReader(std::move(document));
}

std::vector<std::wstring> XmlReader::Texts(const std::wstring& path) const
{
    const UnscriptedScope unscripted;
    const ComPtr<IXMLDOMNodeList> nodes = m_document->Select(path);
    std::vector<std::wstring> texts;
    for (;;)
    {
        ComPtr<IXMLDOMNode> node;
        if (nodes->nextNode(node.GetAddressOf()) != S_OK || node == nullptr)
        {
            return texts;
        }
        UniqueBstr text;
        node->get_text(text.Receive());
        texts.emplace_back(text.Text());
    }
}

std::optional<std::wstring> XmlReader::Text(const std::wstring& path) const
{
    const std::vector<std::wstring> texts = Texts(path);
    return texts.empty() ? std::nullopt : std::make_optional(texts.front());
}

std::size_t XmlReader::Count(const std::wstring& path) const
{
    return Texts(path).size();
}

} // namespace varnex::test
