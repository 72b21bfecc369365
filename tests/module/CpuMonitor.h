#pragma once

#include "ModuleAtWork.h"

#include <string>
#include <vector>

namespace varnex::test
{

using Lines = std::vector<std::string>;

// The last lines, or as many as there are.
Lines Last(const Lines& lines, std::size_t nCount = 1);

// A configuration for the CPU monitor at log level 4, with today's counts begun.
ConfigBuilder CpuConfig(int nInterval, int nThreshold, int nSamplingAmount, int nMaxAlertNum, int nSentToday = 0);

// The CPU monitor of the shipped DLL, cycle by cycle. The clock begins at 2026-01-31 12:00:00.
class CpuMonitor : public ModuleAtWork
{
public:
    static constexpr unsigned SECONDS = 60; // the interval of most tests

    explicit CpuMonitor(const ConfigBuilder& config) : ModuleAtWork(config) {}

    // Starts the monitor and lets it do its first cycle. The monitor's own lines since the last call of any of these.
    Lines StartWith(int nLoad);
    // The next cycle, an interval later.
    Lines CycleWith(int nLoad);
    Lines Cycle();
    // Lets it end.
    Lines End();
    // The news without the lines of the stores that the monitor uses.
    Lines OwnNews();

    // The stored count of today's alerts, and its date.
    std::wstring StoredCount() const { return tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/CPU").value_or(L"none"); }
    std::wstring StoredDate() const { return tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/Date").value_or(L"none"); }
};

// The monitor's texts, with their level.
std::string CheckLine(int nAverage, int nThreshold, int nFlag, int nSent, int nMaximum,
                      const std::string& date = "2026-01-31");
std::string AlertText(int nAverage, int nThreshold, int nSent, int nMaximum, const std::string& date = "2026-01-31");

constexpr char NOTHING_TO_JUDGE[] = "2 MonCPUThread -- Get CPU average utilization value fail, next loop.";
constexpr char END_LINE[] = "4 Monitor CPU Utilization thread end...";

} // namespace varnex::test
