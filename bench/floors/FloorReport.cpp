#include "FloorReport.h"

#include "FloorSampling.h"

#include <msxml2.h>
#include <objbase.h>

#include <initializer_list>
#include <utility>

namespace varnex::bench
{

namespace
{

constexpr CLSID CLASS_DOM_DOCUMENT = {0x2933BF90, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr IID INTERFACE_DOM_DOCUMENT = {0x2933BF81, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

// The texts of a document; made once.
struct Texts
{
    BSTR bstrSpace = SysAllocString(L"AgentInfoProbe");
    BSTR bstrRoot = SysAllocString(L"ServerPKIInformation");
    BSTR bstrTimePath = SysAllocString(L"ServerPKIInformation/Time");
    BSTR bstrTime = SysAllocString(L"Time");
    BSTR bstrTimeText = SysAllocString(L"2026-01-31 12:00:00");
    BSTR bstrCpu = SysAllocString(L"CPUUtil");
    BSTR bstrMemory = SysAllocString(L"MemoryUtil");
    BSTR bstrDisk = SysAllocString(L"DiskUtil");
    BSTR bstrNetwork = SysAllocString(L"NetworkUtil");
    BSTR bstrIndex = SysAllocString(L"Index");
    BSTR bstrUtilization = SysAllocString(L"Utilization");
    BSTR bstrThroughput = SysAllocString(L"Throughput");
    BSTR bstrAddress = SysAllocString(L"MACAddress");
    BSTR bstrLinkSpeed = SysAllocString(L"LinkSpeed");
    BSTR bstrPhysicalUtil = SysAllocString(L"PhysicalMemUtil");
    BSTR bstrPhysicalCapacity = SysAllocString(L"PhysicalMemCapacity");
    BSTR bstrPageUtil = SysAllocString(L"PageFileUtil");
    BSTR bstrPageCapacity = SysAllocString(L"PageFileCapacity");
    BSTR bstrOne = SysAllocString(L"1");
    BSTR bstrPercent = SysAllocString(L"42");
    BSTR bstrBytes = SysAllocString(L"123456789");
    BSTR bstrMegabytes = SysAllocString(L"16384");
    BSTR bstrSomeAddress = SysAllocString(L"00:15:5D:00:00:01");
};

const Texts& GetTexts() noexcept
{
    static const Texts texts;
    return texts;
}

class BareDocument
{
public:
    BareDocument() noexcept
    {
        IUnknown* pUnknown = nullptr;
        CoCreateInstance(CLASS_DOM_DOCUMENT, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                         reinterpret_cast<void**>(&pUnknown));
        OleRun(pUnknown);
        pUnknown->QueryInterface(INTERFACE_DOM_DOCUMENT, reinterpret_cast<void**>(&m_pDocument));
        pUnknown->Release();
        m_type.vt = VT_I4;
    }
    ~BareDocument() { m_pDocument->Release(); }
    BareDocument(const BareDocument&) = delete;
    BareDocument& operator=(const BareDocument&) = delete;

    // The one text element, with the look-ups that find it missing.
    void AddTime() noexcept
    {
        IXMLDOMNode* pFound = nullptr;
        m_pDocument->selectSingleNode(m_texts.bstrRoot, &pFound);
        IXMLDOMNode* const pRoot = Append(m_pDocument, m_texts.bstrRoot);
        m_pDocument->selectSingleNode(m_texts.bstrTimePath, &pFound);
        IXMLDOMNode* const pTime = Append(pRoot, m_texts.bstrTime);
        pTime->put_text(m_texts.bstrTimeText);
        pTime->Release();
        pRoot->Release();
    }

    void AddEntry(BSTR bstrName, std::initializer_list<std::pair<BSTR, BSTR>> attributes) noexcept
    {
        IXMLDOMNode* pRoot = nullptr;
        m_pDocument->selectSingleNode(m_texts.bstrRoot, &pRoot);
        IXMLDOMNode* const pElement = Append(pRoot, bstrName);
        IXMLDOMNamedNodeMap* pMap = nullptr;
        pElement->get_attributes(&pMap);
        for (const auto& [bstrAttribute, bstrValue] : attributes)
        {
            m_type.lVal = NODE_ATTRIBUTE;
            IXMLDOMNode* pAttribute = nullptr;
            m_pDocument->createNode(m_type, bstrAttribute, m_texts.bstrSpace, &pAttribute);
            pAttribute->put_text(bstrValue);
            IXMLDOMNode* pAttached = nullptr;
            pMap->setNamedItem(pAttribute, &pAttached);
            pAttached->Release();
            pAttribute->Release();
        }
        pMap->Release();
        pElement->Release();
        pRoot->Release();
    }

    unsigned TextLength() noexcept
    {
        BSTR bstrXml = nullptr;
        m_pDocument->get_xml(&bstrXml);
        const unsigned cchXml = SysStringLen(bstrXml);
        SysFreeString(bstrXml);
        return cchXml;
    }

private:
    IXMLDOMNode* Append(IXMLDOMNode* pParent, BSTR bstrName) noexcept
    {
        m_type.lVal = NODE_ELEMENT;
        IXMLDOMNode* pCreated = nullptr;
        IXMLDOMNode* pAppended = nullptr;
        m_pDocument->createNode(m_type, bstrName, m_texts.bstrSpace, &pCreated);
        pParent->appendChild(pCreated, &pAppended);
        pCreated->Release();
        return pAppended;
    }

    const Texts& m_texts = GetTexts();
    IXMLDOMDocument* m_pDocument = nullptr;
    VARIANT m_type{};
};

} // namespace

unsigned BuildReportFloor(unsigned nProcessors, unsigned nDisks, unsigned nCards) noexcept
{
    const Texts& texts = GetTexts();
    SampleMemory();
    BareDocument document;
    document.AddTime();
    for (unsigned i = 0; i < nProcessors; ++i)
    {
        document.AddEntry(texts.bstrCpu,
                          {{texts.bstrIndex, texts.bstrOne}, {texts.bstrUtilization, texts.bstrPercent}});
    }
    document.AddEntry(texts.bstrMemory, {{texts.bstrPhysicalUtil, texts.bstrPercent},
                                         {texts.bstrPhysicalCapacity, texts.bstrMegabytes},
                                         {texts.bstrPageUtil, texts.bstrPercent},
                                         {texts.bstrPageCapacity, texts.bstrMegabytes}});
    for (unsigned i = 0; i < nDisks; ++i)
    {
        document.AddEntry(texts.bstrDisk, {{texts.bstrIndex, texts.bstrOne}, {texts.bstrThroughput, texts.bstrBytes}});
    }
    for (unsigned i = 0; i < nCards; ++i)
    {
        document.AddEntry(texts.bstrNetwork, {{texts.bstrAddress, texts.bstrSomeAddress},
                                              {texts.bstrLinkSpeed, texts.bstrPercent},
                                              {texts.bstrUtilization, texts.bstrPercent}});
    }
    return document.TextLength();
}

} // namespace varnex::bench
