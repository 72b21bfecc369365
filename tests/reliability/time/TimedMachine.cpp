#include "TimedMachine.h"

#include "support/HostAgent.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr unsigned SWING_SECONDS = 4;
constexpr unsigned REPORT_SECONDS = 10;
constexpr unsigned PACE_SECONDS = 30;
constexpr unsigned SECONDS_TO_END = 120;
constexpr double BYTES_PER_MB = 1048576.0;
constexpr wchar_t DISK_COUNTER[] = L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec";

} // namespace

ConfigBuilder StormConfig(int nMaxAlertNum)
{
    ConfigBuilder config;
    for (const char* pszResource : {"CPU", "Memory", "Disk", "Network"})
    {
        config.SetPolicy(pszResource, 1, 50, 1, nMaxAlertNum);
    }
    return config.SetLogLevel(3).SetCounter("Date", "");
}

Measurements operator-(const Measurements& later, const Measurements& earlier)
{
    return {later.ullCpu - earlier.ullCpu, later.ullMemory - earlier.ullMemory, later.ullDisk - earlier.ullDisk,
            later.ullNetwork - earlier.ullNetwork};
}

TimedMachine::ReadyTree::ReadyTree(const ConfigBuilder& config)
{
    CopyModule();
    WriteConfig(config);
}

TimedMachine::TimedMachine(const ConfigBuilder& config, const TIME_ZONE_INFORMATION& zoneOfMachine, Attach attach)
    : tree(config), module(tree, LoadedModule::Start::Later), imports(module.Handle()), mutexes(imports),
      names(imports, MakePrivateKey()), registry(imports), clock(imports), zone(imports, clock, zoneOfMachine),
      exports(imports), memory(exports), cpu(exports), pdh(imports), wmi(imports), table(imports)
{
    imports.CountCalls("GetIfTable");
    imports.CountCalls("PdhOpenQueryA");
    cpu.Restart();
    pdh.SetInstances(L"Processor", {L"0", L"_Total"});
    pdh.SetValue(L"\\Processor(0)\\% Processor Time", 42.0);
    pdh.SetInstances(L"PhysicalDisk", {L"0 C:", L"_Total"});
    wmi.SetObjects({WmiAdapter(L"Card", 2, WmiText(L"1000000000"))});
    table.AddRow(2);
    table.SetOctets(2, 1, 1);
    SetLoad(false);
    if (attach == Attach::AtOnce)
    {
        AttachNow();
    }
}

TimedMachine::~TimedMachine()
{
    Stop();
}

void TimedMachine::AttachNow()
{
    REQUIRE(module.Attach());
}

void TimedMachine::StartMonitors()
{
    module.Export<decltype(::StartWorkingThread)>("StartWorkingThread")(VARNEX_ALERT_ALL);
}

void TimedMachine::StartReporting()
{
    registry.SetSwitch(1);
    module.Export<decltype(::StartPKIUtlThread)>("StartPKIUtlThread")();
}

void TimedMachine::Stop()
{
    if (clock.Workers() != 0)
    {
        module.Export<decltype(::StopWorkingThread)>("StopWorkingThread")(VARNEX_ALERT_ALL);
        module.Export<decltype(::StopPKIUtlThread)>("StopPKIUtlThread")();
        clock.AdvanceUntilWorkersEnd(SECONDS_TO_END);
    }
}

void TimedMachine::SetLoad(bool bHigh)
{
    const unsigned nPercent = bHigh ? 90 : 10;
    cpu.SetUtilization(static_cast<int>(nPercent));
    memory.SetUtilization(nPercent, nPercent);
    pdh.SetValue(DISK_COUNTER, nPercent * BYTES_PER_MB);
    table.MoveAtEachRead(2, nPercent * 1'250'000, 0);
}

void TimedMachine::Storm(unsigned nSeconds)
{
    for (unsigned nSecond = 0; nSecond < nSeconds; ++nSecond, ++m_nSwing)
    {
        if (m_nSwing % SWING_SECONDS == 0)
        {
            SetLoad(m_nSwing / SWING_SECONDS % 2 == 0);
        }
        clock.Advance(1);
    }
}

// The samplers, one measurement a minute each, may have theirs among them; the disk's takes a tenth of a second, the
// network's a second.
void TimedMachine::StormAtPace()
{
    const Measurements before = Measured();
    Storm(PACE_SECONDS);
    const Measurements at = Measured() - before;
    CAPTURE(at.ullCpu, at.ullMemory, at.ullDisk, at.ullNetwork);
    CHECK(at.ullCpu == PACE_SECONDS);
    CHECK((at.ullMemory >= PACE_SECONDS && at.ullMemory <= PACE_SECONDS + 1));
    CHECK((at.ullDisk >= 27 && at.ullDisk <= 29));
    CHECK((at.ullNetwork >= 58 && at.ullNetwork <= 66));
}

Measurements TimedMachine::Measured()
{
    return {cpu.Reads(), memory.Reads(), imports.Calls("PdhOpenQueryA"), imports.Calls("GetIfTable")};
}

bool TimedMachine::AskForReport()
{
    HostAgent agent(names.Key());
    agent.Ask(60, 1);
    return clock.AdvanceUntil([&agent] { return agent.TakeFinish(); }, REPORT_SECONDS) && agent.Length() != 0;
}

} // namespace varnex::test
