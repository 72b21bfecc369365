#include "reporting/UtilizationReport.h"

#include "common/BoundedText.h"
#include "diag/SPLogger.h"
#include "reporting/ReportXml.h"
#include "reporting/UtilizationAverage.h"
#include "reporting/UtilizationStores.h"
#include "sampling/MemorySampling.h"

namespace varnex
{

namespace
{

constexpr std::int64_t BITS_PER_LINK_SPEED_UNIT = 1'000'000;

// Which samples an average takes in.
struct AverageSpan
{
    std::uint32_t nTotal;
    std::int32_t nMinimum; // compared as signed
};

// The first character only: two instances whose names begin alike get the same text, and readers know it so.
template <std::size_t N>
void CopyFirstCharacter(wchar_t (&wszTarget)[N], const wchar_t* pwszName) noexcept
{
    CopyTextW(wszTarget, 2, pwszName);
}

// Null when the lock is not to be had.
template <class Store>
std::shared_ptr<const typename Store::Names> NamesOf(Store& store)
{
    const StoreLockHold hold(store.lock);
    return hold ? store.GetNames() : nullptr;
}

// A diagnosis only: the first processor's history stands for all.
void LogFirstHistorySize(std::size_t nSize, std::int32_t nMinimum) noexcept
{
    if (static_cast<std::int64_t>(nSize) >= nMinimum)
    {
        Log()->Level4A("GetSinglePKIAverageValue -- checking first CPU UTL list size and input minimum sampling "
                       "amount,CPUList.size:%d, nMinSampleNum:%d...",
                       static_cast<int>(nSize), nMinimum);
    }
    else
    {
        Log()->Level2A("GetSinglePKIAverageValue -- First CPU UTL list size is less than input minimum sampling "
                       "amount,CPUList.size:%d, nMinSampleNum:%d...",
                       static_cast<int>(nSize), nMinimum);
    }
}

// The four parts. False, with the part unfinished, when its store's lock is not to be had: a sampler may be stuck with it.

bool AddCpus(UtilizationReport& report, const AverageSpan& span)
{
    auto& store = Stores().cpu;
    const auto names = NamesOf(store);
    if (names == nullptr)
    {
        return false;
    }
    report.cpus.resize(names->size());
    for (std::size_t i = 0; i < names->size(); ++i)
    {
        const StoreLockHold hold(store.lock);
        if (!hold)
        {
            return false;
        }
        if (i == 0)
        {
            LogFirstHistorySize(store.Of(0).Size(), span.nMinimum);
        }
        CpuEntry& entry = report.cpus[i];
        GetSinglePKIAverageValue(&store.Of(i), span.nTotal, span.nMinimum, &entry.nUtilization);
        CopyFirstCharacter(entry.wszIndex, (*names)[i].get());
        Log()->Level4W(L"CreatePKIXMLToMMF -- CPU[%s], average value[%d %%], prepare to XML.", entry.wszIndex,
                       entry.nUtilization);
    }
    return true;
}

bool AverageMemory(BoundedHistory<int> MemoryHistories::*pHistory, const AverageSpan& span,
                   std::int32_t& nAverage) noexcept
{
    MemoryHistories& store = Stores().memory;
    const StoreLockHold hold(store.lock);
    if (hold)
    {
        GetSinglePKIAverageValue(&(store.*pHistory), span.nTotal, span.nMinimum, &nAverage);
    }
    return static_cast<bool>(hold);
}

bool AddMemory(MemoryEntry& entry, const AverageSpan& span) noexcept
{
    const bool bAveraged = AverageMemory(&MemoryHistories::physical, span, entry.nPhysicalUtilization) &&
                           AverageMemory(&MemoryHistories::pagingFile, span, entry.nPagingFileUtilization);
    if (GetTotalMemorySize(&entry.nPhysicalMB, &entry.nPagingFileMB) == 0)
    {
        Log()->Level4A("CreatePKIXMLToMMF --  Total physical memory(%dMB), Total paging file(%dMB).", entry.nPhysicalMB,
                       entry.nPagingFileMB);
    }
    else
    {
        Log()->Level4A("CreatePKIXMLToMMF --  Get total physical memory(%dMB) and paging file(%dMB) size fail.",
                       entry.nPhysicalMB, entry.nPagingFileMB);
    }
    Log()->Level4A("CreatePKIXMLToMMF -- Memory: Physical Memory -- total size(%d), average UTL(%d %%), Paging file "
                   "-- total size(%d), average UTL(%d %%).",
                   entry.nPhysicalMB, entry.nPhysicalUtilization, entry.nPagingFileMB, entry.nPagingFileUtilization);
    return bAveraged;
}

bool AddDisks(UtilizationReport& report, const AverageSpan& span)
{
    auto& store = Stores().disk;
    const auto names = NamesOf(store);
    if (names == nullptr)
    {
        return false;
    }
    report.disks.resize(names->size());
    for (std::size_t i = 0; i < names->size(); ++i)
    {
        const StoreLockHold hold(store.lock);
        if (!hold)
        {
            return false;
        }
        DiskEntry& entry = report.disks[i];
        entry.nThroughput = GetSinglePKIAverageValue64(store.Of(i), span.nTotal, span.nMinimum);
        CopyFirstCharacter(entry.wszIndex, (*names)[i].get());
        // The 64-bit number where the text takes 32 bits: it shows the low ones.
        Log()->Level4W(L"CreatePKIXMLToMMF -- Disk[%s], average value[%d B/S], prepare to XML.", entry.wszIndex,
                       entry.nThroughput);
    }
    return true;
}

bool AddCards(UtilizationReport& report, const AverageSpan& span)
{
    NetworkHistories& store = Stores().network;
    const StoreLockHold hold(store.lock);
    if (!hold)
    {
        return false;
    }
    for (auto& [dwInterfaceIndex, history] : store.histories)
    {
        NetworkEntry entry{};
        GetSinglePKIAverageValue(&history.Utilizations(), span.nTotal, span.nMinimum, &entry.nUtilization);
        // Only these histories are cut to the span; the next report's speed comes from the oldest record left.
        history.CutTo(span.nTotal);
        entry.nLinkSpeed = static_cast<std::int32_t>(history.Oldest().Speed / BITS_PER_LINK_SPEED_UNIT);
        CopyTextW(entry.wszMACAddress, history.Oldest().MACAddress);
        Log()->Level4W(L"CreatePKIXMLToMMF -- NIC[%s], LinkSpeed[%d MBps], Average PKI Value(%d ), prepare to XML.",
                       entry.wszMACAddress, entry.nLinkSpeed, entry.nUtilization);
        report.cards.push_back(entry);
    }
    return true;
}

void LogLeftOut(const char* pszPart) noexcept
{
    Log()->Level1A("CreatePKIXMLToMMF -- %s left out of the report: the samples are in use.", pszPart);
}

} // namespace

UniqueBstr CreatePKIXMLToMMF(std::uint32_t nTotalSampleNum, std::uint32_t nMinSampleNum, UtilizationReport* pReport)
{
    if (pReport == nullptr)
    {
        Log()->Level1A("CreatePKIXMLToMMF -- checking paramter fail, pstPKIUtlStruct(%p)", nullptr);
        return UniqueBstr();
    }
    Log()->Level3A("CreatePKIXMLToMMF -- Should calculate average PKI utilization, nTotalSampleNum(%d), "
                   "nMinSampleNum(%d)",
                   nTotalSampleNum, nMinSampleNum);
    const AverageSpan span = {nTotalSampleNum, static_cast<std::int32_t>(nMinSampleNum)};
    if (!AddCpus(*pReport, span))
    {
        pReport->cpus.clear();
        LogLeftOut("processors");
    }
    if (!AddMemory(pReport->memory, span))
    {
        pReport->memory.nPhysicalUtilization = 0;
        pReport->memory.nPagingFileUtilization = 0;
        LogLeftOut("averages of memory");
    }
    if (!AddDisks(*pReport, span))
    {
        pReport->disks.clear();
        LogLeftOut("disks");
    }
    if (!AddCards(*pReport, span))
    {
        LogLeftOut("network adapters");
    }
    Log()->Level3A("CreatePKIXMLToMMF -- Average PKI Value has prepared, should compose XML file.CPUNum(%d), "
                   "hyMemUtl(%d), PhyMemSize(%d), PagingFileUtl(%d), PagingFileSize(%d), DiskNum(%d), NetworkNum(%d)",
                   static_cast<int>(pReport->cpus.size()), pReport->memory.nPhysicalUtilization,
                   pReport->memory.nPhysicalMB, pReport->memory.nPagingFileUtilization, pReport->memory.nPagingFileMB,
                   static_cast<int>(pReport->disks.size()), static_cast<int>(pReport->cards.size()));
    UniqueBstr text = CreateKAPKIUtilizationXML(pReport);
    Log()->Level3A("CreatePKIXMLToMMF -- Create KA PKI Utilization XML finish.");
    return text;
}

} // namespace varnex
