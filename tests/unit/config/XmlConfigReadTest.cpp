#include "ConfigFixture.h"

#include "common/Handles.h"
#include "config/XmlConfig.h"
#include "diag/SPLogger.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <objbase.h>

#include <climits>

namespace varnex::test
{

namespace
{

struct PolicyNode
{
    int nAlertType;
    unsigned confType;
    const char* pszName;
};

constexpr PolicyNode POLICY_NODES[] = {
    {1, 1, "CPUInterval"},          {1, 2, "CPUThreshold"},       {1, 3, "CPUSamplingAmount"},
    {1, 4, "CPUMaxAlertNum"},       {2, 1, "MemoryInterval"},     {2, 2, "MemoryThreshold"},
    {2, 3, "MemorySamplingAmount"}, {2, 4, "MemoryMaxAlertNum"},  {3, 1, "DiskInterval"},
    {3, 2, "DiskThreshold"},        {3, 3, "DiskSamplingAmount"}, {3, 4, "DiskMaxAlertNum"},
    {4, 1, "NetworkInterval"},      {4, 2, "NetworkThreshold"},   {4, 3, "NetworkSamplingAmount"},
    {4, 4, "NetworkMaxAlertNum"},
};

struct NumberText
{
    const char* pszText; // as it stands in the file
    int nNumber;
};

// 1 at the place of the 255th character, which is the last one that is looked at, and one further on.
const std::string LAST_CHARACTER_COUNTS = std::string(254, '0') + "1";
const std::string LATE_CHARACTER_DOES_NOT = std::string(255, '0') + "1";

const NumberText NUMBER_TEXTS[] = {
    {"0", 0},
    {"85", 85},
    {"", 0},
    {"abc", 0},
    {"12x", 12},
    {"x12", 0},
    {"0x10", 0},
    {"-1", -1},
    {"+7", 7},
    {"  42 ", 42},
    {"\t9", 9},
    {"3.9", 3},
    {"2147483647", INT_MAX},
    {"-2147483648", INT_MIN},
    {"<![CDATA[15]]>", 15},
    {"1<!-- x -->5", 15},
    {LAST_CHARACTER_COUNTS.c_str(), 1},
    {LATE_CHARACTER_DOES_NOT.c_str(), 0},
};

const std::string MALFORMED_TEXTS[] = {
    "",
    "no markup",
    "<KPMConfiguration>",
    "<KPMConfiguration><PkiAlert></KPMConfiguration></PkiAlert>",
    "<KPMConfiguration/><KPMConfiguration/>",
    "<KPMConfiguration>&unknown;</KPMConfiguration>",
};

std::string ConfigText(const std::string& inner)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<KPMConfiguration>" + inner + "</KPMConfiguration>\r\n";
}

// Reads into a buffer that was filled before.
std::wstring NodeValue(const wchar_t* pwszPath, int nExpectedResult = 0)
{
    wchar_t wszValue[512] = L"before";
    CHECK(GetXMLNodeValue(nullptr, pwszPath, wszValue, 512) == nExpectedResult);
    return wszValue;
}

} // namespace

// --- policy values --------------------------------------------------------------------------------------------------

TEST_CASE("each of the sixteen policy values is read from its own node")
{
    ConfigFixture config;
    ConfigBuilder builder;
    int nNext = 100;
    for (const PolicyNode& node : POLICY_NODES)
    {
        builder.Set(node.pszName, nNext++);
    }
    config.tree.WriteConfig(builder);
    nNext = 100;
    for (const PolicyNode& node : POLICY_NODES)
    {
        CAPTURE(node.pszName);
        CHECK(GetAlertConfValue(node.nAlertType, node.confType) == nNext++);
    }
    CHECK(config.TakeLog().empty());
}

TEST_CASE("a policy value of an unknown alert type or configuration type is refused before the file is looked for")
{
    ConfigFixture config;
    struct BadCall
    {
        int nAlertType;
        unsigned confType;
        const char* pszArguments;
    };
    for (const BadCall& call : {BadCall{0, 1, "nAlertType(0), nConfType(1)"},
                                {5, 1, "nAlertType(5), nConfType(1)"},
                                {-1, 1, "nAlertType(-1), nConfType(1)"},
                                {1, 0, "nAlertType(1), nConfType(0)"},
                                {1, 5, "nAlertType(1), nConfType(5)"},
                                {4, 0xFFFFFFFF, "nAlertType(4), nConfType(-1)"}})
    {
        CAPTURE(call.pszArguments);
        CHECK(GetAlertConfValue(call.nAlertType, call.confType) == -1);
        CHECK(config.TakeLog() ==
              Lines{Line(1, "GetAlertConfValue -- checking parameters failed, %s", {call.pszArguments})});
    }
}

TEST_CASE("a policy value is the integer that its text begins with")
{
    ConfigFixture config;
    for (const NumberText& row : NUMBER_TEXTS)
    {
        CAPTURE(row.pszText);
        config.tree.WriteConfigText(
            ConfigText("<PkiAlert><MemoryThreshold>" + std::string(row.pszText) + "</MemoryThreshold></PkiAlert>"));
        CHECK(GetAlertConfValue(2, 2) == row.nNumber);
    }
    CHECK(config.TakeLog().empty());
}

TEST_CASE("a policy value without a node is -1")
{
    ConfigFixture config;
    config.tree.WriteConfig(ConfigBuilder().Set("CPUInterval", 1));
    CHECK(GetAlertConfValue(4, 3) == -1);
    CHECK(config.TakeLog() == Lines{Line(1,
                                         "GetAlertConfValue -- Not found matching "
                                         "node(KPMConfiguration/PkiAlert/NetworkSamplingAmount), XMLfile(%s)",
                                         {config.FileInLog()})});
}

TEST_CASE("a policy value of a missing file is -1, and the file stays missing")
{
    ConfigFixture config;
    CHECK(GetAlertConfValue(1, 1) == -1);
    CHECK(config.TakeLog() ==
          Lines{Line(1, "GetAlertConfValue -- input file(%s) doesn't exist, exit...", {config.FileInLog()})});
    CHECK(config.tree.FilesInBin().empty());
}

TEST_CASE("a policy value of a malformed file is -1")
{
    ConfigFixture config;
    for (const std::string& text : MALFORMED_TEXTS)
    {
        CAPTURE(text);
        config.tree.WriteConfigText(text);
        CHECK(GetAlertConfValue(1, 1) == -1);
        CHECK(config.TakeLog() == Lines{Line(1, "GetAlertConfValue -- DocumentPtr load file(%s) failed(0x00000000)",
                                             {config.FileInLog()})});
    }
}

TEST_CASE("an edit of the file is seen by the next call")
{
    ConfigFixture config;
    for (const int nValue : {1, 2})
    {
        config.tree.WriteConfig(ConfigBuilder().Set("CPUInterval", nValue).SetLogLevel(nValue));
        int nLevel = 77;
        CHECK(GetAlertConfValue(1, 1) == nValue);
        CHECK(GetLogLevel(&nLevel) == 0);
        CHECK(nLevel == nValue);
        CHECK(NodeValue(L"KPMConfiguration/PkiAlert/CPUInterval") == std::to_wstring(nValue));
    }
}

TEST_CASE("threads that read at the same time, from the first need of the path on, all get their values")
{
    ConfigFixture config;
    config.tree.WriteConfig(ConfigBuilder().SetPolicy("CPU", 1, 2, 3, 4).SetPolicy("Memory", 5, 6, 7, 8));
    constexpr int nReads = 10;
    const auto read = [](void*) -> DWORD
    {
        DWORD dwGood = 0;
        if (SUCCEEDED(CoInitialize(nullptr)))
        {
            for (int i = 0; i < nReads; ++i)
            {
                dwGood += GetAlertConfValue(1, 4) == 4 && GetAlertConfValue(2, 1) == 5 ? 1 : 0;
            }
            CoUninitialize();
        }
        return dwGood;
    };
    std::vector<UniqueHandle> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(CreateThread(nullptr, 0, read, nullptr, 0, nullptr));
        REQUIRE(threads.back());
    }
    for (const UniqueHandle& thread : threads)
    {
        REQUIRE(WaitForSingleObject(thread.Get(), 60000) == WAIT_OBJECT_0);
        DWORD dwGood = 0;
        GetExitCodeThread(thread.Get(), &dwGood);
        CHECK(dwGood == nReads);
    }
    CHECK(config.TakeLog().empty());
}

// --- the log level --------------------------------------------------------------------------------------------------

TEST_CASE("the log level is handed back as it is written, whatever its value")
{
    ConfigFixture config;
    for (const NumberText& row : NUMBER_TEXTS)
    {
        CAPTURE(row.pszText);
        config.tree.WriteConfigText(
            ConfigText("<VarnexLog><Level>" + std::string(row.pszText) + "</Level></VarnexLog>"));
        int nLevel = 77;
        CHECK(GetLogLevel(&nLevel) == 0);
        CHECK(nLevel == row.nNumber);
    }
    CHECK(config.TakeLog().empty());
}

TEST_CASE("the log level's failures leave the level untouched and have the policy values' messages, but none for a "
          "missing node")
{
    ConfigFixture config;
    int nLevel = 77;
    CHECK(GetLogLevel(&nLevel) == -1);
    CHECK(config.TakeLog() ==
          Lines{Line(1, "GetAlertConfValue -- input file(%s) doesn't exist, exit...", {config.FileInLog()})});

    config.tree.WriteConfigText("<KPMConfiguration>");
    CHECK(GetLogLevel(&nLevel) == -1);
    CHECK(config.TakeLog() ==
          Lines{Line(1, "GetAlertConfValue -- DocumentPtr load file(%s) failed(0x00000000)", {config.FileInLog()})});

    config.tree.WriteConfigText(ConfigText("<VarnexLog/>"));
    CHECK(GetLogLevel(&nLevel) == -1);
    CHECK(config.TakeLog().empty());
    CHECK(nLevel == 77);
}

TEST_CASE("a log level without a place to go is refused")
{
    ConfigFixture config;
    config.tree.WriteConfig(ConfigBuilder().SetLogLevel(4));
    CHECK(GetLogLevel(nullptr) == -1);
    CHECK(config.TakeLog() == Lines{"[1] - GetLogLevel -- checking parameters failed, pnLogLevel(0)"});
}

TEST_CASE("the log takes a configured level of 0 to 4 over and keeps its own otherwise")
{
    ConfigFixture config;
    struct Refresh
    {
        const char* pszText; // null for no node
        int nBefore;
        int nAfter;
    };
    for (const Refresh& row : {Refresh{"0", 3, 0},
                               {"1", 3, 1},
                               {"4", 3, 4},
                               {"5", 3, 3},
                               {"-1", 3, 3},
                               {"99", 2, 2},
                               {"abc", 3, 0},
                               {nullptr, 3, 3}})
    {
        CAPTURE(row.pszText);
        config.tree.WriteConfigText(ConfigText(
            row.pszText == nullptr ? "" : "<VarnexLog><Level>" + std::string(row.pszText) + "</Level></VarnexLog>"));
        Log()->Level = row.nBefore;
        RefreshLogLevel();
        CHECK(Log()->Level == row.nAfter);
    }
    config.tree.RemoveConfig();
    Log()->Level = 2;
    RefreshLogLevel();
    CHECK(Log()->Level == 2);
}

// --- any node -------------------------------------------------------------------------------------------------------

TEST_CASE("a node's text is copied as it is")
{
    ConfigFixture config;
    config.tree.WriteConfigText(ConfigText("<One>plain</One><Two><Deep>a &amp; b &lt;c&gt;</Deep></Two><Empty/>"
                                           "<Wide>Gr\xC3\xBC\xC3\x9F"
                                           "e \xE4\xB8\xAD</Wide>"
                                           "<Twice>first</Twice><Twice>second</Twice>"));
    CHECK(NodeValue(L"KPMConfiguration/One") == L"plain");
    CHECK(NodeValue(L"KPMConfiguration/Two/Deep") == L"a & b <c>");
    CHECK(NodeValue(L"KPMConfiguration/Empty") == L"");
    CHECK(NodeValue(L"KPMConfiguration/Wide") == L"Gr\u00fc\u00dfe \u4e2d");
    CHECK(NodeValue(L"KPMConfiguration/Twice") == L"first");
    CHECK(config.TakeLog().empty());
}

TEST_CASE("a plain path finds a node that stands in a namespace")
{
    ConfigFixture config;
    config.tree.WriteConfigText(
        ConfigText("<PkiAlertNum xmlns=\"KPMAgentInfoProbe_URI\"><Disk>4</Disk></PkiAlertNum>"));
    CHECK(NodeValue(L"KPMConfiguration/PkiAlertNum/Disk") == L"4");
}

TEST_CASE("the file's encoding is the document's affair: UTF-8 with a mark and UTF-16")
{
    ConfigFixture config;
    const std::string ascii = "<KPMConfiguration><One>plain</One></KPMConfiguration>";
    config.tree.WriteConfigText("\xEF\xBB\xBF" + ascii);
    CHECK(NodeValue(L"KPMConfiguration/One") == L"plain");

    std::string utf16 = "\xFF\xFE";
    for (const char ch : ascii)
    {
        utf16 += ch;
        utf16 += '\0';
    }
    config.tree.WriteConfigText(utf16);
    CHECK(NodeValue(L"KPMConfiguration/One") == L"plain");
}

TEST_CASE("a node's text is cut to the buffer with its terminator")
{
    ConfigFixture config;
    config.tree.WriteConfigText(ConfigText("<One>abcdef</One>"));
    struct Cut
    {
        std::size_t cchValue;
        const wchar_t* pwszText;
        wchar_t wchAfter; // the character behind the buffer
    };
    for (const Cut& cut : {Cut{7, L"abcdef", L'#'}, {6, L"abcde", L'#'}, {2, L"a", L'#'}, {1, L"", L'#'}})
    {
        CAPTURE(cut.cchValue);
        wchar_t wszValue[] = L"########";
        CHECK(GetXMLNodeValue(nullptr, L"KPMConfiguration/One", wszValue, cut.cchValue) == 0);
        CHECK(std::wstring(wszValue) == cut.pwszText);
        CHECK(wszValue[cut.cchValue] == cut.wchAfter);
    }
    wchar_t wszNothing[] = L"##";
    CHECK(GetXMLNodeValue(nullptr, L"KPMConfiguration/One", wszNothing, 0) == 0);
    CHECK(std::wstring(wszNothing) == L"##");
}

TEST_CASE("a node that is not there gives 100, without a message and with the buffer untouched")
{
    ConfigFixture config;
    config.tree.WriteConfigText(ConfigText("<PkiAlertNum><Date>x</Date></PkiAlertNum>"));
    for (const wchar_t* const pwszPath : {L"KPMConfiguration/PkiAlertNum/Disk", L"KPMConfiguration/Other/Date",
                                          L"Other", L"Date", L"kpmconfiguration/PkiAlertNum/Date"})
    {
        CHECK(NodeValue(pwszPath, 100) == L"before");
    }
    CHECK(config.TakeLog().empty());
}

TEST_CASE("the file that a node reader is given does not matter")
{
    ConfigFixture config;
    config.tree.WriteConfigText(ConfigText("<One>own</One>"));
    const std::wstring otherFile = config.tree.InBin(L"Other.xml");
    WriteFileBytes(otherFile, ConfigText("<One>other</One>"));
    wchar_t wszValue[16] = L"";
    CHECK(GetXMLNodeValue(otherFile.c_str(), L"KPMConfiguration/One", wszValue, 16) == 0);
    CHECK(std::wstring(wszValue) == L"own");
}

TEST_CASE("a node reader without a path or a buffer is refused with all it was given, before the file is looked for")
{
    ConfigFixture config;
    const wchar_t* const pwszPath = L"KPMConfiguration/One";
    wchar_t wszValue[16] = L"before";
    const auto message = [&](const void* pFirst, const void* pSecond, const void* pThird)
    {
        return Lines{Line(1,
                          "GetXMLNodeValue -- checking parameters fail, pwszXMLFilePath(%s), wszNodePath(%s), "
                          "pwszNodeValue(%s)",
                          {PointerText(pFirst), PointerText(pSecond), PointerText(pThird)})};
    };
    // The file's path is never null: the configuration's own stands in the message, not the one that was given.
    CHECK(GetXMLNodeValue(nullptr, nullptr, wszValue, 16) == -1);
    const Lines first = config.TakeLog();
    REQUIRE(first.size() == 1);
    const std::string mark = "pwszXMLFilePath(";
    const std::string ownPath = first[0].substr(first[0].find(mark) + mark.size(), 16);
    CHECK(ownPath != PointerText(nullptr));
    const void* const pOwnPath = reinterpret_cast<const void*>(std::stoull(ownPath, nullptr, 16));
    CHECK(static_cast<const wchar_t*>(pOwnPath) == config.File());
    CHECK(first == message(pOwnPath, nullptr, wszValue));

    CHECK(GetXMLNodeValue(nullptr, pwszPath, nullptr, 16) == -1);
    CHECK(config.TakeLog() == message(pOwnPath, pwszPath, nullptr));
    CHECK(std::wstring(wszValue) == L"before");
}

TEST_CASE("a node of a missing file is refused, and the file stays missing")
{
    ConfigFixture config;
    CHECK(NodeValue(L"KPMConfiguration/One", -1) == L"before");
    // The message ends in a line feed of its own.
    CHECK(config.TakeLog() ==
          Lines{Line(1, "GetXMLNodeValue -- XML file(%s) doesn't exist, exit...", {config.FileInLog()}), ""});
    CHECK(config.tree.FilesInBin().empty());
}

TEST_CASE("a node of a malformed file is a success that leaves the buffer untouched")
{
    ConfigFixture config;
    for (const std::string& text : MALFORMED_TEXTS)
    {
        CAPTURE(text);
        config.tree.WriteConfigText(text);
        CHECK(NodeValue(L"KPMConfiguration/One") == L"before");
        CHECK(config.TakeLog() ==
              Lines{Line(4, "GetXMLNodeValue -- fail to load XML file(%s)(0x00000000).", {config.FileInLog()})});
    }
}

TEST_CASE("a path with an empty step is refused without a document, for reading")
{
    ConfigFixture config;
    config.tree.WriteConfigText(ConfigText("<One>text</One>"));
    config.redirector.CountCalls("CoCreateInstance");
    for (const wchar_t* const pwszPath : {L"", L"/", L"KPMConfiguration/", L"/KPMConfiguration", L"//One",
                                          L"KPMConfiguration//One", L"KPMConfiguration/One//"})
    {
        CHECK(NodeValue(pwszPath, E_INVALIDARG) == L"before");
    }
    CHECK(config.redirector.Calls("CoCreateInstance") == 0);
    CHECK(config.TakeLog().empty());
    CHECK(NodeValue(L"KPMConfiguration/One") == L"text");
    CHECK(config.redirector.Calls("CoCreateInstance") == 1);
}

} // namespace varnex::test
