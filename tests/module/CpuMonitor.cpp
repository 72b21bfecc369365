#include "CpuMonitor.h"

#include <algorithm>

namespace varnex::test
{

namespace
{

// What the monitor's cycle brings with it, and other tests look at.
bool IsOfStores(const std::string& line)
{
    for (const char* pszName : {"GetAlertNumFromLocal", "SaveAlertNumIntoLocal", "GetAlertConfValue", "GetXMLNodeValue",
                                "SetXMLNodeValue", "StartWorkingThread", "StopWorkingThread"})
    {
        if (line.find(pszName) == 2)
        {
            return true;
        }
    }
    return line == "4 CMonCPUThread construct -- without parameters." ||
           line == "4 Create Monitor CPU Thread Successfully!";
}

std::string Number(int nValue)
{
    return "(" + std::to_string(nValue) + ")";
}

} // namespace

Lines Last(const Lines& lines, std::size_t nCount)
{
    return Lines(lines.end() - static_cast<std::ptrdiff_t>(std::min(nCount, lines.size())), lines.end());
}

ConfigBuilder CpuConfig(int nInterval, int nThreshold, int nSamplingAmount, int nMaxAlertNum, int nSentToday)
{
    return ConfigBuilder()
        .SetPolicy("CPU", nInterval, nThreshold, nSamplingAmount, nMaxAlertNum)
        .SetLogLevel(4)
        .SetCounter("Date", "2026-01-31")
        .SetCounter("CPU", std::to_string(nSentToday));
}

Lines CpuMonitor::StartWith(int nLoad)
{
    cpu.SetUtilization(nLoad);
    Start(VARNEX_ALERT_CPU);
    clock.WaitUntilAllAsleep();
    return OwnNews();
}

Lines CpuMonitor::CycleWith(int nLoad)
{
    cpu.SetUtilization(nLoad);
    return Cycle();
}

Lines CpuMonitor::Cycle()
{
    clock.Advance(SECONDS);
    return OwnNews();
}

Lines CpuMonitor::End()
{
    StopAndEnd(VARNEX_ALERT_CPU);
    return OwnNews();
}

Lines CpuMonitor::OwnNews()
{
    Lines lines = News();
    lines.erase(std::remove_if(lines.begin(), lines.end(), IsOfStores), lines.end());
    return lines;
}

std::string CheckLine(int nAverage, int nThreshold, int nFlag, int nSent, int nMaximum, const std::string& date)
{
    return "4 MonCPUThread -- Before Checking Alert Inf, nCPUUtlAverageValue" + Number(nAverage) + ", Threshold" +
           Number(nThreshold) + ", bReachThreshold_LastTime" + Number(nFlag) + ", nTodaySentAlertNum" + Number(nSent) +
           ", MaxAlertNum InADay" + Number(nMaximum) + ", current date(" + date + ").";
}

std::string AlertText(int nAverage, int nThreshold, int nSent, int nMaximum, const std::string& date)
{
    return "3 MonCPUThread -- CPU average utilization(" + std::to_string(nAverage) + "%) reach threshold(" +
           std::to_string(nThreshold) + "%), ALERT!!!bReachThreshold_LastTime(0), nTodaySentAlertNum" + Number(nSent) +
           ", MaxAlertNum InADay" + Number(nMaximum) + ", current date(" + date + ")";
}

} // namespace varnex::test
