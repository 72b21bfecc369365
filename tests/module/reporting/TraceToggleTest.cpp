#include "ReportingModule.h"

#include "support/TestFiles.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr DWORD WAIT_MS = 20'000;

std::vector<std::string> LinesOf(const std::string& bytes)
{
    std::vector<std::string> lines;
    std::size_t nStart = 0;
    while (nStart < bytes.size())
    {
        const std::size_t nEnd = std::min(bytes.find('\n', nStart), bytes.size() - 1);
        lines.push_back(bytes.substr(nStart, nEnd + 1 - nStart));
        nStart = nEnd + 1;
    }
    return lines;
}

struct TraceFile
{
    const wchar_t* pwszName;
    const char* pszHeader;
    const char* pszValues; // behind the time stamp, as a pattern
};

const TraceFile TRACE_FILES[] = {
    {L"CPUUtil.log", "Time\t\tCPU1\r\n", "\t42"},
    {L"MemoryUtil.log", "Time\t\tPhysical Mem\tPage File\r\n", "\t50\t25"},
    {L"DiskUtil.log", "Time\t\tDisk0\r\n", "\t1000"},
    {L"NetworkUtil.log", "Time\t\tCard-2\r\n", "\t[0-9]+"},
};

std::size_t CountLines(const ReportingModule& module, const wchar_t* pwszName)
{
    return LinesOf(ReadFileBytes(module.tree.InLogs(pwszName))).size();
}

// Until each file has so many lines more than it had.
void AwaitLines(const ReportingModule& module, std::size_t nMore)
{
    for (const TraceFile& file : TRACE_FILES)
    {
        const std::size_t nWanted = CountLines(module, file.pwszName) + nMore;
        const DWORD dwStart = GetTickCount();
        while (CountLines(module, file.pwszName) < nWanted)
        {
            REQUIRE(GetTickCount() - dwStart < WAIT_MS);
            Sleep(5);
        }
    }
}

} // namespace

TEST_CASE("tracing that is switched on and off while it runs gives whole lines behind one header")
{
    ReportingModule module;
    REQUIRE(module.Start() == 0);
    for (const TraceFile& file : TRACE_FILES)
    {
        CHECK_FALSE(FileExists(module.tree.InLogs(file.pwszName)));
    }
    for (int i = 0; i < 3; ++i)
    {
        module.registry.SetSwitch(1);
        AwaitLines(module, 2);
        module.registry.SetSwitch(0);
    }
    CHECK(module.Stop() == 0);
    for (const TraceFile& file : TRACE_FILES)
    {
        const std::vector<std::string> lines = LinesOf(ReadFileBytes(module.tree.InLogs(file.pwszName)));
        REQUIRE(lines.size() >= 6);
        CHECK(lines.front() == file.pszHeader);
        for (std::size_t i = 1; i < lines.size(); ++i)
        {
            CHECK_THAT(lines[i], Catch::Matches("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}" +
                                                std::string(file.pszValues) + "\r\n"));
        }
    }
    CHECK(module.registry.LiveKeys() == 0);
}

TEST_CASE("a stop and a start keep the trace file and its one header")
{
    ReportingModule module;
    module.registry.SetSwitch(1);
    module.Start();
    AwaitLines(module, 2);
    module.Stop();
    module.Start();
    AwaitLines(module, 1);
    module.Stop();
    for (const TraceFile& file : TRACE_FILES)
    {
        const std::string bytes = ReadFileBytes(module.tree.InLogs(file.pwszName));
        CHECK(bytes.find(file.pszHeader) == 0);
        CHECK(bytes.find("Time", 1) == std::string::npos);
    }
}

} // namespace varnex::test
