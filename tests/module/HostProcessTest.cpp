// Several host processes over one module directory: one after the other, and at once.

#include "CpuMonitor.h"
#include "ModuleInHost.h"

#include "common/Handles.h"
#include "support/AlertLines.h"

#include <catch2/catch.hpp>

#include <algorithm>

namespace varnex::test
{

namespace
{

constexpr DWORD WAIT_MS = 60'000;
constexpr wchar_t GATE_VARIABLE[] = L"VARNEX_TEST_GATE";
constexpr int CROSSINGS = 15; // of each monitor in the test with two hosts at once

// High and low loads in turn, beginning with a high one.
std::vector<int> AlternatingLoads(int nCrossings)
{
    std::vector<int> loads;
    for (int i = 0; i < nCrossings; ++i)
    {
        loads.insert(loads.end(), {90, 10});
    }
    return loads;
}

int CountLines(const std::vector<AlertLine>& lines, int nType, const std::string& resource)
{
    return static_cast<int>(std::count_if(lines.begin(), lines.end(),
                                          [&](const AlertLine& line)
                                          { return line.nType == nType && line.resource == resource; }));
}

// A host in real time, apart from its date, whose seconds last a few milliseconds.
class HurriedHost
{
public:
    HurriedHost() : m_redirector(m_module.Handle()), m_exports(m_redirector)
    {
        m_redirector.Replace<decltype(::Sleep)>("Sleep", [](DWORD dwMilliseconds)
                                                { Sleep(dwMilliseconds == 1000 ? 2 : dwMilliseconds); });
        m_redirector.Replace<decltype(::GetTickCount)>("GetTickCount", [this] { return m_dwTick += 1000; });
        m_redirector.Replace<decltype(::GetSystemTimeAsFileTime)>("GetSystemTimeAsFileTime",
                                                                  [](LPFILETIME pTime)
                                                                  {
                                                                      const SYSTEMTIME noon = {2026, 1, 6, 31,
                                                                                               12,   0, 0, 0};
                                                                      SystemTimeToFileTime(&noon, pTime);
                                                                  });
        m_redirector.Replace<decltype(::SetThreadPriority)>(
            "SetThreadPriority",
            [this](HANDLE hThread, int nPriority)
            {
                DuplicateHandle(GetCurrentProcess(), hThread, GetCurrentProcess(), m_monitor.Receive(), 0, FALSE,
                                DUPLICATE_SAME_ACCESS);
                return SetThreadPriority(hThread, nPriority);
            });
        m_redirector.CountCalls("LocalFree");
    }
    ScriptedExports& Exports() { return m_exports; }

    // Starts the monitor when the parent opens the gate, and ends it when all its records have been stored.
    void RunUntilStored(unsigned nAlertType, ULONGLONG ullRecords)
    {
        AwaitGate();
        m_module.Start(nAlertType);
        const ULONGLONG ullEnd = GetTickCount64() + WAIT_MS;
        while (m_redirector.Calls("LocalFree") < ullRecords && GetTickCount64() < ullEnd)
        {
            Sleep(5);
        }
        CHECK(m_redirector.Calls("LocalFree") == ullRecords);
        m_module.Stop(nAlertType);
        CHECK(WaitForSingleObject(m_monitor.Get(), WAIT_MS) == WAIT_OBJECT_0);
    }

private:
    static void AwaitGate()
    {
        wchar_t wszName[MAX_PATH];
        REQUIRE(GetEnvironmentVariableW(GATE_VARIABLE, wszName, MAX_PATH) != 0);
        const UniqueHandle gate(OpenEventW(SYNCHRONIZE, FALSE, wszName));
        REQUIRE(gate);
        REQUIRE(WaitForSingleObject(gate.Get(), WAIT_MS) == WAIT_OBJECT_0);
    }

    ModuleInHost m_module;
    ImportRedirector m_redirector;
    ScriptedExports m_exports;
    DWORD m_dwTick = 0;
    UniqueHandle m_monitor;
};

} // namespace

TEST_CASE("child: a host whose load crosses the threshold three times", "[.]")
{
    const ModuleInHost module;
    ImportRedirector redirector(module.Handle());
    VirtualClock clock(redirector);
    ScriptedExports exports(redirector);
    ScriptedSystemTimes cpu(exports);
    cpu.SetUtilizations(AlternatingLoads(3));
    module.Start(VARNEX_ALERT_CPU);
    clock.WaitUntilAllAsleep();
    clock.Advance(6 * CpuMonitor::SECONDS);
    module.Stop(VARNEX_ALERT_CPU);
    clock.AdvanceUntilWorkersEnd(2);
}

TEST_CASE("the daily maximum holds over restarts of the host")
{
    const ShippedTree tree(CpuConfig(static_cast<int>(CpuMonitor::SECONDS), 85, 1, 4));
    const std::size_t anStored[] = {3, 4, 4};
    for (const std::size_t nStored : anStored)
    {
        const ChildProcess host = ChildProcess::OfTestCase("child: a host whose load crosses the threshold three times",
                                                           ModuleInHost::OptionsFor(tree));
        REQUIRE(host.WaitForEnd(WAIT_MS));
        INFO(host.Output());
        REQUIRE(host.ExitCode() == 0);
        CHECK(ReadAlertLines(tree).size() == nStored);
        CHECK(tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/CPU") == std::to_wstring(nStored));
    }
}

TEST_CASE("child: a hurried host with alerts of the processor", "[.]")
{
    HurriedHost host;
    ScriptedSystemTimes cpu(host.Exports());
    cpu.SetUtilizations(AlternatingLoads(CROSSINGS));
    host.RunUntilStored(VARNEX_ALERT_CPU, CROSSINGS);
}

TEST_CASE("child: a hurried host with alerts of both kinds of memory", "[.]")
{
    HurriedHost host;
    unsigned nReads = 0; // every second one high
    host.Exports().Replace<decltype(::GlobalMemoryStatusEx)>("GlobalMemoryStatusEx",
                                                             [&](LPMEMORYSTATUSEX pStatus)
                                                             {
                                                                 const bool bHigh =
                                                                     nReads < 2 * CROSSINGS && nReads % 2 == 0;
                                                                 ++nReads;
                                                                 constexpr DWORDLONG MB = 1024 * 1024;
                                                                 pStatus->ullTotalPhys = 1000 * MB;
                                                                 pStatus->ullAvailPhys = (bHigh ? 50 : 900) * MB;
                                                                 pStatus->ullTotalPageFile = 1000 * MB;
                                                                 pStatus->ullAvailPageFile = (bHigh ? 60 : 800) * MB;
                                                                 return TRUE;
                                                             });
    host.RunUntilStored(VARNEX_ALERT_MEMORY, 2 * CROSSINGS);
}

TEST_CASE("two hosts that raise alerts at once lose no count and no alert")
{
    const ShippedTree tree(CpuConfig(1, 85, 1, 1000)
                               .SetPolicy("Memory", 1, 85, 1, 1000)
                               .SetLogLevel(1)
                               .SetCounter("PH", "0")
                               .SetCounter("PF", "0"));
    const std::wstring gateName = L"varnex-test-gate-" + std::to_wstring(GetCurrentProcessId());
    const UniqueHandle gate(CreateEventW(nullptr, TRUE, FALSE, gateName.c_str()));
    ChildOptions options = ModuleInHost::OptionsFor(tree);
    options.environment[GATE_VARIABLE] = gateName;
    const ChildProcess first = ChildProcess::OfTestCase("child: a hurried host with alerts of the processor", options);
    const ChildProcess second =
        ChildProcess::OfTestCase("child: a hurried host with alerts of both kinds of memory", options);
    SetEvent(gate.Get());
    for (const ChildProcess* pHost : {&first, &second})
    {
        REQUIRE(pHost->WaitForEnd(2 * WAIT_MS));
        INFO(pHost->Output());
        CHECK(pHost->ExitCode() == 0);
    }
    const std::vector<AlertLine> lines = ReadAlertLines(tree);
    CHECK(CountLines(lines, VARNEX_ALERT_CPU, "") == CROSSINGS);
    CHECK(CountLines(lines, VARNEX_ALERT_MEMORY, "PH") == CROSSINGS);
    CHECK(CountLines(lines, VARNEX_ALERT_MEMORY, "PF") == CROSSINGS);
    CHECK(lines.size() == 3 * CROSSINGS);
    for (const wchar_t* pwszName : {L"CPU", L"PH", L"PF"})
    {
        CHECK(tree.ConfigNode(std::wstring(L"KPMConfiguration/PkiAlertNum/") + pwszName) == std::to_wstring(CROSSINGS));
    }
}

} // namespace varnex::test
