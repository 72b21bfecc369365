#include "ReportingBench.h"

#include "diag/SPLogger.h"
#include "entry/ModuleState.h"
#include "reporting/ReportHandOff.h"
#include "reporting/UtilizationStores.h"
#include "support/TestText.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <algorithm>
#include <iterator>
#include <utility>

namespace varnex::test
{

ReportingBench::ReportingBench(int nLogLevel)
    : names(imports, MakePrivateKey()), path(imports, tree.ModulePath()), registry(imports), exports(imports),
      memory(exports), pdh(imports), wmi(imports), table(imports), clock(imports)
{
    tree.WriteConfig(ConfigBuilder().SetLogLevel(nLogLevel));
    // Test programs that start in the same second would share the logger's mutex by its name and drop lines.
    const UniqueHandle sharedMutex(std::exchange(Log()->Mutex, CreateMutexA(nullptr, FALSE, nullptr)));
    Log()->Configure(AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
    Log()->Level = nLogLevel;
    memory.SetUtilization(50, 25);
    pdh.SetInstances(L"Processor", {});
    pdh.SetInstances(L"PhysicalDisk", {});
    PrepareSendingMMFAndEvent();
    names.ForgetAsked();
}

ReportingBench::~ReportingBench()
{
    imports.StopFailing("CreateThread");
    if (WorkersInSlots() != 0)
    {
        StopPKIUtlThread();
    }
    CleanUtilizationStores(0);
    Log()->Level = 0;
}

LogFile ReportingBench::ReadLog() const
{
    return LogFile(tree);
}

void ReportingBench::ForgetLog()
{
    DeleteFileW(tree.InLogs(L"Varnex.log").c_str());
}

std::wstring ReportingBench::ProcessorPath(const std::wstring& name)
{
    return L"\\Processor(" + name + L")\\% Processor Time";
}

std::wstring ReportingBench::DiskPath(const std::wstring& name)
{
    return L"\\PhysicalDisk(" + name + L")\\Disk Bytes/sec";
}

void ReportingBench::SetProcessors(const std::vector<std::wstring>& processors)
{
    std::vector<std::wstring> instances = processors;
    instances.push_back(L"_Total");
    pdh.SetInstances(L"Processor", instances);
    for (const std::wstring& name : processors)
    {
        SetProcessor(name, 42.0);
    }
}

void ReportingBench::SetProcessor(const std::wstring& name, double fPercent)
{
    pdh.SetValue(ProcessorPath(name), fPercent);
}

void ReportingBench::QueueProcessor(const std::wstring& name, const std::vector<double>& percents)
{
    std::vector<double> readings;
    for (const double fPercent : percents)
    {
        readings.insert(readings.end(), 2, fPercent);
    }
    pdh.QueueValues(ProcessorPath(name), readings);
}

void ReportingBench::SetDisks(const std::vector<std::wstring>& disks)
{
    std::vector<std::wstring> instances = disks;
    instances.push_back(L"_Total");
    pdh.SetInstances(L"PhysicalDisk", instances);
    for (const std::wstring& name : disks)
    {
        SetDisk(name, 1000.0);
    }
}

void ReportingBench::SetDisk(const std::wstring& name, double fBytesPerSecond)
{
    pdh.SetValue(DiskPath(name), fBytesPerSecond);
}

void ReportingBench::SetOneCard()
{
    wmi.SetObjects({WmiAdapter(L"Card", 2, WmiText(L"1000000000"))});
    table.AddRow(2);
    table.SetOctets(2, 1, 1);
    table.MoveAtEachRead(2, 12'500'000, 0);
}

void ReportingBench::Start()
{
    REQUIRE(StartPKIUtlThread() == 0);
    clock.Advance(2); // the disk's and the network's first samples take a second and more
}

unsigned ReportingBench::Stop()
{
    const ULONGLONG ullBefore = clock.ElapsedMs();
    REQUIRE(StopPKIUtlThread() == 0);
    return static_cast<unsigned>((clock.ElapsedMs() - ullBefore) / 1000);
}

std::size_t ReportingBench::WorkersInSlots()
{
    return static_cast<std::size_t>(std::count_if(std::begin(g_aUtilizationSlots), std::end(g_aUtilizationSlots),
                                                  [](const WorkerSlot& slot) { return slot.IsSet(); }));
}

} // namespace varnex::test
