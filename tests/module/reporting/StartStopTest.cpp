#include "ReportDocument.h"
#include "ReportingModule.h"

#include "support/HostAgent.h"
#include "support/ProcessMeter.h"

#include <catch2/catch.hpp>

#include <vector>

namespace varnex::test
{

namespace
{

constexpr int ROUNDS = 40;

// One of the host's threads: starts and stops, out of step with the others.
DWORD WINAPI Hammer(LPVOID pModule) noexcept
{
    MarkHostThread();
    const auto& module = *static_cast<const ReportingModule*>(pModule);
    for (int i = 0; i < ROUNDS; ++i)
    {
        module.Start();
        Sleep(static_cast<DWORD>(i % 7));
        module.Stop();
    }
    return 0;
}

void HammerFromThreads(ReportingModule& module, int nThreads)
{
    std::vector<UniqueHandle> threads;
    for (int i = 0; i < nThreads; ++i)
    {
        threads.emplace_back(CreateThread(nullptr, 0, Hammer, &module, 0, nullptr));
    }
    for (const UniqueHandle& thread : threads)
    {
        REQUIRE(WaitForSingleObject(thread.Get(), 100'000) == WAIT_OBJECT_0);
    }
    module.Stop();
}

} // namespace

TEST_CASE("starts and stops from two threads at once leave no thread and no handle behind")
{
    ReportingModule module;
    HammerFromThreads(module, 1); // what is opened for good is opened now
    const std::size_t nThreads = CountThreads();
    const std::size_t nHandles = CountHandles();
    HammerFromThreads(module, 2);
    CHECK(CountThreads() == nThreads);
    CHECK(CountHandles() == nHandles);
    CHECK(module.imports.Calls("TerminateThread") == 0);
    CHECK(module.pdh.OpenQueries() == 0);
    CHECK(module.pdh.WrongHandles() == 0);
    CHECK(module.wmi.LiveObjects() == 0);
    CHECK(module.wmi.LiveTexts() == 0);

    module.Start();
    HostAgent agent(module.names.Key());
    agent.Ask(60, 1);
    REQUIRE(agent.TakeFinish(20'000));
    CHECK(ReadReport(agent.Text()).name == "ServerPKIInformation");
}

} // namespace varnex::test
