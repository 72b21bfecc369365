// The XML document object and what COM says around it. Where only the title of a page is given, it is of the parser's own
// manual.

#include "Codes.h"
#include "Conformance.h"

#include "common/Com.h"
#include "common/Handles.h"
#include "support/ChildProcess.h"
#include "support/ModuleTree.h"
#include "support/TestText.h"
#include "unit/config/ScriptedDom.h"

#include <catch2/catch.hpp>

#include <msxml2.h>

namespace varnex::test
{

namespace
{

constexpr CLSID CLASS_DOCUMENT = {0x2933BF90, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr IID INTERFACE_DOCUMENT = {0x2933BF81, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr DWORD PATIENCE_MS = 20000;

class Apartment
{
public:
    explicit Apartment(DWORD dwModel = COINIT_APARTMENTTHREADED) { CoInitializeEx(nullptr, dwModel); }
    ~Apartment() { CoUninitialize(); }
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;
};

// The scripted document objects, with nothing scripted: every call goes through their gates.
Fakes DocumentFakes()
{
    return {{"scripted DOM",
             []
             {
                 struct Machine
                 {
                     Apartment apartment;
                     ScriptedDom dom;
                 };
                 return std::make_shared<Machine>();
             },
             true}};
}

using Document = ComPtr<IXMLDOMDocument>;

Document NewDocument(bool bAsync = false)
{
    Document document;
    CoCreateInstance(CLASS_DOCUMENT, nullptr, CLSCTX_ALL, INTERFACE_DOCUMENT,
                     reinterpret_cast<void**>(document.GetAddressOf()));
    if (document && !bAsync)
    {
        document->put_async(VARIANT_FALSE);
    }
    return document;
}

Document Parsed(const wchar_t* pwszText)
{
    const Document document = NewDocument();
    VARIANT_BOOL bLoaded = VARIANT_FALSE;
    document->loadXML(UniqueBstr(pwszText).Get(), &bLoaded);
    return document;
}

ScopedVariant* Place(ScopedVariant& target, const std::wstring& path)
{
    target.SetText(UniqueBstr(path.c_str()));
    return &target;
}

std::string LoadName(IXMLDOMDocument& document, const std::wstring& path)
{
    ScopedVariant source;
    VARIANT_BOOL bLoaded = VARIANT_FALSE;
    const HRESULT nResult = document.load(Place(source, path)->Get(), &bLoaded);
    return ResultName(nResult) + (bLoaded != VARIANT_FALSE ? ", loaded" : ", not loaded");
}

HRESULT SaveTo(IXMLDOMDocument& document, const std::wstring& path)
{
    ScopedVariant target;
    return document.save(Place(target, path)->Get());
}

std::string XmlOf(IXMLDOMDocument& document)
{
    UniqueBstr text;
    document.get_xml(text.Receive());
    return Utf8FromWide(text.Text());
}

std::string Find(IXMLDOMDocument& document, const wchar_t* pwszPath)
{
    ComPtr<IXMLDOMNode> node;
    const HRESULT nResult = document.selectSingleNode(UniqueBstr(pwszPath).Get(), node.GetAddressOf());
    return ResultName(nResult) + (node ? ", a node" : ", no node");
}

std::string TextAt(IXMLDOMDocument& document, const wchar_t* pwszPath)
{
    ComPtr<IXMLDOMNode> node;
    document.selectSingleNode(UniqueBstr(pwszPath).Get(), node.GetAddressOf());
    if (!node)
    {
        return "no node";
    }
    UniqueBstr text;
    const HRESULT nResult = node->get_text(text.Receive());
    return ResultName(nResult) + ", [" + Utf8FromWide(text.Text()) + "]";
}

ComPtr<IXMLDOMNode> NewNode(IXMLDOMDocument& document, const wchar_t* pwszName, const wchar_t* pwszSpace)
{
    ScopedVariant type;
    type.SetLong(NODE_ELEMENT);
    ComPtr<IXMLDOMNode> node;
    document.createNode(type.Get(), UniqueBstr(pwszName).Get(), UniqueBstr(pwszSpace).Get(), node.GetAddressOf());
    return node;
}

std::string Succeeds(HRESULT nResult)
{
    return SUCCEEDED(nResult) ? "success" : "failure";
}

// The file KpmCfg.xml of a tree, and others beside it.
struct Files
{
    explicit Files(const std::string& text = "<a><b>1</b></a>") { tree.WriteConfigText(text); }
    ModuleTree tree;
    std::wstring path = tree.InBin(L"KpmCfg.xml");
};

const std::string LOAD_PAGE = "load Method (DOMDocument)";
const std::string SAVE_PAGE = "save Method (DOMDocument)";
const std::string SELECT_PAGE = "selectSingleNode Method";
const std::string TEXT_PAGE = "text Property";
const std::string ASYNC_PAGE = "async Property";
const std::string CREATE_PAGE = "windows/win32/api/combaseapi/nf-combaseapi-cocreateinstance";
const std::string INITIALIZE_PAGE = "windows/win32/api/combaseapi/nf-combaseapi-coinitializeex";

} // namespace

// --- COM ------------------------------------------------------------------------------------------------------------

TEST_CASE("document: COM that is initialised again on a thread says so")
{
    Verify(Documented("S_OK, S_FALSE", INITIALIZE_PAGE),
           []
           {
               const std::string first = ResultName(CoInitialize(nullptr));
               const std::string second = ResultName(CoInitialize(nullptr));
               CoUninitialize();
               CoUninitialize();
               return first + ", " + second;
           });
}

TEST_CASE("document: COM that is initialised with the other model is refused")
{
    Verify(Documented("S_OK, RPC_E_CHANGED_MODE", INITIALIZE_PAGE),
           []
           {
               const std::string first = ResultName(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
               const std::string second = ResultName(CoInitialize(nullptr));
               CoUninitialize();
               return first + ", " + second;
           });
}

TEST_CASE("document: without COM no document is made")
{
    Verify(Documented("CO_E_NOTINITIALIZED", CREATE_PAGE),
           []
           {
               Document document;
               return ResultName(CoCreateInstance(CLASS_DOCUMENT, nullptr, CLSCTX_ALL, INTERFACE_DOCUMENT,
                                                  reinterpret_cast<void**>(document.GetAddressOf())));
           });
}

TEST_CASE("document: an unknown class is told as one that is not registered")
{
    Verify(Documented("REGDB_E_CLASSNOTREG", CREATE_PAGE),
           []
           {
               const Apartment apartment;
               CLSID unknown = CLASS_DOCUMENT;
               unknown.Data1 = 0x12345678;
               ComPtr<IUnknown> object;
               return ResultName(CoCreateInstance(unknown, nullptr, CLSCTX_ALL, IID_IUnknown,
                                                  reinterpret_cast<void**>(object.GetAddressOf())));
           });
}

TEST_CASE("document: a null text is an empty one")
{
    Verify(Documented("0", "windows/win32/api/oleauto/nf-oleauto-sysstringlen"),
           []
           {
               SysFreeString(nullptr);
               return std::to_string(SysStringLen(nullptr));
           });
}

// --- loading --------------------------------------------------------------------------------------------------------

TEST_CASE("document: a document loads asynchronously unless it is told otherwise")
{
    Verify(
        Documented("asynchronously", ASYNC_PAGE),
        []
        {
            const Apartment apartment;
            VARIANT_BOOL bAsync = VARIANT_FALSE;
            NewDocument(true)->get_async(&bAsync);
            return std::string(bAsync != VARIANT_FALSE ? "asynchronously" : "synchronously");
        },
        DocumentFakes());
}

std::string StateAfterLoad(DWORD dwModel)
{
    const Apartment apartment(dwModel);
    const Files files("<a>" + std::string(200000, 'x') + "</a>");
    const Document document = NewDocument(true);
    const std::string loaded = LoadName(*document.Get(), files.path);
    long nState = 0;
    document->get_readyState(&nState);
    return loaded + ", state " + std::to_string(nState) + ", " + Find(*document.Get(), L"a");
}

TEST_CASE("document: what is there right after a load in a single-threaded apartment, unless it is told otherwise")
{
    Verify(Unknown(ASYNC_PAGE).OnWine("S_OK, loaded, state 4, S_OK, a node"),
           [] { return StateAfterLoad(COINIT_APARTMENTTHREADED); });
}

std::string OnOwnThread(const std::function<std::string()>& body)
{
    struct Run
    {
        const std::function<std::string()>& body;
        std::string answer;
    } run{body, {}};
    const auto thread = [](void* pRun) -> DWORD
    {
        static_cast<Run*>(pRun)->answer = static_cast<Run*>(pRun)->body();
        return 0;
    };
    const UniqueHandle handle(CreateThread(nullptr, 0, +thread, &run, 0, nullptr));
    WaitForSingleObject(handle.Get(), INFINITE);
    return run.answer;
}

TEST_CASE("document: what is there right after a load in the multithreaded apartment, unless it is told otherwise")
{
    Verify(Unknown(ASYNC_PAGE).OnWine("S_OK, loaded, state 4, S_OK, a node"),
           [] { return OnOwnThread([] { return StateAfterLoad(COINIT_MULTITHREADED); }); });
}

TEST_CASE("document: a synchronous load is complete when it returns")
{
    Verify(
        Documented("S_OK, loaded, state 4", LOAD_PAGE),
        []
        {
            const Apartment apartment;
            const Files files;
            const Document document = NewDocument();
            const std::string loaded = LoadName(*document.Get(), files.path);
            long nState = 0;
            document->get_readyState(&nState);
            return loaded + ", state " + std::to_string(nState);
        },
        DocumentFakes());
}

TEST_CASE("document: a missing file does not load, without an error")
{
    Verify(
        Documented("S_FALSE, not loaded", LOAD_PAGE),
        []
        {
            const Apartment apartment;
            const Files files;
            return LoadName(*NewDocument().Get(), files.tree.InBin(L"Missing.xml"));
        },
        DocumentFakes());
}

TEST_CASE("document: a malformed file does not load, without an error")
{
    Verify(
        Documented("S_FALSE, not loaded", LOAD_PAGE),
        []
        {
            const Apartment apartment;
            const Files files("<a><b></a>");
            return LoadName(*NewDocument().Get(), files.path);
        },
        DocumentFakes());
}

TEST_CASE("document: an empty file does not load, without an error")
{
    Verify(
        Documented("S_FALSE, not loaded", LOAD_PAGE),
        []
        {
            const Apartment apartment;
            const Files files("");
            return LoadName(*NewDocument().Get(), files.path);
        },
        DocumentFakes());
}

TEST_CASE("document: a file that somebody keeps for himself does not load, as a malformed one")
{
    Verify(
        Documented("S_FALSE, not loaded", LOAD_PAGE),
        []
        {
            const Apartment apartment;
            const Files files;
            const UniqueFile held(CreateFileW(files.path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                              FILE_ATTRIBUTE_NORMAL, nullptr));
            return LoadName(*NewDocument().Get(), files.path);
        },
        DocumentFakes());
}

TEST_CASE("document: a file that somebody only lets be read loads")
{
    Verify(
        Unknown(LOAD_PAGE).OnWine("S_OK, loaded"),
        []
        {
            const Apartment apartment;
            const Files files;
            const UniqueFile held(CreateFileW(files.path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                              FILE_ATTRIBUTE_NORMAL, nullptr));
            return LoadName(*NewDocument().Get(), files.path);
        },
        DocumentFakes());
}

TEST_CASE("document: a document keeps no hold on the file that it was loaded from")
{
    Verify(
        Unknown(LOAD_PAGE).OnWine("none"),
        []
        {
            const Apartment apartment;
            const Files files;
            const Document document = NewDocument();
            LoadName(*document.Get(), files.path);
            const UniqueFile alone(CreateFileW(files.path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                               FILE_ATTRIBUTE_NORMAL, nullptr));
            return std::string(alone ? "none" : "a hold");
        },
        DocumentFakes());
}

TEST_CASE("document: a failed load leaves no document element")
{
    Verify(
        Documented("S_FALSE, none", "documentElement Property"),
        []
        {
            const Apartment apartment;
            const Files files("<a><b></a>");
            const Document document = Parsed(L"<x/>");
            LoadName(*document.Get(), files.path);
            ComPtr<IXMLDOMElement> root;
            const std::string result = ResultName(document->get_documentElement(root.GetAddressOf()));
            return result + (root ? ", one" : ", none");
        },
        DocumentFakes());
}

// %41 is an A in a URL.
TEST_CASE("document: a percent sign in a path is read as in a URL")
{
    Verify(
        Unknown(LOAD_PAGE).OnWine("as in a URL"),
        []
        {
            const Apartment apartment;
            const Files files;
            WriteFileBytes(files.tree.InBin(L"P%41.xml"), "<plain/>");
            WriteFileBytes(files.tree.InBin(L"PA.xml"), "<url/>");
            const Document document = NewDocument();
            LoadName(*document.Get(), files.tree.InBin(L"P%41.xml"));
            return XmlOf(*document.Get()).substr(0, 7) == "<plain/" ? std::string("the path as it stands")
                                                                    : std::string("as in a URL");
        },
        DocumentFakes());
}

TEST_CASE("document: %25 in a path is a percent sign")
{
    Verify(
        Unknown(LOAD_PAGE).OnWine("S_OK, loaded"),
        []
        {
            const Apartment apartment;
            const Files files;
            WriteFileBytes(files.tree.InBin(L"P%41.xml"), "<plain/>");
            return LoadName(*NewDocument().Get(), files.tree.InBin(L"P%2541.xml"));
        },
        DocumentFakes());
}

TEST_CASE("document: a file of UTF-16 with a mark loads")
{
    Verify(
        Documented("S_OK, loaded", LOAD_PAGE),
        []
        {
            const Apartment apartment;
            std::string bytes = "\xFF\xFE";
            for (const char ch : std::string("<?xml version=\"1.0\" encoding=\"UTF-16\"?><a/>"))
            {
                bytes += ch;
                bytes += '\0';
            }
            const Files files(bytes);
            return LoadName(*NewDocument().Get(), files.path);
        },
        DocumentFakes());
}

TEST_CASE("document: a file of Latin letters is read by its declaration")
{
    Verify(
        Documented("S_OK, [\xC3\xA9]", LOAD_PAGE),
        []
        {
            const Apartment apartment;
            const Files files("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xE9</a>");
            const Document document = NewDocument();
            LoadName(*document.Get(), files.path);
            return TextAt(*document.Get(), L"a");
        },
        DocumentFakes());
}

// --- saving ---------------------------------------------------------------------------------------------------------

TEST_CASE("document: a document that was saved loads again")
{
    Verify(
        Documented("S_OK; S_OK, loaded; S_OK, [1]", SAVE_PAGE),
        []
        {
            const Apartment apartment;
            const Files files;
            const std::wstring path = files.tree.InBin(L"Saved.xml");
            std::string answer = ResultName(SaveTo(*Parsed(L"<a><b>1</b></a>").Get(), path));
            const Document document = NewDocument();
            answer += "; " + LoadName(*document.Get(), path);
            return answer + "; " + TextAt(*document.Get(), L"a/b");
        },
        DocumentFakes());
}

TEST_CASE("document: a document is saved in the encoding that it declares")
{
    Verify(
        Documented("one byte for the letter", SAVE_PAGE).OnWine("another encoding"),
        []
        {
            const Apartment apartment;
            const Files files("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xE9</a>");
            const Document document = NewDocument();
            LoadName(*document.Get(), files.path);
            SaveTo(*document.Get(), files.path);
            return std::string(ReadFileBytes(files.path).find("<a>\xE9</a>") != std::string::npos
                                   ? "one byte for the letter"
                                   : "another encoding");
        },
        DocumentFakes());
}

TEST_CASE("document: a document of UTF-16 loads again after it was saved")
{
    Verify(
        Documented("S_OK, loaded; S_OK, loaded", SAVE_PAGE).OnWine("S_OK, loaded; S_FALSE, not loaded"),
        []
        {
            const Apartment apartment;
            std::string bytes = "\xFF\xFE";
            for (const char ch : std::string("<?xml version=\"1.0\" encoding=\"UTF-16\"?><a/>"))
            {
                bytes += ch;
                bytes += '\0';
            }
            const Files files(bytes);
            const Document document = NewDocument();
            const std::string before = LoadName(*document.Get(), files.path);
            SaveTo(*document.Get(), files.path);
            return before + "; " + LoadName(*NewDocument().Get(), files.path);
        },
        DocumentFakes());
}

TEST_CASE("document: a document is not saved into a directory that is not there")
{
    Verify(
        Documented("failure", SAVE_PAGE),
        []
        {
            const Apartment apartment;
            const Files files;
            return Succeeds(SaveTo(*Parsed(L"<a/>").Get(), files.tree.InBin(L"no\\Saved.xml")));
        },
        DocumentFakes());
}

TEST_CASE("document: a document is not saved into a file that somebody keeps for himself")
{
    Verify(
        Documented("failure, the old content", SAVE_PAGE),
        []
        {
            const Apartment apartment;
            const Files files;
            std::string answer;
            {
                const UniqueFile held(CreateFileW(files.path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                                  FILE_ATTRIBUTE_NORMAL, nullptr));
                answer = Succeeds(SaveTo(*Parsed(L"<new/>").Get(), files.path));
            }
            const bool bOld = ReadFileBytes(files.path) == "<a><b>1</b></a>";
            return answer + (bOld ? ", the old content" : ", another content");
        },
        DocumentFakes());
}

TEST_CASE("document: a document is not saved into a read-only file")
{
    Verify(
        Documented("failure", SAVE_PAGE).OnWineOfRoot("success"),
        []
        {
            const Apartment apartment;
            const Files files;
            SetFileAttributesW(files.path.c_str(), FILE_ATTRIBUTE_READONLY);
            const std::string answer = Succeeds(SaveTo(*Parsed(L"<new/>").Get(), files.path));
            SetFileAttributesW(files.path.c_str(), FILE_ATTRIBUTE_NORMAL);
            return answer;
        },
        DocumentFakes());
}

// The parser's own writes fail as on a full disk.
TEST_CASE("document: a save whose writes fail, as on a full disk, tells of it")
{
    Verify(
        Unknown(SAVE_PAGE).OnWine("success", "unit_config: small disk: a save without any room leaves the old file"),
        []
        {
            const Apartment apartment;
            const Files files;
            const Document document = Parsed(L"<a/>");
            ImportRedirector parser(GetModuleHandleW(L"msxml3.dll"));
            if (!parser.Has("WriteFile"))
            {
                return std::string("the parser writes in another way");
            }
            parser.FailCall("WriteFile", 1, FailMode::FromThereOn, ERROR_DISK_FULL);
            return Succeeds(SaveTo(*document.Get(), files.path));
        },
        DocumentFakes());
}

TEST_CASE("document: a percent sign in the path of a save is part of the name")
{
    Verify(
        Unknown(SAVE_PAGE).OnWine("part of the name"),
        []
        {
            const Apartment apartment;
            const Files files;
            SaveTo(*Parsed(L"<a/>").Get(), files.tree.InBin(L"S%41.xml"));
            return std::string(FileExists(files.tree.InBin(L"S%41.xml")) ? "part of the name" : "as in a URL");
        },
        DocumentFakes());
}

// --- nodes ----------------------------------------------------------------------------------------------------------

TEST_CASE("document: a path that leads nowhere finds no node, without an error")
{
    Verify(
        Documented("S_FALSE, no node", SELECT_PAGE),
        []
        {
            const Apartment apartment;
            return Find(*Parsed(L"<a><b/></a>").Get(), L"a/c");
        },
        DocumentFakes());
}

TEST_CASE("document: a plain path finds an element that stands in a namespace")
{
    Verify(
        Unknown(SELECT_PAGE).OnWine("S_OK, a node"),
        []
        {
            const Apartment apartment;
            return Find(*Parsed(L"<a xmlns=\"some\"><b/></a>").Get(), L"a/b");
        },
        DocumentFakes());
}

TEST_CASE("document: names in a path are compared with regard to case")
{
    Verify(
        Documented("S_FALSE, no node", SELECT_PAGE),
        []
        {
            const Apartment apartment;
            return Find(*Parsed(L"<a><b/></a>").Get(), L"a/B");
        },
        DocumentFakes());
}

TEST_CASE("document: of two equal elements a path finds the first")
{
    Verify(
        Documented("S_OK, [1]", SELECT_PAGE),
        []
        {
            const Apartment apartment;
            return TextAt(*Parsed(L"<a><b>1</b><b>2</b></a>").Get(), L"a/b");
        },
        DocumentFakes());
}

TEST_CASE("child: a path ends in a slash", "[.]")
{
    const Apartment apartment;
    ExitProcess(Find(*Parsed(L"<a/>").Get(), L"a/") == "S_FALSE, no node" ? 40 : 41);
}

TEST_CASE("document: a path that ends in a slash")
{
    Verify(Unknown(SELECT_PAGE).OnWine("the process crashes"),
           []
           {
               const ChildProcess child = ChildProcess::OfTestCase("child: a path ends in a slash");
               if (!child.WaitForEnd(PATIENCE_MS))
               {
                   return std::string("the process hangs");
               }
               const DWORD dwCode = child.ExitCode();
               return std::string(dwCode == 40 ? "no node" : dwCode == 41 ? "an error" : "the process crashes");
           });
}

TEST_CASE("document: an element without text reads as an empty one")
{
    Verify(
        Documented("S_OK, []", TEXT_PAGE),
        []
        {
            const Apartment apartment;
            return TextAt(*Parsed(L"<a><b/></a>").Get(), L"a/b");
        },
        DocumentFakes());
}

TEST_CASE("document: an element's text has no white space around it")
{
    Verify(
        Documented("S_OK, [1]", TEXT_PAGE),
        []
        {
            const Apartment apartment;
            return TextAt(*Parsed(L"<a><b>  1\n </b></a>").Get(), L"a/b");
        },
        DocumentFakes());
}

TEST_CASE("document: an element's text is that of all elements in it")
{
    Verify(
        Documented("S_OK, [12]", TEXT_PAGE),
        []
        {
            const Apartment apartment;
            return TextAt(*Parsed(L"<a><b>1</b><c>2</c></a>").Get(), L"a");
        },
        DocumentFakes());
}

TEST_CASE("document: a text that is put takes the place of everything in the element")
{
    Verify(
        Documented("S_OK, [new], S_FALSE, no node", TEXT_PAGE),
        []
        {
            const Apartment apartment;
            const Document document = Parsed(L"<a><b>1</b></a>");
            ComPtr<IXMLDOMElement> root;
            document->get_documentElement(root.GetAddressOf());
            root->put_text(UniqueBstr(L"new").Get());
            return TextAt(*document.Get(), L"a") + ", " + Find(*document.Get(), L"a/b");
        },
        DocumentFakes());
}

TEST_CASE("document: a text with marks of its own is written escaped and read as it was")
{
    Verify(
        Documented("S_OK, [<&>]", TEXT_PAGE),
        []
        {
            const Apartment apartment;
            const Document document = Parsed(L"<a/>");
            ComPtr<IXMLDOMElement> root;
            document->get_documentElement(root.GetAddressOf());
            root->put_text(UniqueBstr(L"<&>").Get());
            const std::wstring xml = WideFromUtf8(XmlOf(*document.Get()));
            return TextAt(*Parsed(xml.c_str()).Get(), L"a");
        },
        DocumentFakes());
}

TEST_CASE("document: a new document has no element")
{
    Verify(
        Documented("S_FALSE, none", "documentElement Property"),
        []
        {
            const Apartment apartment;
            ComPtr<IXMLDOMElement> root;
            const std::string result = ResultName(NewDocument()->get_documentElement(root.GetAddressOf()));
            return result + (root ? ", one" : ", none");
        },
        DocumentFakes());
}

TEST_CASE("document: a second document element is refused")
{
    Verify(
        Documented("success, failure", "appendChild Method").OnWine("success, success"),
        []
        {
            const Apartment apartment;
            const Document document = NewDocument();
            std::string answer;
            for (const wchar_t* pwszName : {L"a", L"b"})
            {
                ComPtr<IXMLDOMNode> added;
                answer += answer.empty() ? "" : ", ";
                answer += Succeeds(
                    document->appendChild(NewNode(*document.Get(), pwszName, L"").Get(), added.GetAddressOf()));
            }
            return answer;
        },
        DocumentFakes());
}

TEST_CASE("document: an element that was made in a namespace declares it")
{
    Verify(
        Documented("declared", "createNode Method"),
        []
        {
            const Apartment apartment;
            const Document document = NewDocument();
            ComPtr<IXMLDOMNode> added;
            document->appendChild(NewNode(*document.Get(), L"a", L"some").Get(), added.GetAddressOf());
            return std::string(XmlOf(*document.Get()).find("xmlns=\"some\"") != std::string::npos ? "declared"
                                                                                                  : "not declared");
        },
        DocumentFakes());
}

TEST_CASE("document: a child in its parent's namespace does not declare it again")
{
    Verify(
        Unknown("xml Property").OnWine("twice"),
        []
        {
            const Apartment apartment;
            const Document document = NewDocument();
            ComPtr<IXMLDOMNode> root;
            ComPtr<IXMLDOMNode> added;
            document->appendChild(NewNode(*document.Get(), L"a", L"some").Get(), root.GetAddressOf());
            root->appendChild(NewNode(*document.Get(), L"b", L"some").Get(), added.GetAddressOf());
            const std::string xml = XmlOf(*document.Get());
            return std::string(xml.find("xmlns") == xml.rfind("xmlns") ? "once" : "twice");
        },
        DocumentFakes());
}

TEST_CASE("document: a document's text is not indented")
{
    Verify(
        Unknown("xml Property").OnWine("indented"),
        []
        {
            const Apartment apartment;
            return std::string(XmlOf(*Parsed(L"<a><b/></a>").Get()).find("<a><b/></a>") != std::string::npos
                                   ? "not indented"
                                   : "indented");
        },
        DocumentFakes());
}

TEST_CASE("document: a document's text ends in a line end")
{
    Verify(
        Unknown("xml Property").OnWine("with a line end"),
        []
        {
            const Apartment apartment;
            const std::string xml = XmlOf(*Parsed(L"<a/>").Get());
            return std::string(xml.size() > 2 && xml.substr(xml.size() - 2) == "\r\n" ? "with a line end"
                                                                                      : "without a line end");
        },
        DocumentFakes());
}

TEST_CASE("document: an attribute that is set again is replaced")
{
    Verify(
        Documented("S_OK, once, new", "setNamedItem Method"),
        []
        {
            const Apartment apartment;
            const Document document = Parsed(L"<a x=\"old\"/>");
            ComPtr<IXMLDOMElement> root;
            document->get_documentElement(root.GetAddressOf());
            ComPtr<IXMLDOMNamedNodeMap> attributes;
            root->get_attributes(attributes.GetAddressOf());
            ComPtr<IXMLDOMAttribute> attribute;
            document->createAttribute(UniqueBstr(L"x").Get(), attribute.GetAddressOf());
            attribute->put_text(UniqueBstr(L"new").Get());
            ComPtr<IXMLDOMNode> set;
            const std::string result = ResultName(attributes->setNamedItem(attribute.Get(), set.GetAddressOf()));
            const std::string xml = XmlOf(*document.Get());
            return result + (xml.find("x=") == xml.rfind("x=") ? ", once" : ", twice") +
                   (xml.find("\"new\"") != std::string::npos ? ", new" : ", old");
        },
        DocumentFakes());
}

} // namespace varnex::test
