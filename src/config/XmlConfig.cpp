#include "config/XmlConfig.h"

#include "common/BoundedText.h"
#include "config/ConfigFile.h"
#include "config/XmlDocument.h"
#include "diag/SPLogger.h"

#include <cstdlib>
#include <cwchar>
#include <utility>

namespace varnex
{

namespace
{

constexpr wchar_t LOG_LEVEL_PATH[] = L"KPMConfiguration/VarnexLog/Level";
// Every element that is written here stands in this namespace; a plain path finds it all the same.
constexpr wchar_t ELEMENT_NAMESPACE[] = L"KPMAgentInfoProbe_URI";
constexpr int ALERT_TYPES = 4;
constexpr unsigned CONF_TYPES = 4;

// Rows by alert type, columns by configuration type.
constexpr const wchar_t* POLICY_NAMES[ALERT_TYPES][CONF_TYPES] = {
    {L"CPUInterval", L"CPUThreshold", L"CPUSamplingAmount", L"CPUMaxAlertNum"},
    {L"MemoryInterval", L"MemoryThreshold", L"MemorySamplingAmount", L"MemoryMaxAlertNum"},
    {L"DiskInterval", L"DiskThreshold", L"DiskSamplingAmount", L"DiskMaxAlertNum"},
    {L"NetworkInterval", L"NetworkThreshold", L"NetworkSamplingAmount", L"NetworkMaxAlertNum"},
};

// Opens the file for the two readers of numbers, which share their messages word for word.
bool OpenForNumber(XmlDocument& document)
{
    const ConfigFilePath path;
    const wchar_t* const pwszFile = path.Text();
    if (!path.Exists())
    {
        Log()->Level1W(L"GetAlertConfValue -- input file(%s) doesn't exist, exit...", pwszFile);
        return false;
    }
    const HRESULT nResult = document.Create(CLSCTX_ALL);
    if (FAILED(nResult))
    {
        Log()->Level1W(L"GetAlertConfValue -- DocumentPtr CreateInstance failed(0x%08x), XMLfile(%s)", nResult,
                       pwszFile);
        return false;
    }
    if (document.Load(pwszFile) != S_OK)
    {
        Log()->Level1W(L"GetAlertConfValue -- DocumentPtr load file(%s) failed(0x%08x)", pwszFile, 0);
        return false;
    }
    return true;
}

// The integer that a node's text begins with, of which at most 255 characters are looked at.
int NumberOf(const UniqueBstr& text) noexcept
{
    wchar_t wszValue[256];
    CopyTextW(wszValue, text.Text());
    return _wtoi(wszValue);
}

// What the two node operations say when they stop before they have a document.
struct NodeOperationTexts
{
    const wchar_t* pwszBadArguments;
    const wchar_t* pwszNoFile;
    const wchar_t* pwszNotCreated;
    const wchar_t* pwszNotLoaded;
};

constexpr NodeOperationTexts GET_TEXTS = {
    L"GetXMLNodeValue -- checking parameters fail, pwszXMLFilePath(%p), wszNodePath(%p), pwszNodeValue(%p)",
    L"GetXMLNodeValue -- XML file(%s) doesn't exist, exit...\n",
    L"GetXMLNodeValue -- DocumentPtr CreateInstance failed(0x%08x)",
    L"GetXMLNodeValue -- fail to load XML file(%s)(0x%08x).",
};

constexpr NodeOperationTexts SET_TEXTS = {
    L"SetXMLNodeValue -- checking parameters fail, pwszXMLFilePath(%p), wszNodePath(%p), pwszNodeValue(%p)",
    L"SetXMLNodeValue -- XML file(%s) doesn't exist, exit...\n",
    L"SetXMLNodeValue -- DocumentPtr CreateInstance failed(0x%08x)",
    L"SetXMLNodeValue -- fail to load XML file(%s)(0x%08x).",
};

// Some document objects crash on such a path, so it never reaches one.
bool HasEmptyStep(const wchar_t* pwszNodePath) noexcept
{
    bool bStepBegins = true;
    for (; *pwszNodePath != L'\0'; ++pwszNodePath)
    {
        if (*pwszNodePath == L'/' && bStepBegins)
        {
            return true;
        }
        bStepBegins = *pwszNodePath == L'/';
    }
    return bStepBegins; // nothing behind the last slash, or nothing at all
}

// Loads the file for a node operation. nLoaded tells how that went (see XmlDocument::Load); the result is what the
// operation returns when there is no document at all.
int OpenForNode(const NodeOperationTexts& texts, const wchar_t* pwszNodePath, const wchar_t* pwszValue,
                XmlDocument& document, HRESULT& nLoaded)
{
    const ConfigFilePath path;
    const wchar_t* const pwszFile = path.Text();
    if (pwszNodePath == nullptr || pwszValue == nullptr)
    {
        Log()->Level1W(texts.pwszBadArguments, pwszFile, pwszNodePath, pwszValue);
        return XML_FAILED;
    }
    if (!path.Exists())
    {
        Log()->Level1W(texts.pwszNoFile, pwszFile);
        return XML_FAILED;
    }
    if (HasEmptyStep(pwszNodePath) || std::wcslen(pwszNodePath) >= XML_NODE_PATH_CHARS)
    {
        return E_INVALIDARG;
    }
    const HRESULT nResult = document.Create(CLSCTX_ALL);
    if (FAILED(nResult))
    {
        Log()->Level1W(texts.pwszNotCreated, nResult);
        return nResult;
    }
    nLoaded = document.Load(pwszFile);
    if (nLoaded != S_OK)
    {
        Log()->Level4W(texts.pwszNotLoaded, pwszFile, 0);
    }
    return nLoaded == E_OUTOFMEMORY ? E_OUTOFMEMORY : 0;
}

// Finds the node at the end of a path, and makes each node on the way that is missing.
HRESULT FindOrMakeNode(XmlDocument& document, const wchar_t* pwszNodePath, ComPtr<IXMLDOMNode>& node) noexcept
{
    wchar_t wszPathSoFar[XML_NODE_PATH_CHARS]; // ended behind each step in turn
    CopyTextW(wszPathSoFar, pwszNodePath);
    ComPtr<IXMLDOMNode> parent;
    for (wchar_t* pwszStep = wszPathSoFar;;)
    {
        wchar_t* const pwszEnd = pwszStep + std::wcscspn(pwszStep, L"/");
        const bool bLast = std::exchange(*pwszEnd, L'\0') == L'\0';
        HRESULT nResult = document.Find(wszPathSoFar, node);
        if (SUCCEEDED(nResult) && !node)
        {
            nResult = document.AppendElement(parent.Get(), pwszStep, node);
        }
        if (FAILED(nResult) || !node)
        {
            Log()->Level1W(L"SetXMLNodeValue -- create root node(%s) fail.", wszPathSoFar);
            return FAILED(nResult) ? nResult : E_FAIL;
        }
        if (bLast)
        {
            return S_OK;
        }
        *pwszEnd = L'/';
        parent = node;
        pwszStep = pwszEnd + 1;
    }
}

// Copies a node's text. nLoaded is that of OpenForNode; a file that does not load gives 0 and leaves the buffer alone.
int ReadNode(const wchar_t* pwszNodePath, wchar_t* pwszValue, std::size_t cchValue, HRESULT& nLoaded) noexcept
{
    XmlDocument document(ELEMENT_NAMESPACE);
    const int nOpened = OpenForNode(GET_TEXTS, pwszNodePath, pwszValue, document, nLoaded);
    if (nOpened != 0 || nLoaded != S_OK)
    {
        return nOpened;
    }
    ComPtr<IXMLDOMNode> node;
    HRESULT nResult = document.Find(pwszNodePath, node);
    if (SUCCEEDED(nResult) && !node)
    {
        return XML_NODE_NOT_FOUND;
    }
    UniqueBstr text;
    if (SUCCEEDED(nResult))
    {
        nResult = XmlDocument::GetText(*node.Get(), text);
    }
    if (FAILED(nResult))
    {
        return nResult;
    }
    CopyTextW(pwszValue, cchValue, text.Text());
    return 0;
}

} // namespace

int GetAlertConfValue(int nAlertType, unsigned nConfType)
{
    if (nAlertType < 1 || nAlertType > ALERT_TYPES || nConfType < 1 || nConfType > CONF_TYPES)
    {
        Log()->Level1W(L"GetAlertConfValue -- checking parameters failed, nAlertType(%d), nConfType(%d)", nAlertType,
                       nConfType);
        return XML_FAILED;
    }
    XmlDocument document(ELEMENT_NAMESPACE);
    if (!OpenForNumber(document))
    {
        return XML_FAILED;
    }
    wchar_t wszNodePath[260];
    FormatTextW(wszNodePath, L"%s/%s/%s", L"KPMConfiguration", L"PkiAlert",
                POLICY_NAMES[nAlertType - 1][nConfType - 1]);
    ComPtr<IXMLDOMNode> node;
    if (FAILED(document.Find(wszNodePath, node)) || !node)
    {
        Log()->Level1W(L"GetAlertConfValue -- Not found matching node(%s), XMLfile(%s)", wszNodePath,
                       ConfigFilePath().Text());
        return XML_FAILED;
    }
    UniqueBstr text;
    if (FAILED(XmlDocument::GetText(*node.Get(), text)))
    {
        return XML_FAILED;
    }
    return NumberOf(text);
}

int GetLogLevel(int* pnLevel)
{
    if (pnLevel == nullptr)
    {
        Log()->Level1W(L"GetLogLevel -- checking parameters failed, pnLogLevel(%d)", 0);
        return XML_FAILED;
    }
    XmlDocument document(ELEMENT_NAMESPACE);
    ComPtr<IXMLDOMNode> node;
    UniqueBstr text;
    if (!OpenForNumber(document) || FAILED(document.Find(LOG_LEVEL_PATH, node)) || !node ||
        FAILED(XmlDocument::GetText(*node.Get(), text)))
    {
        return XML_FAILED;
    }
    *pnLevel = NumberOf(text);
    return 0;
}

void RefreshLogLevel()
{
    int nLevel = 0;
    if (GetLogLevel(&nLevel) == 0)
    {
        Log()->SetConfiguredLevel(nLevel);
    }
}

int GetXMLNodeValue(const wchar_t*, const wchar_t* pwszNodePath, wchar_t* pwszValue, std::size_t cchValue)
{
    HRESULT nLoaded = S_FALSE;
    return ReadNode(pwszNodePath, pwszValue, cchValue, nLoaded);
}

int ReadXMLNodeValue(const wchar_t* pwszNodePath, wchar_t* pwszValue, std::size_t cchValue)
{
    HRESULT nLoaded = S_FALSE;
    const int nResult = ReadNode(pwszNodePath, pwszValue, cchValue, nLoaded);
    return FAILED(nLoaded) ? nLoaded : nResult;
}

int SetXMLNodeValue(const wchar_t*, const wchar_t* pwszNodePath, const wchar_t* pwszValue)
{
    XmlDocument document(ELEMENT_NAMESPACE);
    HRESULT nLoaded = S_FALSE;
    const int nOpened = OpenForNode(SET_TEXTS, pwszNodePath, pwszValue, document, nLoaded);
    if (nOpened != 0 || nLoaded != S_OK)
    {
        return nOpened != 0 ? nOpened : XML_FAILED;
    }
    ComPtr<IXMLDOMNode> node;
    HRESULT nResult = FindOrMakeNode(document, pwszNodePath, node);
    if (SUCCEEDED(nResult))
    {
        nResult = XmlDocument::SetText(*node.Get(), pwszValue);
    }
    if (FAILED(nResult))
    {
        return nResult;
    }
    const ConfigFilePath path;
    nResult = document.Save(path.Text());
    if (FAILED(nResult))
    {
        Log()->Level1W(L"SetXMLNodeValue -- DocumentPtr save to file(%s) fail(0x%08x)", path.Text(), nResult);
        return nResult;
    }
    return 0;
}

} // namespace varnex
