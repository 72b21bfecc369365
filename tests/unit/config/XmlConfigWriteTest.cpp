#include "ConfigFixture.h"
#include "ScriptedDom.h"

#include "config/XmlConfig.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <oleauto.h>

#include <msxml2.h>

#include <algorithm>

namespace varnex::test
{

namespace
{

constexpr char CONFIG_TEXT[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
                               "<KPMConfiguration><PkiAlert><CPUInterval>60</CPUInterval></PkiAlert>"
                               "<PkiAlertNum><Date>2026-01-30</Date><CPU>3</CPU></PkiAlertNum></KPMConfiguration>\r\n";

std::optional<std::wstring> Node(const ConfigFixture& config, const wchar_t* pwszPath)
{
    return config.tree.ConfigNode(pwszPath);
}

std::size_t CountOf(const std::string& text, const std::string& part)
{
    std::size_t nCount = 0;
    for (std::size_t nAt = text.find(part); nAt != std::string::npos; nAt = text.find(part, nAt + 1))
    {
        ++nCount;
    }
    return nCount;
}

} // namespace

TEST_CASE("a node's text is replaced and its neighbours stay")
{
    ConfigFixture config;
    config.tree.WriteConfigText(CONFIG_TEXT);
    CHECK(SetXMLNodeValue(nullptr, L"KPMConfiguration/PkiAlertNum/CPU", L"4") == 0);
    CHECK(Node(config, L"KPMConfiguration/PkiAlertNum/CPU") == L"4");
    CHECK(Node(config, L"KPMConfiguration/PkiAlertNum/Date") == L"2026-01-30");
    CHECK(Node(config, L"KPMConfiguration/PkiAlert/CPUInterval") == L"60");
    CHECK(CountOf(config.FileBytes(), "<CPU>") == 1);
    CHECK(CountOf(config.FileBytes(), "xmlns") == 0);
    CHECK(config.tree.FilesInBin() == std::vector<std::wstring>{L"KpmCfg.xml"});
    CHECK(config.TakeLog().empty());
}

TEST_CASE("any text can be written and comes back as it was")
{
    ConfigFixture config;
    config.tree.WriteConfigText(CONFIG_TEXT);
    const std::wstring longText(4000, L'7');
    for (const std::wstring& text : {std::wstring(L"a & b <c> \"d\" 'e'"), std::wstring(L"Gr\u00fc\u00dfe \u4e2d"),
                                     std::wstring(), longText, std::wstring(L"]]>")})
    {
        CHECK(SetXMLNodeValue(nullptr, L"KPMConfiguration/PkiAlertNum/Date", text.c_str()) == 0);
        CHECK(Node(config, L"KPMConfiguration/PkiAlertNum/Date") == text);
        std::wstring value(5000, L'#');
        CHECK(GetXMLNodeValue(nullptr, L"KPMConfiguration/PkiAlertNum/Date", value.data(), value.size()) == 0);
        CHECK(value.c_str() == text);
    }
}

TEST_CASE("a text takes the place of everything that the node held")
{
    ConfigFixture config;
    config.tree.WriteConfigText("<KPMConfiguration><One>a<Inner>b</Inner>c</One></KPMConfiguration>");
    CHECK(SetXMLNodeValue(nullptr, L"KPMConfiguration/One", L"new") == 0);
    CHECK(Node(config, L"KPMConfiguration/One") == L"new");
    CHECK(CountOf(config.FileBytes(), "Inner") == 0);
}

TEST_CASE("a path of one step sets the document element's text")
{
    ConfigFixture config;
    config.tree.WriteConfigText("<KPMConfiguration>old</KPMConfiguration>");
    CHECK(SetXMLNodeValue(nullptr, L"KPMConfiguration", L"new") == 0);
    CHECK(Node(config, L"KPMConfiguration") == L"new");
}

TEST_CASE("the nodes that a path lacks are made, in the module's namespace, and are found by the plain path")
{
    ConfigFixture config;
    config.tree.WriteConfigText("<KPMConfiguration><PkiAlert/></KPMConfiguration>");
    CHECK(SetXMLNodeValue(nullptr, L"KPMConfiguration/PkiAlertNum/Disk", L"9") == 0);
    CHECK(Node(config, L"KPMConfiguration/PkiAlertNum/Disk") == L"9");
    CHECK(CountOf(config.FileBytes(), "<PkiAlertNum xmlns=\"KPMAgentInfoProbe_URI\"") == 1);
    CHECK(CountOf(config.FileBytes(), "<KPMConfiguration>") == 1);
    CHECK(config.TakeLog().empty());

    // Found, not made again.
    CHECK(SetXMLNodeValue(nullptr, L"KPMConfiguration/PkiAlertNum/Disk", L"10") == 0);
    CHECK(Node(config, L"KPMConfiguration/PkiAlertNum/Disk") == L"10");
    CHECK(CountOf(config.FileBytes(), "<Disk") == 1);
    CHECK(CountOf(config.FileBytes(), "<PkiAlertNum") == 1);
}

TEST_CASE("each node that is made gets the module's namespace, a node that is there keeps its own")
{
    ConfigFixture config;
    config.tree.WriteConfigText(CONFIG_TEXT);
    ScriptedDom dom;
    std::vector<std::wstring> made;
    dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT, BSTR, BSTR, IXMLDOMNode**)>(
        DomMethod::CreateNode,
        [&](IXMLDOMDocument* pDocument, VARIANT type, BSTR bstrName, BSTR bstrSpace, IXMLDOMNode** ppNode)
        {
            const int nType = type.vt == VT_I4 ? static_cast<int>(type.lVal) : -1;
            made.push_back(std::to_wstring(nType) + L" " + bstrName + L" " + bstrSpace);
            return pDocument->createNode(type, bstrName, bstrSpace, ppNode);
        });
    CHECK(SetXMLNodeValue(nullptr, L"KPMConfiguration/PkiAlertNum/Deep/Deeper", L"1") == 0);
    CHECK(made == std::vector<std::wstring>{L"1 Deep KPMAgentInfoProbe_URI", L"1 Deeper KPMAgentInfoProbe_URI"});
    CHECK(Node(config, L"KPMConfiguration/PkiAlertNum/Deep/Deeper") == L"1");
    CHECK(Node(config, L"KPMConfiguration/PkiAlertNum/CPU") == L"3");
}

TEST_CASE("a document without any element gets its document element")
{
    ConfigFixture config;
    config.tree.WriteConfigText(CONFIG_TEXT);
    ScriptedDom dom;
    dom.LoadNothing(); // no file loads as such a document
    CHECK(SetXMLNodeValue(nullptr, L"KPMConfiguration/PkiAlertNum/Disk", L"2") == 0);
    CHECK(Node(config, L"KPMConfiguration/PkiAlertNum/Disk") == L"2");
    CHECK(Node(config, L"KPMConfiguration/PkiAlert/CPUInterval") == std::nullopt);
    CHECK(CountOf(config.FileBytes(), "<KPMConfiguration xmlns=\"KPMAgentInfoProbe_URI\"") == 1);
    CHECK(config.TakeLog().empty());
}

TEST_CASE("a file of another document element is not touched")
{
    ConfigFixture config;
    const std::string text = "<Other><PkiAlertNum><CPU>3</CPU></PkiAlertNum></Other>";
    config.tree.WriteConfigText(text);
    CHECK(SetXMLNodeValue(nullptr, L"KPMConfiguration/PkiAlertNum/CPU", L"4") == E_FAIL);
    CHECK(config.TakeLog() == Lines{"[1] - SetXMLNodeValue -- create root node(KPMConfiguration) fail."});
    CHECK(config.FileBytes() == text);
    CHECK(config.tree.FilesInBin() == std::vector<std::wstring>{L"KpmCfg.xml"});
}

TEST_CASE("the file that a node writer is given does not matter")
{
    ConfigFixture config;
    config.tree.WriteConfigText(CONFIG_TEXT);
    const std::wstring otherFile = config.tree.InBin(L"Other.xml");
    WriteFileBytes(otherFile, CONFIG_TEXT);
    CHECK(SetXMLNodeValue(otherFile.c_str(), L"KPMConfiguration/PkiAlertNum/CPU", L"8") == 0);
    CHECK(Node(config, L"KPMConfiguration/PkiAlertNum/CPU") == L"8");
    CHECK(ReadFileBytes(otherFile) == CONFIG_TEXT);
}

TEST_CASE("a node writer without a path or a text is refused with all it was given, before the file is looked for")
{
    ConfigFixture config;
    const wchar_t* const pwszPath = L"KPMConfiguration/One";
    const wchar_t* const pwszText = L"text";
    const std::string end = ", wszNodePath(%s), pwszNodeValue(%s)";
    CHECK(SetXMLNodeValue(nullptr, nullptr, pwszText) == -1);
    CHECK(SetXMLNodeValue(nullptr, pwszPath, nullptr) == -1);
    const Lines lines = config.TakeLog();
    REQUIRE(lines.size() == 2);
    const std::string begin = "SetXMLNodeValue -- checking parameters fail, pwszXMLFilePath(";
    const std::string ownPath = lines[0].substr(Line(1, begin).size(), 16);
    CHECK(static_cast<const wchar_t*>(reinterpret_cast<const void*>(std::stoull(ownPath, nullptr, 16))) ==
          config.File());
    CHECK(lines[0] == Line(1, begin + ownPath + ")" + end, {PointerText(nullptr), PointerText(pwszText)}));
    CHECK(lines[1] == Line(1, begin + ownPath + ")" + end, {PointerText(pwszPath), PointerText(nullptr)}));
}

TEST_CASE("a missing file is not made by a write, whatever the path")
{
    ConfigFixture config;
    for (const wchar_t* const pwszPath : {L"KPMConfiguration/One", L"KPMConfiguration//One", L""})
    {
        CHECK(SetXMLNodeValue(nullptr, pwszPath, L"text") == -1);
        CHECK(config.TakeLog() ==
              Lines{Line(1, "SetXMLNodeValue -- XML file(%s) doesn't exist, exit...", {config.FileInLog()}), ""});
    }
    CHECK(config.tree.FilesInBin().empty());
}

TEST_CASE("a path of 259 characters is written and read, a longer one is refused without a document")
{
    ConfigFixture config;
    config.tree.WriteConfigText(CONFIG_TEXT);
    const std::wstring root = L"KPMConfiguration/";
    const std::wstring longest = root + std::wstring(259 - root.size(), L'n');
    const std::wstring longer = longest + L"n";
    wchar_t wszValue[16] = L"before";
    CHECK(SetXMLNodeValue(nullptr, longest.c_str(), L"text") == 0);
    CHECK(GetXMLNodeValue(nullptr, longest.c_str(), wszValue, 16) == 0);
    CHECK(std::wstring(wszValue) == L"text");
    config.redirector.CountCalls("CoCreateInstance");
    CHECK(SetXMLNodeValue(nullptr, longer.c_str(), L"other") == E_INVALIDARG);
    CHECK(GetXMLNodeValue(nullptr, longer.c_str(), wszValue, 16) == E_INVALIDARG);
    CHECK(config.redirector.Calls("CoCreateInstance") == 0);
    CHECK(Node(config, longest.c_str()) == L"text");
    CHECK(config.TakeLog().empty());
}

TEST_CASE("a malformed file is not written")
{
    ConfigFixture config;
    const std::string text = "<KPMConfiguration><One>";
    config.tree.WriteConfigText(text);
    CHECK(SetXMLNodeValue(nullptr, L"KPMConfiguration/One", L"text") == -1);
    CHECK(config.TakeLog() ==
          Lines{Line(4, "SetXMLNodeValue -- fail to load XML file(%s)(0x00000000).", {config.FileInLog()})});
    CHECK(config.FileBytes() == text);
    CHECK(config.tree.FilesInBin() == std::vector<std::wstring>{L"KpmCfg.xml"});
}

TEST_CASE("a path with an empty step is refused without a document, for writing")
{
    ConfigFixture config;
    config.tree.WriteConfigText(CONFIG_TEXT);
    config.redirector.CountCalls("CoCreateInstance");
    for (const wchar_t* const pwszPath : {L"", L"/", L"KPMConfiguration/", L"/KPMConfiguration", L"//One",
                                          L"KPMConfiguration//One", L"KPMConfiguration/One//"})
    {
        CHECK(SetXMLNodeValue(nullptr, pwszPath, L"text") == E_INVALIDARG);
    }
    CHECK(config.redirector.Calls("CoCreateInstance") == 0);
    CHECK(config.TakeLog().empty());
    CHECK(config.FileBytes() == CONFIG_TEXT);
}

} // namespace varnex::test
