#include "ConfigFixture.h"
#include "OwnershipLedger.h"
#include "ScriptedDom.h"

#include "config/XmlConfig.h"
#include "support/ProcessMeter.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <objbase.h>

#include <msxml2.h>

#include <functional>

namespace varnex::test
{

namespace
{

constexpr char CONFIG_TEXT[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
                               "<KPMConfiguration><PkiAlert><CPUInterval>60</CPUInterval></PkiAlert>"
                               "<VarnexLog><Level>2</Level></VarnexLog></KPMConfiguration>\r\n";

constexpr wchar_t READ_PATH[] = L"KPMConfiguration/PkiAlert/CPUInterval";
constexpr wchar_t NEW_PATH[] = L"KPMConfiguration/PkiAlertNum/Disk"; // two nodes of it are missing

constexpr IID INTERFACE_DOM_DOCUMENT = {0x2933BF81, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

// A configuration whose document objects fail on request, with the books kept.
struct FailingConfig : ConfigFixture
{
    ScriptedDom dom;
    OwnershipLedger ledger{redirector, dom};

    FailingConfig()
    {
        tree.WriteConfigText(CONFIG_TEXT);
        dom.Replace<HRESULT(IUnknown*, REFIID, void**)>(DomMethod::DocumentQueryInterface,
                                                        [this](IUnknown* pObject, REFIID iid, void** ppObject)
                                                        { return Query(pObject, iid, ppObject); });
    }
    void FailImport(const char* pszImport, HRESULT nResult)
    {
        CallFailure failure;
        failure.ullResult = static_cast<DWORD>(nResult);
        redirector.FailCall(pszImport, 1, FailMode::Once, failure);
    }
    void RefuseDocumentInterface(HRESULT nResult) { m_nQueryResult = nResult; }
    // Ends all failures and tells how many things were left behind.
    std::size_t Settle()
    {
        dom.StopFailing();
        redirector.StopFailing("CoCreateInstance");
        redirector.StopFailing("OleRun");
        redirector.StopFailing("SysAllocString");
        m_nQueryResult = S_OK;
        return ledger.TakeUnreturned();
    }

private:
    HRESULT Query(IUnknown* pObject, REFIID iid, void** ppObject)
    {
        if (FAILED(m_nQueryResult) && IsEqualIID(iid, INTERFACE_DOM_DOCUMENT))
        {
            *ppObject = nullptr;
            return m_nQueryResult;
        }
        return pObject->QueryInterface(iid, ppObject);
    }

    HRESULT m_nQueryResult = S_OK;
};

// Something that fails, what the operation then returns, and what it logs.
struct Failure
{
    const char* pszWhat;
    std::function<void(FailingConfig&)> arm;
    int nResult;
    Lines log;
};

std::function<void(FailingConfig&)> FailingImport(const char* pszImport, HRESULT nResult)
{
    return [=](FailingConfig& config) { config.FailImport(pszImport, nResult); };
}

std::function<void(FailingConfig&)> FailingMethod(DomMethod method, ULONGLONG ullCall, HRESULT nResult)
{
    return [=](FailingConfig& config) { config.dom.FailCall(method, ullCall, FailMode::FromThereOn, nResult); };
}

std::function<void(FailingConfig&)> RefusingDocumentInterface(HRESULT nResult)
{
    return [=](FailingConfig& config) { config.RefuseDocumentInterface(nResult); };
}

void CheckFailures(FailingConfig& config, const std::vector<Failure>& failures, const std::function<int()>& operation)
{
    for (const Failure& failure : failures)
    {
        CAPTURE(failure.pszWhat);
        config.TakeLog();
        failure.arm(config);
        CHECK(operation() == failure.nResult);
        CHECK(config.TakeLog() == failure.log);
        CHECK(config.Settle() == 0);
        CHECK(config.FileBytes() == CONFIG_TEXT);
        CHECK(config.tree.FilesInBin() == std::vector<std::wstring>{L"KpmCfg.xml"});
    }
}

// The failures that the two readers of numbers share word for word.
std::vector<Failure> NumberFailures(const ConfigFixture& config)
{
    const std::string file = config.FileInLog();
    const auto notCreated = [&](const char* pszStatus)
    {
        return Lines{
            Line(1, "GetAlertConfValue -- DocumentPtr CreateInstance failed(%s), XMLfile(%s)", {pszStatus, file})};
    };
    return {
        {"no class", FailingImport("CoCreateInstance", REGDB_E_CLASSNOTREG), -1, notCreated("0x80040154")},
        {"not run", FailingImport("OleRun", E_OUTOFMEMORY), -1, notCreated("0x8007000e")},
        {"no interface", RefusingDocumentInterface(E_NOINTERFACE), -1, notCreated("0x80004002")},
        {"not loaded",
         FailingMethod(DomMethod::Load, 1, E_ACCESSDENIED),
         -1,
         {Line(1, "GetAlertConfValue -- DocumentPtr load file(%s) failed(0x00000000)", {file})}},
        {"no text", FailingMethod(DomMethod::GetText, 1, E_OUTOFMEMORY), -1, {}},
    };
}

// The messages of a node operation up to the loaded document.
std::vector<Failure> OpeningFailures(const ConfigFixture& config, const std::string& operation, int nNotLoaded)
{
    const auto notCreated = [&](const char* pszStatus) {
        return Lines{Line(1, "%s -- DocumentPtr CreateInstance failed(%s)", {operation, pszStatus})};
    };
    const Lines notLoaded = {Line(4, "%s -- fail to load XML file(%s)(0x00000000).", {operation, config.FileInLog()})};
    return {
        {"no class", FailingImport("CoCreateInstance", REGDB_E_CLASSNOTREG), REGDB_E_CLASSNOTREG,
         notCreated("0x80040154")},
        {"not run", FailingImport("OleRun", E_OUTOFMEMORY), E_OUTOFMEMORY, notCreated("0x8007000e")},
        {"no interface", RefusingDocumentInterface(E_NOINTERFACE), E_NOINTERFACE, notCreated("0x80004002")},
        {"not loaded", FailingMethod(DomMethod::Load, 1, E_ACCESSDENIED), nNotLoaded, notLoaded},
        {"no memory to load", FailingMethod(DomMethod::Load, 1, E_OUTOFMEMORY), E_OUTOFMEMORY, notLoaded},
    };
}

Failure NodeFailure(const char* pszWhat, const std::function<void(FailingConfig&)>& arm, HRESULT nResult,
                    const std::string& pathSoFar)
{
    return {pszWhat, arm, nResult, {Line(1, "SetXMLNodeValue -- create root node(%s) fail.", {pathSoFar})}};
}

} // namespace

TEST_CASE("the document object is made of the system's class, for any server")
{
    ConfigFixture config;
    config.tree.WriteConfigText(CONFIG_TEXT);
    struct Made
    {
        CLSID classId;
        LPUNKNOWN pOuter;
        DWORD dwContext;
    };
    std::vector<Made> made;
    config.redirector.Replace<decltype(::CoCreateInstance)>(
        "CoCreateInstance",
        [&](REFCLSID classId, LPUNKNOWN pOuter, DWORD dwContext, REFIID iid, LPVOID* ppObject)
        {
            made.push_back({classId, pOuter, dwContext});
            return CoCreateInstance(classId, pOuter, dwContext, iid, ppObject);
        });
    int nLevel = 0;
    wchar_t wszValue[8];
    CHECK(GetAlertConfValue(1, 1) == 60);
    CHECK(GetLogLevel(&nLevel) == 0);
    CHECK(GetXMLNodeValue(nullptr, READ_PATH, wszValue, 8) == 0);
    CHECK(SetXMLNodeValue(nullptr, READ_PATH, L"61") == 0);
    constexpr CLSID classDocument = {0x2933BF90, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
    REQUIRE(made.size() == 4); // a document of its own for each operation
    for (const Made& one : made)
    {
        CHECK(IsEqualCLSID(one.classId, classDocument));
        CHECK(one.pOuter == nullptr);
        CHECK(one.dwContext == CLSCTX_ALL);
    }
}

TEST_CASE("each failure of the document object ends the reading of a policy value with -1")
{
    FailingConfig config;
    std::vector<Failure> failures = NumberFailures(config);
    failures.push_back({"no query",
                        FailingMethod(DomMethod::SelectSingleNode, 1, E_FAIL),
                        -1,
                        {Line(1,
                              "GetAlertConfValue -- Not found matching node(KPMConfiguration/PkiAlert/CPUInterval), "
                              "XMLfile(%s)",
                              {config.FileInLog()})}});
    CheckFailures(config, failures, [] { return GetAlertConfValue(1, 1); });
    CHECK(GetAlertConfValue(1, 1) == 60);
}

TEST_CASE("a policy value whose path cannot be put together is -1")
{
    FailingConfig config;
    CHECK(GetAlertConfValue(1, 1) == 60); // finds the file
    config.redirector.FailCall("_vsnwprintf", 1, FailMode::Once, 0, static_cast<ULONGLONG>(-1));
    CHECK(GetAlertConfValue(1, 1) == -1);
    CHECK(config.redirector.Failures("_vsnwprintf") == 1);
}

TEST_CASE("each failure of the document object ends the reading of the log level with -1, the level untouched")
{
    FailingConfig config;
    std::vector<Failure> failures = NumberFailures(config);
    failures.push_back({"no query", FailingMethod(DomMethod::SelectSingleNode, 1, E_FAIL), -1, {}});
    int nLevel = 77;
    CheckFailures(config, failures, [&] { return GetLogLevel(&nLevel); });
    CHECK(nLevel == 77);
    CHECK(GetLogLevel(&nLevel) == 0);
    CHECK(nLevel == 2);
}

TEST_CASE("each failure of the document object ends the reading of a node, the buffer untouched")
{
    FailingConfig config;
    std::vector<Failure> failures = OpeningFailures(config, "GetXMLNodeValue", 0);
    failures.push_back({"no query", FailingMethod(DomMethod::SelectSingleNode, 1, E_FAIL), E_FAIL, {}});
    failures.push_back({"no text", FailingMethod(DomMethod::GetText, 1, E_OUTOFMEMORY), E_OUTOFMEMORY, {}});
    wchar_t wszValue[16] = L"before";
    CheckFailures(config, failures, [&] { return GetXMLNodeValue(nullptr, READ_PATH, wszValue, 16); });
    CHECK(std::wstring(wszValue) == L"before");
    CHECK(GetXMLNodeValue(nullptr, READ_PATH, wszValue, 16) == 0);
    CHECK(std::wstring(wszValue) == L"60");
}

TEST_CASE("each failure of the document object ends the writing of a node, and the file stays as it was")
{
    FailingConfig config;
    const std::string middle = "KPMConfiguration/PkiAlertNum";
    std::vector<Failure> failures = OpeningFailures(config, "SetXMLNodeValue", -1);
    const auto notSaved = [&config](const char* pszStatus) {
        return Lines{
            Line(1, "SetXMLNodeValue -- DocumentPtr save to file(%s) fail(%s)", {config.FileInLog(), pszStatus})};
    };
    const std::vector<Failure> later = {
        NodeFailure("no query of the root", FailingMethod(DomMethod::SelectSingleNode, 1, E_FAIL), E_FAIL,
                    "KPMConfiguration"),
        NodeFailure("no query further on", FailingMethod(DomMethod::SelectSingleNode, 2, E_UNEXPECTED), E_UNEXPECTED,
                    middle),
        NodeFailure("no element", FailingMethod(DomMethod::CreateNode, 1, E_OUTOFMEMORY), E_OUTOFMEMORY, middle),
        NodeFailure("no second element", FailingMethod(DomMethod::CreateNode, 2, E_OUTOFMEMORY), E_OUTOFMEMORY,
                    middle + "/Disk"),
        NodeFailure("not appended", FailingMethod(DomMethod::AppendToElement, 1, E_ACCESSDENIED), E_ACCESSDENIED,
                    middle),
        NodeFailure("the second not appended", FailingMethod(DomMethod::AppendToElement, 2, E_ACCESSDENIED),
                    E_ACCESSDENIED, middle + "/Disk"),
        {"no text", FailingMethod(DomMethod::PutText, 1, E_OUTOFMEMORY), E_OUTOFMEMORY, {}},
        {"no text to save", FailingMethod(DomMethod::GetXml, 1, E_OUTOFMEMORY), E_OUTOFMEMORY, notSaved("0x8007000e")},
        {"text not converted",
         [](FailingConfig& failing)
         { failing.redirector.FailCall("WideCharToMultiByte", 1, FailMode::Once, ERROR_NO_UNICODE_TRANSLATION); },
         HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION), notSaved("0x80070459")},
        {"not saved",
         [](FailingConfig& failing) { failing.redirector.FailCall("WriteFile", 1, FailMode::Once, ERROR_DISK_FULL); },
         HRESULT_FROM_WIN32(ERROR_DISK_FULL), notSaved("0x80070070")},
    };
    failures.insert(failures.end(), later.begin(), later.end());
    CheckFailures(config, failures, [] { return SetXMLNodeValue(nullptr, NEW_PATH, L"1"); });
    CHECK(SetXMLNodeValue(nullptr, NEW_PATH, L"1") == 0);
    CHECK(config.tree.ConfigNode(NEW_PATH) == L"1");
}

TEST_CASE("a document element that cannot be appended ends the writing of a node")
{
    FailingConfig config;
    config.dom.LoadNothing(); // a document without any element
    CheckFailures(config,
                  {NodeFailure("not appended", FailingMethod(DomMethod::AppendToDocument, 1, E_ACCESSDENIED),
                               E_ACCESSDENIED, "KPMConfiguration"),
                   NodeFailure("no element", FailingMethod(DomMethod::CreateNode, 1, E_INVALIDARG), E_INVALIDARG,
                               "KPMConfiguration")},
                  [] { return SetXMLNodeValue(nullptr, NEW_PATH, L"1"); });
}

TEST_CASE("a success of the document object that brings no element is a failure")
{
    FailingConfig config;
    config.dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT, BSTR, BSTR, IXMLDOMNode**)>(
        DomMethod::CreateNode,
        [](IXMLDOMDocument*, VARIANT, BSTR, BSTR, IXMLDOMNode** ppNode)
        {
            *ppNode = nullptr;
            return S_OK;
        });
    CheckFailures(config,
                  {NodeFailure(
                      "no element", [](FailingConfig&) {}, E_FAIL, "KPMConfiguration/PkiAlertNum")},
                  [] { return SetXMLNodeValue(nullptr, NEW_PATH, L"1"); });
}

TEST_CASE("a node whose text is a null pointer has an empty text")
{
    ConfigFixture config;
    config.tree.WriteConfigText(CONFIG_TEXT);
    ScriptedDom dom;
    dom.Replace<HRESULT(IXMLDOMNode*, BSTR*)>(DomMethod::GetText,
                                              [](IXMLDOMNode*, BSTR* pbstrText)
                                              {
                                                  *pbstrText = nullptr;
                                                  return S_FALSE;
                                              });
    int nLevel = 77;
    wchar_t wszValue[16] = L"before";
    CHECK(GetAlertConfValue(1, 1) == 0);
    CHECK(GetLogLevel(&nLevel) == 0);
    CHECK(nLevel == 0);
    CHECK(GetXMLNodeValue(nullptr, READ_PATH, wszValue, 16) == 0);
    CHECK(std::wstring(wszValue).empty());
}

TEST_CASE("a load that is reported as a success without having loaded is a failure to load")
{
    ConfigFixture config;
    config.tree.WriteConfigText(CONFIG_TEXT);
    ScriptedDom dom;
    dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT, VARIANT_BOOL*)>(DomMethod::Load,
                                                                   [](IXMLDOMDocument*, VARIANT, VARIANT_BOOL* pbLoaded)
                                                                   {
                                                                       *pbLoaded = VARIANT_FALSE;
                                                                       return S_OK;
                                                                   });
    wchar_t wszValue[16] = L"before";
    CHECK(GetAlertConfValue(1, 1) == -1);
    CHECK(GetXMLNodeValue(nullptr, READ_PATH, wszValue, 16) == 0);
    CHECK(std::wstring(wszValue) == L"before");
    CHECK(SetXMLNodeValue(nullptr, READ_PATH, L"61") == -1);
    CHECK(config.FileBytes() == CONFIG_TEXT);
}

TEST_CASE("on a thread without COM no document can be made, and each operation says so")
{
    ConfigFixture config(ConfigFixture::Com::Absent);
    config.tree.WriteConfigText(CONFIG_TEXT);
    int nLevel = 77;
    wchar_t wszValue[16] = L"before";
    CHECK(GetAlertConfValue(1, 1) == -1);
    CHECK(GetLogLevel(&nLevel) == -1);
    CHECK(GetXMLNodeValue(nullptr, READ_PATH, wszValue, 16) == CO_E_NOTINITIALIZED);
    CHECK(SetXMLNodeValue(nullptr, READ_PATH, L"61") == CO_E_NOTINITIALIZED);
    CHECK(nLevel == 77);
    CHECK(std::wstring(wszValue) == L"before");
    CHECK(config.FileBytes() == CONFIG_TEXT);
    const std::string number = Line(
        1, "GetAlertConfValue -- DocumentPtr CreateInstance failed(0x800401f0), XMLfile(%s)", {config.FileInLog()});
    CHECK(config.TakeLog() == Lines{number, number,
                                    "[1] - GetXMLNodeValue -- DocumentPtr CreateInstance failed(0x800401f0)",
                                    "[1] - SetXMLNodeValue -- DocumentPtr CreateInstance failed(0x800401f0)"});
}

// --- nothing is left behind -----------------------------------------------------------------------------------------

TEST_CASE("a text that cannot be allocated fails the operation, whichever it is, and leaves the file whole")
{
    FailingConfig config;
    config.redirector.FailCall("SysAllocStringLen", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY); // the file's name
    CHECK(SetXMLNodeValue(nullptr, NEW_PATH, L"1") == E_OUTOFMEMORY);
    CHECK(config.Settle() == 0);
    int nFailed = 0;
    for (ULONGLONG ullCall = 1;; ++ullCall)
    {
        CAPTURE(ullCall);
        REQUIRE(ullCall < 100);
        config.tree.WriteConfigText(CONFIG_TEXT);
        config.redirector.FailCall("SysAllocString", ullCall, FailMode::FromThereOn, ERROR_NOT_ENOUGH_MEMORY);
        const int nResult = SetXMLNodeValue(nullptr, NEW_PATH, L"1");
        if (config.redirector.Failures("SysAllocString") == 0)
        {
            CHECK(nResult == 0);
            break;
        }
        ++nFailed;
        CHECK(nResult == E_OUTOFMEMORY);
        CHECK(config.Settle() == 0);
        CHECK(config.FileBytes() == CONFIG_TEXT);
    }
    // The three steps, two names and two namespaces, and the text.
    CHECK(nFailed == 8);
}

TEST_CASE("every interface and text that the document object hands out is given back")
{
    FailingConfig config;
    int nLevel = 0;
    wchar_t wszValue[16];
    const std::vector<std::pair<const char*, std::function<int()>>> operations = {
        {"policy value", [] { return GetAlertConfValue(1, 1) == 60 ? 0 : 1; }},
        {"policy value without a node", [] { return GetAlertConfValue(4, 4) == -1 ? 0 : 1; }},
        {"log level", [&] { return GetLogLevel(&nLevel); }},
        {"node", [&] { return GetXMLNodeValue(nullptr, READ_PATH, wszValue, 16); }},
        {"no such node", [&] { return GetXMLNodeValue(nullptr, NEW_PATH, wszValue, 16) == 100 ? 0 : 1; }},
        {"write of new nodes", [] { return SetXMLNodeValue(nullptr, NEW_PATH, L"1"); }},
        {"write of a node", [] { return SetXMLNodeValue(nullptr, NEW_PATH, L"2"); }},
    };
    for (const auto& [pszWhat, operation] : operations)
    {
        CAPTURE(pszWhat);
        const std::size_t nHandedBefore = config.ledger.Handed();
        CHECK(operation() == 0);
        CHECK(config.ledger.Handed() - nHandedBefore >= 3); // a document, a name and a path at least
        CHECK(config.Settle() == 0);
    }
}

TEST_CASE("no operation leaves a handle open")
{
    ConfigFixture config;
    config.tree.WriteConfigText(CONFIG_TEXT);
    wchar_t wszValue[16];
    std::size_t nHandles = 0;
    for (int nRound = 0; nRound < 5; ++nRound)
    {
        CHECK(GetAlertConfValue(1, 1) == 60);
        CHECK(GetXMLNodeValue(nullptr, READ_PATH, wszValue, 16) == 0);
        CHECK(SetXMLNodeValue(nullptr, NEW_PATH, L"1") == 0);
        config.tree.WriteConfigText("<KPMConfiguration>");
        CHECK(SetXMLNodeValue(nullptr, NEW_PATH, L"1") == -1);
        config.tree.WriteConfigText(CONFIG_TEXT);
        // The first round brings what the process keeps: the libraries and their state.
        nHandles = nRound == 0 ? CountHandles() : nHandles;
        CHECK(CountHandles() == nHandles);
    }
}

} // namespace varnex::test
