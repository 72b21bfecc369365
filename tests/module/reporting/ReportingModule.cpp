#include "ReportingModule.h"

#include "support/ConfigBuilder.h"

#include <catch2/catch.hpp>

#include <algorithm>

namespace varnex::test
{

namespace
{

thread_local bool t_bHostThread = false;

void SleepLess(DWORD dwMilliseconds)
{
    Sleep(std::max<DWORD>(dwMilliseconds / (t_bHostThread ? 10 : 1000), 1));
}

} // namespace

void MarkHostThread()
{
    t_bHostThread = true;
}

ReportingModule::ReadyTree::ReadyTree()
{
    CopyModule();
    WriteConfig(ConfigBuilder().SetLogLevel(2));
}

ReportingModule::ReportingModule()
    : module(tree, LoadedModule::Start::Later), imports(module.Handle()), mutexes(imports),
      names(imports, MakePrivateKey()), registry(imports), exports(imports), memory(exports), pdh(imports),
      wmi(imports), table(imports)
{
    MarkHostThread();
    imports.Redirect("Sleep", SleepLess);
    imports.CountCalls("TerminateThread");
    imports.CountCalls("CreateThread");
    memory.SetUtilization(50, 25);
    pdh.SetInstances(L"Processor", {L"0", L"_Total"});
    pdh.SetValue(L"\\Processor(0)\\% Processor Time", 42.0);
    pdh.SetInstances(L"PhysicalDisk", {L"0 C:", L"_Total"});
    pdh.SetValue(L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec", 1000.0);
    wmi.SetObjects({WmiAdapter(L"Card", 2, WmiText(L"1000000000"))});
    table.AddRow(2);
    table.SetOctets(2, 1, 1);
    table.MoveAtEachRead(2, 12'500'000, 0);
    REQUIRE(module.Attach());
}

ReportingModule::~ReportingModule()
{
    Stop();
}

unsigned ReportingModule::Start() const
{
    return module.Export<decltype(::StartPKIUtlThread)>("StartPKIUtlThread")();
}

unsigned ReportingModule::Stop() const
{
    return module.Export<decltype(::StopPKIUtlThread)>("StopPKIUtlThread")();
}

} // namespace varnex::test
