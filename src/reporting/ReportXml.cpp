#include "reporting/ReportXml.h"

#include "common/BoundedText.h"
#include "config/XmlDocument.h"
#include "diag/SPLogger.h"
#include "reporting/UtilizationReport.h"

#include <initializer_list>

namespace varnex
{

namespace
{

constexpr wchar_t REPORT_NAMESPACE[] = L"AgentInfoProbe";
constexpr wchar_t ROOT_NAME[] = L"ServerPKIInformation";
// What two messages about the root call it: a name that is not the report's, and readers of the log know it so.
constexpr wchar_t NAME_IN_MESSAGES[] = L"KPMConfiguration";

struct Attribute
{
    const wchar_t* pwszName;
    const wchar_t* pwszValue;
};

// A number as an attribute's text.
class Decimal
{
public:
    explicit Decimal(std::int64_t nValue) noexcept { FormatTextW(m_wszText, L"%lld", nValue); }
    const wchar_t* Text() const noexcept { return m_wszText; }

private:
    wchar_t m_wszText[24];
};

// Whether XML has a place for a UTF-16 unit that is no surrogate.
constexpr bool IsXmlCharacter(wchar_t ch) noexcept
{
    return ch >= 0x20 ? ch < 0xFFFE : ch == L'\t' || ch == L'\n' || ch == L'\r';
}

// A name as an attribute's text: as it stands, with a mark in place of each unit that XML has no place for. The document
// object takes such a unit and writes it out, and no reader takes the report then. The first half of a character that
// was cut in two is one.
class NameText
{
public:
    explicit NameText(const wchar_t* pwszName) noexcept
    {
        CopyTextW(m_wszText, pwszName);
        for (wchar_t* pwsz = m_wszText; *pwsz != L'\0'; ++pwsz)
        {
            if (IS_SURROGATE_PAIR(pwsz[0], pwsz[1]))
            {
                ++pwsz;
            }
            else if (IS_HIGH_SURROGATE(*pwsz) || IS_LOW_SURROGATE(*pwsz) || !IsXmlCharacter(*pwsz))
            {
                *pwsz = REPLACEMENT_CHARACTER;
            }
        }
    }
    const wchar_t* Text() const noexcept { return m_wszText; }

private:
    static constexpr wchar_t REPLACEMENT_CHARACTER = 0xFFFD;

    wchar_t m_wszText[128]; // as long as the longest name of a report
};

// 32-bit values are written as signed ones.
Decimal SignedDecimal(std::uint32_t nValue) noexcept
{
    return Decimal(static_cast<std::int32_t>(nValue));
}

// Appends an element. A document object that says yes and gives no node has failed as well.
HRESULT AppendElement(XmlDocument& document, IXMLDOMNode* pParent, const wchar_t* pwszName,
                      ComPtr<IXMLDOMNode>& element) noexcept
{
    const HRESULT nResult = document.AppendElement(pParent, pwszName, element);
    return SUCCEEDED(nResult) && !element ? E_FAIL : nResult;
}

// The document element, made when it is missing.
HRESULT FindOrMakeRoot(XmlDocument& document, ComPtr<IXMLDOMNode>& root) noexcept
{
    const HRESULT nResult = document.Find(ROOT_NAME, root);
    return FAILED(nResult) || root ? nResult : AppendElement(document, nullptr, ROOT_NAME, root);
}

// Writes the time into the element at a path, and makes the elements of the path that are missing.
HRESULT SetXMLPKIUtlValue(XmlDocument& document, const wchar_t* pwszNodePath, const UtilizationReport* pReport) noexcept
{
    if (pwszNodePath == nullptr || pReport == nullptr)
    {
        Log()->Level1W(L"SetXMLPKIUtlValue -- checking parameters fail,wszNodePath(%p), pwszNodeValue(%p)",
                       pwszNodePath, pReport);
        return E_INVALIDARG;
    }
    ComPtr<IXMLDOMNode> root;
    ComPtr<IXMLDOMNode> time;
    HRESULT nResult = FindOrMakeRoot(document, root);
    if (SUCCEEDED(nResult))
    {
        nResult = document.Find(pwszNodePath, time);
    }
    if (SUCCEEDED(nResult) && !time)
    {
        nResult = AppendElement(document, root.Get(), L"Time", time);
    }
    if (FAILED(nResult))
    {
        Log()->Level1W(L"SetXMLNodeValue -- create root node(%s) fail.", NAME_IN_MESSAGES);
        return nResult;
    }
    return XmlDocument::SetText(*time.Get(), pReport->wszTime);
}

// Adds one entry element with its attributes behind the ones that are there.
HRESULT SetXMLNodeValueEx(XmlDocument& document, const wchar_t* pwszName,
                          std::initializer_list<Attribute> attributes) noexcept
{
    ComPtr<IXMLDOMNode> root;
    HRESULT nResult = FindOrMakeRoot(document, root);
    if (FAILED(nResult))
    {
        Log()->Level1W(L"SetXMLNodeValueEx -- create root node(%s) fail.", ROOT_NAME);
        return nResult;
    }
    ComPtr<IXMLDOMNode> element;
    nResult = AppendElement(document, root.Get(), pwszName, element);
    if (FAILED(nResult))
    {
        Log()->Level1W(L"SetXMLNodeValueEx -- create node(%s) fail.", pwszName);
        return nResult;
    }
    for (const Attribute& attribute : attributes)
    {
        nResult = document.AddAttribute(*element.Get(), attribute.pwszName, attribute.pwszValue);
        if (FAILED(nResult))
        {
            Log()->Level1W(L"SetXMLNodeValueEx -- create node(%s) fail.", attribute.pwszName);
            return nResult;
        }
    }
    return S_OK;
}

HRESULT AddEntry(XmlDocument& document, const CpuEntry& entry) noexcept
{
    return SetXMLNodeValueEx(
        document, L"CPUUtil",
        {{L"Index", NameText(entry.wszIndex).Text()}, {L"Utilization", Decimal(entry.nUtilization).Text()}});
}

HRESULT AddEntry(XmlDocument& document, const MemoryEntry& entry) noexcept
{
    return SetXMLNodeValueEx(document, L"MemoryUtil",
                             {{L"PhysicalMemUtil", Decimal(entry.nPhysicalUtilization).Text()},
                              {L"PhysicalMemCapacity", SignedDecimal(entry.nPhysicalMB).Text()},
                              {L"PageFileUtil", Decimal(entry.nPagingFileUtilization).Text()},
                              {L"PageFileCapacity", SignedDecimal(entry.nPagingFileMB).Text()}});
}

HRESULT AddEntry(XmlDocument& document, const DiskEntry& entry) noexcept
{
    return SetXMLNodeValueEx(
        document, L"DiskUtil",
        {{L"Index", NameText(entry.wszIndex).Text()}, {L"Throughput", Decimal(entry.nThroughput).Text()}});
}

HRESULT AddEntry(XmlDocument& document, const NetworkEntry& entry) noexcept
{
    return SetXMLNodeValueEx(document, L"NetworkUtil",
                             {{L"MACAddress", NameText(entry.wszMACAddress).Text()},
                              {L"LinkSpeed", Decimal(entry.nLinkSpeed).Text()},
                              {L"Utilization", Decimal(entry.nUtilization).Text()}});
}

template <class Entries>
HRESULT AddEntries(XmlDocument& document, const Entries& entries) noexcept
{
    HRESULT nResult = S_OK;
    for (auto entry = entries.begin(); SUCCEEDED(nResult) && entry != entries.end(); ++entry)
    {
        nResult = AddEntry(document, *entry);
    }
    return nResult;
}

HRESULT BuildDocument(XmlDocument& document, const UtilizationReport* pReport, UniqueBstr& text) noexcept
{
    HRESULT nResult = SetXMLPKIUtlValue(document, L"ServerPKIInformation/Time", pReport);
    if (FAILED(nResult))
    {
        Log()->Level1W(L"CreateKAPKIUtilizationXML -- create root node(%s) fail.", NAME_IN_MESSAGES);
        return nResult;
    }
    nResult = AddEntries(document, pReport->cpus);
    if (SUCCEEDED(nResult))
    {
        nResult = AddEntry(document, pReport->memory);
    }
    if (SUCCEEDED(nResult))
    {
        nResult = AddEntries(document, pReport->disks);
    }
    if (SUCCEEDED(nResult))
    {
        nResult = AddEntries(document, pReport->cards);
    }
    return SUCCEEDED(nResult) ? document.GetXml(text) : nResult;
}

} // namespace

UniqueBstr CreateKAPKIUtilizationXML(const UtilizationReport* pReport) noexcept
{
    XmlDocument document(REPORT_NAMESPACE);
    UniqueBstr text;
    const HRESULT nResult = document.Create(CLSCTX_INPROC_SERVER);
    if (FAILED(nResult))
    {
        Log()->Level1W(L"CreateKAPKIUtilizationXML -- DocumentPtr CreateInstance failed(%d).", nResult);
    }
    else if (FAILED(BuildDocument(document, pReport, text)))
    {
        text.Reset();
    }
    return text;
}

} // namespace varnex
