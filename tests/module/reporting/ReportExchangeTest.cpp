#include "ReportDocument.h"
#include "ReportingModule.h"

#include "support/ChildProcess.h"
#include "support/HostAgent.h"
#include "support/LogMatchers.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr wchar_t KEY_VARIABLE[] = L"VARNEX_TEST_REPORT_KEY";
constexpr int REPORTS = 1000;
constexpr std::uint32_t UNREACHABLE = 0x7FFFFFFF; // a minimum that gives 0 everywhere
constexpr DWORD ANSWER_MS = 20'000;

std::wstring KeyOfParent()
{
    wchar_t wszKey[64] = L"";
    GetEnvironmentVariableW(KEY_VARIABLE, wszKey, 64);
    return wszKey;
}

// The next request is for after this one's begin event was reset: set earlier, it would be reset with it.
void AwaitReset(const HostAgent& agent)
{
    const DWORD dwStart = GetTickCount();
    while (agent.IsBeginSet())
    {
        REQUIRE(GetTickCount() - dwStart < ANSWER_MS);
        Sleep(0);
    }
}

XmlElement Exchange(HostAgent& agent, std::uint32_t nTotal, std::uint32_t nMinimum)
{
    agent.Ask(nTotal, nMinimum);
    REQUIRE(agent.TakeFinish(ANSWER_MS));
    AwaitReset(agent);
    REQUIRE(agent.Length() > 0);
    REQUIRE(agent.IsRestUntouched());
    return ParseXml(agent.Text());
}

// Without the adapter, whose measured second is a real millisecond and more.
XmlElement WithoutCards(XmlElement report)
{
    while (!report.children.empty() && report.children.back().name == "NetworkUtil")
    {
        report.children.pop_back();
    }
    return report;
}

ExpectedReport Expected(const XmlElement& report, bool bReachable)
{
    return ExpectedReport(report.children.at(0).text)
        .Cpu("0", bReachable ? 42 : 0)
        .Memory(bReachable ? 50 : 0, 10000, bReachable ? 25 : 0, 10000)
        .Disk("0", bReachable ? 1000 : 0);
}

} // namespace

TEST_CASE("child: asks for a thousand reports and checks each", "[.]")
{
    HostAgent agent(KeyOfParent());
    for (int i = 0; i < REPORTS; ++i)
    {
        CAPTURE(i);
        const bool bReachable = i % 2 == 0;
        const XmlElement report =
            Exchange(agent, static_cast<std::uint32_t>(1 + i % 1441), bReachable ? 1 : UNREACHABLE);
        REQUIRE(WithoutCards(report) == Expected(report, bReachable).Tree());
        REQUIRE(report.children.size() == 5);
        REQUIRE_FALSE(agent.TakeFinish());
    }
}

TEST_CASE("another process gets a thousand reports, none lost and none torn, while all samplers run")
{
    ReportingModule module;
    REQUIRE(module.Start() == 0);
    // Until every history has its first sample.
    HostAgent agent(module.names.Key());
    const DWORD dwStart = GetTickCount();
    while (Exchange(agent, 1, 1).children.size() < 5 ||
           Exchange(agent, 1, 1).children.at(3).attributes.at(1).second == "0")
    {
        REQUIRE(GetTickCount() - dwStart < ANSWER_MS);
    }
    const ULONGLONG ullSamples = module.memory.Reads();

    ChildOptions options;
    options.environment[KEY_VARIABLE] = module.names.Key();
    const ChildProcess child = ChildProcess::OfTestCase("child: asks for a thousand reports and checks each", options);
    REQUIRE(child.WaitForEnd(100'000));
    INFO(child.Output());
    CHECK(child.ExitCode() == 0);
    CHECK_THAT(child.Output(), Catch::Contains("All tests passed"));
    // Each report reads the sizes once; what is more is the sampler's.
    CHECK(module.memory.Reads() > ullSamples + REPORTS + 5);
    CHECK(ReadReport(agent.Text()).children.size() == 5);
    CHECK(module.Stop() == 0);
    CHECK(module.imports.Calls("TerminateThread") == 0);
    const LogFile log(module.tree);
    CHECK(log.CountOfLevel(1) == 1);
    CHECK_THAT(log, HasLine(1, "CPKIUtlCheckingThread -- get thread exit command, exit..."));
}

} // namespace varnex::test
