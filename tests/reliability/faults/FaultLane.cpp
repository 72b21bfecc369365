#include "FaultLane.h"

#include <algorithm>
#include <iostream>
#include <sstream>
#include <utility>

namespace varnex::test
{

namespace
{

constexpr ULONGLONG SILENCE_MS = 60'000; // the clock's own guard speaks after 30 s
constexpr char CHILD[] = "child: goes through fault points";

bool TakePrefix(std::string& line, const char* pszPrefix)
{
    const std::string prefix = pszPrefix;
    const bool bHasIt = line.compare(0, prefix.size(), prefix) == 0;
    line.erase(0, bHasIt ? prefix.size() : 0);
    return bHasIt;
}

std::vector<std::string> LinesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
    {
        if (!line.empty() && line.back() == '\r')
        {
            line.pop_back();
        }
        lines.push_back(line);
    }
    return lines;
}

std::string LastPoint(const std::string& output)
{
    std::string last;
    for (std::string line : LinesOf(output))
    {
        last = TakePrefix(line, POINT_BEGINS) ? line : last;
    }
    return last;
}

// What the child said behind the begin of that point.
std::string WordsBehind(const std::string& output, const std::string& point)
{
    const std::size_t nBegin = output.rfind(POINT_BEGINS + point);
    return nBegin == std::string::npos ? output : output.substr(nBegin);
}

} // namespace

FaultLane::FaultLane(FaultOrder order) : m_order(std::move(order))
{
    StartChild();
}

void FaultLane::StartChild()
{
    ChildOptions options;
    options.arguments = {L"--abort"};
    options.environment[FAULT_ORDER_VARIABLE] = m_order.Text();
    m_child = std::make_unique<ChildProcess>(ChildProcess::OfTestCase(CHILD, options));
    m_cbSeen = 0;
    m_ullSeenAt = GetTickCount64();
}

bool FaultLane::HasHung(const std::string& output)
{
    if (output.size() != m_cbSeen)
    {
        m_cbSeen = output.size();
        m_ullSeenAt = GetTickCount64();
    }
    return GetTickCount64() - m_ullSeenAt > SILENCE_MS;
}

bool FaultLane::Attend()
{
    if (m_child == nullptr)
    {
        return false;
    }
    const bool bRuns = m_child->Runs();
    const std::string output = m_child->Output();
    const bool bHung = bRuns && HasHung(output);
    if (bRuns && !bHung)
    {
        return true;
    }
    TakeResults(output);
    if (!bHung && m_child->ExitCode() == 0 && output.find(ORDER_ENDS) != std::string::npos)
    {
        m_child.reset();
        return false;
    }
    TakeFinding(output, bHung ? "hangs" : "exit code " + std::to_string(m_child->ExitCode()));
    m_child.reset();
    if (m_order.last.ullCall == 0)
    {
        return false; // it came to no point at all
    }
    StartChild();
    return true;
}

void FaultLane::TakeResults(const std::string& output)
{
    for (std::string line : LinesOf(output))
    {
        if (TakePrefix(line, POINT_ENDS))
        {
            ++m_nPoints;
            const std::size_t nAfter = line.rfind(" after ");
            const unsigned long nSeconds = std::strtoul(line.c_str() + nAfter + 7, nullptr, 10);
            m_nLongestEnd = std::max(m_nLongestEnd, static_cast<unsigned>(nSeconds));
        }
    }
}

void FaultLane::TakeFinding(const std::string& output, const std::string& end)
{
    const std::string point = LastPoint(output);
    m_findings.push_back({point, end + "\n" + WordsBehind(output, point)});
    std::cout << "FINDING " << point << ": " << end << std::endl; // long before the end of a long form
    m_order.last = FaultPoint::OfText(point);
    if (point.empty())
    {
        return;
    }
    ++m_nPoints;
    const auto reached = std::find(m_order.targets.begin(), m_order.targets.end(), m_order.last.target);
    m_order.targets.erase(m_order.targets.begin(), reached);
}

} // namespace varnex::test
