#include "SampleSource.h"

#include "SampleCounters.h"
#include "Text.h"
#include "common/AnsiText.h"
#include "sampling/CpuSampling.h"
#include "sampling/InstanceEnumeration.h"
#include "sampling/MemorySampling.h"
#include "sampling/NetworkUtilizationCollector.h"

#include <algorithm>
#include <optional>

#include <winsock2.h>

#include <iphlpapi.h>

namespace varnex::host
{

namespace
{

constexpr DWORD SECOND_MS = 1000;
constexpr wchar_t ASK_AGAIN[] = L"The counter answered when it was asked again: try once more, and open a support case "
                                L"with varnexhost collect if it keeps failing.";

// Why an enumeration has no instances; empty when it has some.
template <class Character>
std::optional<SampleFault> EnumerationFault(CounterRole object, const std::wstring& what,
                                            const InstanceEnumeration<Character>& found)
{
    switch (found.end)
    {
    case EnumerationEnd::NoObjectName:
    case EnumerationEnd::NoTotalName:
        return UncodedFault(what + L" cannot be listed: the system's code page cannot hold the names of their counters",
                            L"The module knows the counters of this system's language by names that the code page for "
                            L"non-Unicode programs has no characters for: set it to that language.");
    case EnumerationEnd::Failed:
        return CounterFault(object, what + L" cannot be listed", static_cast<DWORD>(found.nStatus));
    case EnumerationEnd::NoInstances:
        break;
    case EnumerationEnd::Listed:
        if (!found.names.empty())
        {
            return std::nullopt;
        }
        break;
    }
    return EmptyCounterFault(object, what + L" are not listed: their performance object is empty");
}

void SampleAllProcessors(SourceSample& sample)
{
    FILETIME idle{};
    FILETIME kernel{};
    FILETIME user{};
    if (!GetSystemTimes(&idle, &kernel, &user))
    {
        const DWORD dwError = GetLastError();
        sample.faults.push_back(
            PlainFaultOf(PlainFault::ProcessorTimes, L"The processor times cannot be read", dwError));
        return;
    }
    GetCPUUtlAverage(); // the first reading is the average since the system's start
    Sleep(SECOND_MS);
    sample.values.push_back({L"all processors", L"utilization", GetCPUUtlAverage(), L"%"});
}

void SampleEachProcessor(SourceSample& sample)
{
    const auto found = EnumerateInstances<wchar_t>(IDS_PROCESSOR_OBJECT);
    if (std::optional<SampleFault> fault = EnumerationFault(IDS_PROCESSOR_OBJECT, L"The processors", found))
    {
        sample.faults.push_back(*std::move(fault));
        return;
    }
    std::vector<ProcessorReading> readings(found.names.size());
    for (std::size_t i = 0; i < readings.size(); ++i)
    {
        readings[i].instance = found.names[i].get();
        readings[i].path = CounterPath(IDS_PROCESSOR_OBJECT, readings[i].instance, IDS_PROCESSOR_TIME);
    }
    TakeAll(readings);
    for (const ProcessorReading& reading : readings)
    {
        const std::wstring name = L"processor " + Printable(reading.instance);
        if (reading.dwStatus != ERROR_SUCCESS)
        {
            sample.faults.push_back(
                CounterFault(IDS_PROCESSOR_OBJECT, reading.path + L" cannot be read", reading.dwStatus));
        }
        else if (reading.nPercent < 0)
        {
            sample.faults.push_back(UncodedFault(reading.path + L" could not be read", ASK_AGAIN));
        }
        else
        {
            sample.values.push_back({name, L"utilization", reading.nPercent, L"%"});
        }
    }
}

std::wstring WideName(const char* pszName)
{
    wchar_t wszName[512] = L"";
    WideFromAnsi(wszName, std::size(wszName), pszName);
    return wszName;
}

// What the records of the adapters tell, after two collections a second apart.
void AddAdapters(const std::vector<NetworkCard>& cards, SourceSample& sample)
{
    for (const NetworkCard& card : cards)
    {
        const std::wstring name = Printable(card.Name);
        if (card.Utilization == NetworkCard::UTILIZATION_MISSING)
        {
            sample.notes.push_back(name +
                                   L": has no traffic counters, as disabled and virtual adapters have none; it is "
                                   L"not watched.");
            continue;
        }
        sample.values.push_back({name, L"utilization", card.Utilization, L"%"});
        sample.values.push_back({name, L"traffic", static_cast<std::int64_t>(card.DeltaBytes), L"B/s"});
        sample.values.push_back({name, L"link speed", card.Speed, L"bit/s"});
        if (card.Speed < 1)
        {
            sample.notes.push_back(name + L": its link speed is unknown, so its utilization always counts as 0 %.");
        }
    }
}

SampleFault NoCountersFault()
{
    ULONG cbTable = 0;
    const DWORD dwError = GetIfTable(nullptr, &cbTable, FALSE);
    if (dwError != NO_ERROR && dwError != ERROR_INSUFFICIENT_BUFFER)
    {
        return PlainFaultOf(PlainFault::InterfaceTable, L"The table of network interfaces cannot be read", dwError);
    }
    return UncodedFault(L"None of the adapters has traffic counters",
                        L"Enable an adapter, or see whether its driver is installed: ncpa.cpl shows them.");
}

} // namespace

SourceSample SampleProcessors()
{
    SourceSample sample{L"cpu", {}, {}, {}};
    SampleAllProcessors(sample);
    SampleEachProcessor(sample);
    return sample;
}

SourceSample SampleMemory()
{
    SourceSample sample{L"memory", {}, {}, {}};
    unsigned nPhysicalPercent = 0;
    unsigned nPagingFilePercent = 0;
    unsigned nPhysicalMB = 0;
    unsigned nPagingFileMB = 0;
    int nResult = GetAvaMemoryUtilization(&nPhysicalPercent, &nPagingFilePercent);
    if (nResult == 0)
    {
        nResult = GetTotalMemorySize(&nPhysicalMB, &nPagingFileMB);
    }
    if (nResult == 0 && nPhysicalMB == 0) // the status call failed, which the module takes for 0
    {
        MEMORYSTATUSEX status{};
        status.dwLength = sizeof status;
        nResult = GlobalMemoryStatusEx(&status) ? ERROR_GEN_FAILURE : static_cast<int>(GetLastError());
    }
    if (nResult != 0)
    {
        sample.faults.push_back(
            PlainFaultOf(PlainFault::MemoryStatus, L"The memory status cannot be read", static_cast<DWORD>(nResult)));
        return sample;
    }
    sample.values = {{L"physical memory", L"utilization", nPhysicalPercent, L"%"},
                     {L"physical memory", L"size", nPhysicalMB, L"MB"},
                     {L"paging file", L"utilization", nPagingFilePercent, L"%"},
                     {L"paging file", L"size", nPagingFileMB, L"MB"}};
    return sample;
}

SourceSample SampleDisks()
{
    SourceSample sample{L"disk", {}, {}, {}};
    const auto found = EnumerateInstances<char>(IDS_PHYSICAL_DISK_OBJECT);
    if (std::optional<SampleFault> fault = EnumerationFault(IDS_PHYSICAL_DISK_OBJECT, L"The physical disks", found))
    {
        sample.faults.push_back(*std::move(fault));
        return sample;
    }
    std::vector<DiskReading> readings(found.names.size());
    for (std::size_t i = 0; i < readings.size(); ++i)
    {
        readings[i].instance = found.names[i].get();
        readings[i].path =
            CounterPath(IDS_PHYSICAL_DISK_OBJECT, WideName(found.names[i].get()), IDS_DISK_BYTES_PER_SEC);
    }
    TakeAll(readings);
    for (const DiskReading& reading : readings)
    {
        if (reading.dwStatus != ERROR_SUCCESS)
        {
            sample.faults.push_back(
                CounterFault(IDS_PHYSICAL_DISK_OBJECT, reading.path + L" cannot be read", reading.dwStatus));
        }
        else if (reading.nBytesPerSecond < 0)
        {
            sample.faults.push_back(UncodedFault(reading.path + L" could not be read", ASK_AGAIN));
        }
        else
        {
            sample.values.push_back({L"disk " + Printable(WideName(reading.instance.c_str())), L"throughput",
                                     reading.nBytesPerSecond, L"B/s"});
        }
    }
    return sample;
}

SourceSample SampleNetwork()
{
    SourceSample sample{L"network", {}, {}, {}};
    NetworkUtilizationCollector collector;
    const HRESULT nListed = collector.RefreshCardList();
    if (FAILED(nListed))
    {
        sample.faults.push_back(AdapterListFault(L"WMI does not list the network adapters", nListed));
        return sample;
    }
    if (collector.CardList().empty())
    {
        sample.faults.push_back(UncodedFault(L"WMI lists no Ethernet adapter",
                                             L"A machine without one is not watched. If it has one: does ncpa.cpl show "
                                             L"it, and what does winmgmt /verifyrepository say?"));
        return sample;
    }
    collector.CollectUtilization();
    Sleep(SECOND_MS);
    collector.CollectUtilization();
    AddAdapters(collector.CardList(), sample);
    if (sample.values.empty())
    {
        sample.faults.push_back(NoCountersFault());
    }
    return sample;
}

} // namespace varnex::host
