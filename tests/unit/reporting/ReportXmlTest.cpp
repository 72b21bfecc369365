#include "../config/ScriptedDom.h"
#include "ComScope.h"
#include "ReportDocument.h"
#include "ReportingBench.h"

#include "common/BoundedText.h"
#include "reporting/ReportXml.h"
#include "reporting/UtilizationReport.h"

#include <catch2/catch.hpp>

#include <limits>
#include <set>

namespace varnex::test
{

namespace
{

constexpr CLSID DOCUMENT_CLASS = {0x2933BF90, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

UtilizationReport SampleReport()
{
    UtilizationReport report;
    CopyTextW(report.wszTime, L"2026-01-31 12:00:00");
    report.cpus = {{L"0", 42}, {L"1", -2}};
    report.memory = {50, 10000, 25, 20000};
    report.disks = {{L"0", 5'000'000'000}, {L"1", -1}};
    report.cards = {{L"00:15:5D:00:00:12", 1000, 10}, {L"", 0, 0}};
    return report;
}

ExpectedReport SampleExpected()
{
    return ExpectedReport("2026-01-31 12:00:00")
        .Cpu("0", 42)
        .Cpu("1", -2)
        .Memory(50, 10000, 25, 20000)
        .Disk("0", 5'000'000'000)
        .Disk("1", -1)
        .Network("00:15:5D:00:00:12", 1000, 10)
        .Network("", 0, 0);
}

} // namespace

TEST_CASE("a report is written in the order of its parts, in its namespace, without a declaration")
{
    ReportingBench bench;
    const ComScope com;
    const UtilizationReport report = SampleReport();
    const UniqueBstr text = CreateKAPKIUtilizationXML(&report);
    REQUIRE(text);
    CHECK(std::wstring(text.Get()).substr(0, 21) == L"<ServerPKIInformation");
    CHECK(ReadReport(text.Get()) == SampleExpected().Tree());
    CHECK(bench.ReadLog().Lines().empty());
}

TEST_CASE("every element and attribute of a report is made in its namespace, in the order of the report")
{
    ReportingBench bench;
    const ComScope com;
    ScriptedDom dom;
    std::vector<std::wstring> made;
    dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT, BSTR, BSTR, IXMLDOMNode**)>(
        DomMethod::CreateNode,
        [&made](IXMLDOMDocument* pDocument, VARIANT type, BSTR bstrName, BSTR bstrSpace, IXMLDOMNode** ppNode)
        {
            const bool bElement = type.vt == VT_I4 && type.lVal == NODE_ELEMENT;
            const bool bAttribute = type.vt == VT_I4 && type.lVal == NODE_ATTRIBUTE;
            made.push_back((bElement ? L"" : bAttribute ? L"@" : L"?") + std::wstring(bstrName) + L" in " + bstrSpace);
            return pDocument->createNode(type, bstrName, bstrSpace, ppNode);
        });
    UtilizationReport report = SampleReport();
    report.cpus.resize(1);
    report.disks.resize(1);
    report.cards.resize(1);
    CHECK(CreateKAPKIUtilizationXML(&report));
    std::vector<std::wstring> expected;
    for (const wchar_t* pwszName :
         {L"ServerPKIInformation", L"Time", L"CPUUtil", L"@Index", L"@Utilization", L"MemoryUtil", L"@PhysicalMemUtil",
          L"@PhysicalMemCapacity", L"@PageFileUtil", L"@PageFileCapacity", L"DiskUtil", L"@Index", L"@Throughput",
          L"NetworkUtil", L"@MACAddress", L"@LinkSpeed", L"@Utilization"})
    {
        expected.push_back(pwszName + std::wstring(L" in AgentInfoProbe"));
    }
    CHECK(made == expected);
}

TEST_CASE("a report of a machine without disks and adapters has its memory still")
{
    ReportingBench bench;
    const ComScope com;
    UtilizationReport report;
    CopyTextW(report.wszTime, L"2026-01-31 12:00:00");
    const UniqueBstr text = CreateKAPKIUtilizationXML(&report);
    REQUIRE(text);
    CHECK(ReadReport(text.Get()) == ExpectedReport("2026-01-31 12:00:00").Memory(0, 0, 0, 0).Tree());
}

TEST_CASE("numbers are signed decimals and texts are written as they stand")
{
    ReportingBench bench;
    const ComScope com;
    UtilizationReport report;
    CopyTextW(report.wszTime, L"t");
    report.cpus = {{L"<", std::numeric_limits<std::int32_t>::min()}};
    report.memory = {std::numeric_limits<std::int32_t>::max(), 0xFFFFFFFF, 0, 0x80000000};
    report.disks = {{L"&", std::numeric_limits<std::int64_t>::max()},
                    {L"\"", std::numeric_limits<std::int64_t>::min()}};
    report.cards = {{L"a<b>&\"'\xE4\x4E2D", std::numeric_limits<std::int32_t>::min(), 0}};
    const UniqueBstr text = CreateKAPKIUtilizationXML(&report);
    REQUIRE(text);
    CHECK(ParseXml(text.Get()) ==
          ExpectedReport("t")
              .Cpu("<", std::numeric_limits<std::int32_t>::min())
              .Memory(std::numeric_limits<std::int32_t>::max(), -1, 0, std::numeric_limits<std::int32_t>::min())
              .Disk("&", std::numeric_limits<std::int64_t>::max())
              .Disk("\"", std::numeric_limits<std::int64_t>::min())
              .Network("a<b>&\"'\xC3\xA4\xE4\xB8\xAD", std::numeric_limits<std::int32_t>::min(), 0)
              .Tree());
}

TEST_CASE("a null report is refused")
{
    ReportingBench bench;
    const ComScope com;
    CHECK_FALSE(CreateKAPKIUtilizationXML(nullptr));
    const LogFile log = bench.ReadLog();
    REQUIRE(log.Lines().size() == 2);
    CHECK(log.CountOfLevel(1) == 2);
    CHECK_THAT(log.Lines()[0].text,
               Catch::Matches("SetXMLPKIUtlValue -- checking parameters fail,wszNodePath\\([0-9A-F]{16}\\), "
                              "pwszNodeValue\\(0000000000000000\\)"));
    CHECK(log.Lines()[1].text == "CreateKAPKIUtilizationXML -- create root node(KPMConfiguration) fail.");
}

TEST_CASE("a document that cannot be made is logged with the status")
{
    ReportingBench bench;
    bool bInProcessOnly = false;
    bench.imports.Replace<decltype(::CoCreateInstance)>(
        "CoCreateInstance",
        [&](REFCLSID classId, LPUNKNOWN, DWORD dwContext, REFIID, LPVOID* ppObject) -> HRESULT
        {
            bInProcessOnly = IsEqualCLSID(classId, DOCUMENT_CLASS) && dwContext == CLSCTX_INPROC_SERVER;
            *ppObject = nullptr;
            return REGDB_E_CLASSNOTREG;
        });
    const UtilizationReport report = SampleReport();
    CHECK_FALSE(CreateKAPKIUtilizationXML(&report));
    CHECK(bInProcessOnly);
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 1);
    CHECK_THAT(log, HasLine(1, "CreateKAPKIUtilizationXML -- DocumentPtr CreateInstance failed(-2147221164)."));
}

TEST_CASE("a step of the document that fails leaves no text and one kind of message")
{
    ReportingBench bench;
    const ComScope com;
    const UtilizationReport report = SampleReport();
    std::set<std::string> messages;
    ULONGLONG ullStep = 1;
    for (;; ++ullStep)
    {
        bench.ForgetLog();
        bench.imports.FailCall("SysAllocString", ullStep, FailMode::Once, ERROR_OUTOFMEMORY);
        const UniqueBstr text = CreateKAPKIUtilizationXML(&report);
        if (bench.imports.Failures("SysAllocString") == 0)
        {
            CHECK(ReadReport(text.Get()) == SampleExpected().Tree());
            break;
        }
        CAPTURE(ullStep);
        REQUIRE_FALSE(text);
        const LogFile log = bench.ReadLog();
        CHECK(log.CountOfLevel(1) == log.Lines().size());
        for (const LogLine& line : log.Lines())
        {
            messages.insert(line.text);
        }
    }
    // 2 roots and times of 3 texts each with the look-ups, a text, and for each entry a look-up, an element and three
    // texts for each attribute.
    CHECK(ullStep > 80);
    CHECK(messages == std::set<std::string>{
                          "CreateKAPKIUtilizationXML -- create root node(KPMConfiguration) fail.",
                          "SetXMLNodeValue -- create root node(KPMConfiguration) fail.",
                          "SetXMLNodeValueEx -- create root node(ServerPKIInformation) fail.",
                          "SetXMLNodeValueEx -- create node(CPUUtil) fail.",
                          "SetXMLNodeValueEx -- create node(MemoryUtil) fail.",
                          "SetXMLNodeValueEx -- create node(DiskUtil) fail.",
                          "SetXMLNodeValueEx -- create node(NetworkUtil) fail.",
                          "SetXMLNodeValueEx -- create node(Index) fail.",
                          "SetXMLNodeValueEx -- create node(Utilization) fail.",
                          "SetXMLNodeValueEx -- create node(PhysicalMemUtil) fail.",
                          "SetXMLNodeValueEx -- create node(PhysicalMemCapacity) fail.",
                          "SetXMLNodeValueEx -- create node(PageFileUtil) fail.",
                          "SetXMLNodeValueEx -- create node(PageFileCapacity) fail.",
                          "SetXMLNodeValueEx -- create node(Throughput) fail.",
                          "SetXMLNodeValueEx -- create node(MACAddress) fail.",
                          "SetXMLNodeValueEx -- create node(LinkSpeed) fail.",
                      });
}

TEST_CASE("a call into the document that fails, or says yes and gives no node, leaves no text and a message")
{
    struct Rule
    {
        DomMethod method;
        ULONGLONG ullCall;
        bool bCanGiveNothing; // for a search that is no failure
        std::vector<std::string> messages;
    };
    const std::string build = "CreateKAPKIUtilizationXML -- create root node(KPMConfiguration) fail.";
    const std::string time = "SetXMLNodeValue -- create root node(KPMConfiguration) fail.";
    const std::string root = "SetXMLNodeValueEx -- create root node(ServerPKIInformation) fail.";
    const std::string element = "SetXMLNodeValueEx -- create node(CPUUtil) fail.";
    const std::string attribute = "SetXMLNodeValueEx -- create node(Index) fail.";
    const Rule rule = GENERATE_COPY(values<Rule>({{DomMethod::SelectSingleNode, 1, false, {time, build}},
                                                  {DomMethod::SelectSingleNode, 2, false, {time, build}},
                                                  {DomMethod::SelectSingleNode, 3, true, {root}},
                                                  {DomMethod::CreateNode, 1, true, {time, build}},
                                                  {DomMethod::CreateNode, 2, true, {time, build}},
                                                  {DomMethod::CreateNode, 3, true, {element}},
                                                  {DomMethod::CreateNode, 4, true, {attribute}},
                                                  {DomMethod::AppendToDocument, 1, true, {time, build}},
                                                  {DomMethod::AppendToElement, 1, true, {time, build}},
                                                  {DomMethod::AppendToElement, 2, true, {element}},
                                                  {DomMethod::PutText, 1, false, {build}},
                                                  {DomMethod::PutAttributeText, 1, false, {attribute}},
                                                  {DomMethod::GetAttributes, 1, true, {attribute}},
                                                  {DomMethod::SetNamedItem, 1, false, {attribute}},
                                                  {DomMethod::GetXml, 1, true, {}}}));
    const bool bGivesNothing = GENERATE(false, true);
    CAPTURE(rule.method, rule.ullCall, bGivesNothing);
    ReportingBench bench;
    const ComScope com;
    ScriptedDom dom;
    const UtilizationReport report = SampleReport();
    if (!bGivesNothing || rule.bCanGiveNothing)
    {
        dom.FailCall(rule.method, rule.ullCall, FailMode::Once, bGivesNothing ? S_OK : E_ACCESSDENIED);
        CHECK_FALSE(CreateKAPKIUtilizationXML(&report));
        CHECK(dom.Failures(rule.method) == 1);
        const LogFile log = bench.ReadLog();
        std::vector<std::string> messages;
        for (const LogLine& line : log.Lines())
        {
            messages.push_back(line.text);
        }
        CHECK(messages == rule.messages);
        CHECK(log.CountOfLevel(1) == messages.size());
    }
    dom.StopFailing();
    const UniqueBstr text = CreateKAPKIUtilizationXML(&report);
    REQUIRE(text);
    CHECK(ReadReport(text.Get()) == SampleExpected().Tree());
}

} // namespace varnex::test
