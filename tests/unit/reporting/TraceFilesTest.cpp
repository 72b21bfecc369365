#include "FailingMemory.h"
#include "ReportingBench.h"
#include "StoreFilling.h"

#include "reporting/TraceFiles.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <utility>

namespace varnex::test
{

namespace
{

constexpr wchar_t TIME[] = L"2026-01-31 12:00:00";

// One of the four trace files, with what its store needs for a line.
struct Trace
{
    const char* pszOperation;
    const wchar_t* pwszFile;
    std::function<void()> fill;
    std::function<void(const wchar_t*)> output;
    std::string header;
    std::string line;
    bool bStoreIsAlwaysThere = false;
};

void OutputNetwork(const wchar_t* pwszTime)
{
    const StoreLockHold hold(Stores().network.lock);
    OutputCurrentNetworkUtil(pwszTime);
}

NetworkCard TracedCard(DWORD dwInterfaceIndex, const std::wstring& name, std::uint64_t nDeltaBytes)
{
    NetworkCard card = MakeCard(dwInterfaceIndex, L"00", 1, 1);
    name.copy(card.Name, 255);
    card.Name[name.size()] = L'\0';
    card.DeltaBytes = nDeltaBytes;
    return card;
}

std::vector<Trace> AllTraces()
{
    return {
        {"OutputCurrentCPUUtil", L"CPUUtil.log",
         [] {
             FillCpus({{L"0", {1, 10}}, {L"1", {2, -1}}});
         },
         [](const wchar_t* pwszTime) { OutputCurrentCPUUtil(pwszTime, 2); }, "Time\t\tCPU1\tCPU2\r\n",
         "2026-01-31 12:00:00\t10\t-1\r\n"},
        {"OutputCurrentMemUtil", L"MemoryUtil.log",
         [] {
             FillMemoryStore({1, 50}, {2, 25});
         },
         OutputCurrentMemUtil, "Time\t\tPhysical Mem\tPage File\r\n", "2026-01-31 12:00:00\t50\t25\r\n", true},
        {"OutputCurrentDiskUtil", L"DiskUtil.log",
         [] {
             FillDisks({{L"0 C:", {1, 5'000'000'000}}, {L"12 D: E:", {-1}}, {L"X", {0}}});
         },
         OutputCurrentDiskUtil, "Time\t\tDisk0\tDisk12\tDisk0\r\n", "2026-01-31 12:00:00\t5000000000\t-1\t0\r\n"},
        {"OutputCurrentNetworkUtil", L"NetworkUtil.log",
         [] {
             FillCards({TracedCard(7, L"Renamed later", 1), TracedCard(3, L"Third", 30),
                        TracedCard(7, L"New", 8'589'934'590)});
         },
         OutputNetwork, "Time\t\tThird-3\tRenamed later-7\r\n", "2026-01-31 12:00:00\t30\t8589934590\r\n", true},
    };
}

std::string Bytes(const ReportingBench& bench, const wchar_t* pwszFile)
{
    return ReadFileBytes(bench.tree.InLogs(pwszFile));
}

// Of the next write only so many bytes find room, as on a disk that becomes full.
void CutNextWrite(ReportingBench& bench, DWORD cbTaken, bool bSucceeds)
{
    auto pDone = std::make_shared<bool>(false);
    bench.imports.Replace<decltype(::WriteFile)>(
        "WriteFile",
        [=](HANDLE hFile, LPCVOID pData, DWORD cbData, LPDWORD pcbWritten, LPOVERLAPPED pOverlapped) -> BOOL
        {
            if (std::exchange(*pDone, true))
            {
                return WriteFile(hFile, pData, cbData, pcbWritten, pOverlapped);
            }
            *pcbWritten = 0;
            if (cbTaken != 0)
            {
                WriteFile(hFile, pData, cbTaken, pcbWritten, pOverlapped);
            }
            SetLastError(bSucceeds ? ERROR_SUCCESS : ERROR_DISK_FULL);
            return bSucceeds;
        });
}

std::string WriteFailure(const ReportingBench& bench, const wchar_t* pwszFile)
{
    return "WriteTraceText -- fail to write file(" + AnsiFromWide(bench.tree.InLogs(pwszFile)) + "), error(112).";
}

std::vector<std::wstring> TraceFilesIn(const ReportingBench& bench)
{
    std::vector<std::wstring> files = bench.tree.FilesInLogs();
    files.erase(std::remove(files.begin(), files.end(), L"Varnex.log"), files.end());
    return files;
}

} // namespace

TEST_CASE("a trace file begins with its header once and takes a line for each output")
{
    for (const Trace& trace : AllTraces())
    {
        ReportingBench bench;
        CAPTURE(trace.pszOperation);
        bench.registry.SetSwitch(1);
        WriteFileBytes(bench.tree.InLogs(trace.pwszFile), "of an earlier load\r\n");
        trace.fill();
        trace.output(TIME);
        CHECK(Bytes(bench, trace.pwszFile) == trace.header + trace.line);
        trace.output(TIME);
        CHECK(Bytes(bench, trace.pwszFile) == trace.header + trace.line + trace.line);
        CHECK(TraceFilesIn(bench) == std::vector<std::wstring>{trace.pwszFile});
        CHECK(bench.ReadLog().Lines().empty());

        // Off and on again: the same file, no second header.
        bench.registry.SetSwitch(0);
        trace.output(TIME);
        bench.registry.SetSwitch(1);
        trace.output(TIME);
        CHECK(Bytes(bench, trace.pwszFile) == trace.header + trace.line + trace.line + trace.line);
    }
}

TEST_CASE("nothing is created while the switch is off, absent or without a time stamp")
{
    for (const Trace& trace : AllTraces())
    {
        ReportingBench bench;
        CAPTURE(trace.pszOperation);
        trace.fill();
        trace.output(TIME);
        bench.registry.RemoveSwitch();
        trace.output(TIME);
        bench.registry.SetSwitch(0);
        trace.output(TIME);
        CHECK(bench.registry.OpenedKeys().size() == 6);
        bench.registry.SetSwitch(1);
        trace.output(nullptr);
        CHECK(bench.registry.OpenedKeys().size() == 6); // not even asked
        CHECK(TraceFilesIn(bench).empty());

        trace.output(TIME);
        CHECK(Bytes(bench, trace.pwszFile) == trace.header + trace.line);
    }
}

TEST_CASE("while the switch is off no values are collected")
{
    ReportingBench bench;
    std::vector<Filling<int>> processors;
    for (int i = 0; i < 37; ++i)
    {
        processors.push_back({std::to_wstring(i), {i}});
    }
    FillCpus(processors);
    FailingMemory memory(bench.imports, 37 * sizeof(std::int64_t));
    memory.FailBlock(1);
    bench.registry.SetSwitch(0);
    OutputCurrentCPUUtil(TIME, 37);
    CHECK(memory.Failed() == 0);
    bench.registry.SetSwitch(1);
    CHECK_THROWS_AS(OutputCurrentCPUUtil(TIME, 37), std::bad_alloc);
    CHECK(memory.Failed() == 1);
}

TEST_CASE("without a history there is no trace, and the header waits for one")
{
    for (const Trace& trace : AllTraces())
    {
        ReportingBench bench;
        CAPTURE(trace.pszOperation);
        bench.registry.SetSwitch(1);
        trace.output(TIME);
        CHECK(TraceFilesIn(bench).empty());
        // The stores of processors and disks come with their names; the other two are always there, and the switch is
        // looked at for them.
        CHECK(bench.registry.OpenedKeys().size() == (trace.bStoreIsAlwaysThere ? 2 : 0));
        trace.fill();
        trace.output(TIME);
        CHECK(Bytes(bench, trace.pwszFile) == trace.header + trace.line);
    }
}

TEST_CASE("a history without a sample has no newest value: nothing is traced")
{
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    FillCpus({{L"0", {1}}, {L"1", {}}});
    FillDisks({{L"0 C:", {}}});
    FillMemoryStore({1}, {});
    OutputCurrentCPUUtil(TIME, 2);
    OutputCurrentDiskUtil(TIME);
    OutputCurrentMemUtil(TIME);
    CHECK(TraceFilesIn(bench).empty());
}

TEST_CASE("a header that cannot be written is logged and tried again")
{
    for (const Trace& trace : AllTraces())
    {
        ReportingBench bench;
        CAPTURE(trace.pszOperation);
        bench.registry.SetSwitch(1);
        trace.fill();
        REQUIRE(CreateDirectoryW(bench.tree.InLogs(trace.pwszFile).c_str(), nullptr));
        trace.output(TIME);
        trace.output(TIME);
        const LogFile log = bench.ReadLog();
        CHECK(log.Lines().size() == 2);
        CHECK(log.Count(2, std::string("[") + trace.pszOperation + "]failed to open file (5)") == 2);

        REQUIRE(RemoveDirectoryW(bench.tree.InLogs(trace.pwszFile).c_str()));
        trace.output(TIME);
        CHECK(Bytes(bench, trace.pwszFile) == trace.header + trace.line);
        CHECK(bench.ReadLog().Lines().size() == 2);
    }
}

TEST_CASE("a header of which not all was written is logged and written anew")
{
    DWORD cbTaken = 0;
    bool bSucceeds = false;                // with too few bytes
    for (const Trace& trace : AllTraces()) // each file's header is pending once in a process
    {
        cbTaken = cbTaken == 0 ? 5 : 0;
        bSucceeds = bSucceeds != (cbTaken == 0);
        CAPTURE(cbTaken, bSucceeds);
        ReportingBench bench;
        CAPTURE(trace.pszOperation);
        bench.registry.SetSwitch(1);
        trace.fill();
        CutNextWrite(bench, cbTaken, bSucceeds);
        trace.output(TIME);
        CHECK(Bytes(bench, trace.pwszFile) == trace.header.substr(0, cbTaken));
        CHECK(bench.ReadLog().Lines().size() == 1);
        CHECK(bench.ReadLog().Count(2, WriteFailure(bench, trace.pwszFile)) == 1);
        trace.output(TIME);
        CHECK(Bytes(bench, trace.pwszFile) == trace.header + trace.line);
        CHECK(bench.ReadLog().Lines().size() == 1);
    }
}

TEST_CASE("a line of which not all was written is logged, and a torn one is ended before the next one")
{
    const DWORD cbTaken = GENERATE(as<DWORD>{}, 0, 5);
    const bool bSucceeds = GENERATE(false, true);
    CAPTURE(cbTaken, bSucceeds);
    for (const Trace& trace : AllTraces())
    {
        ReportingBench bench;
        CAPTURE(trace.pszOperation);
        bench.registry.SetSwitch(1);
        trace.fill();
        trace.output(TIME);
        const std::string torn = Bytes(bench, trace.pwszFile) + trace.line.substr(0, cbTaken);
        CutNextWrite(bench, cbTaken, bSucceeds);
        trace.output(TIME);
        CHECK(Bytes(bench, trace.pwszFile) == torn);
        CHECK(bench.ReadLog().Lines().size() == 1);
        CHECK(bench.ReadLog().Count(2, WriteFailure(bench, trace.pwszFile)) == 1);
        trace.output(TIME);
        trace.output(TIME);
        CHECK(Bytes(bench, trace.pwszFile) == torn + (cbTaken != 0 ? "\r\n" : "") + trace.line + trace.line);
        CHECK(bench.ReadLog().Lines().size() == 1);
    }
}

TEST_CASE("a torn line is ended once, however much of that is written at first")
{
    const DWORD cbTaken = GENERATE(as<DWORD>{}, 0, 1, 2, 6); // of the line end and the next line
    CAPTURE(cbTaken);
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    FillMemoryStore({50}, {25});
    OutputCurrentMemUtil(TIME);
    const std::string before = Bytes(bench, L"MemoryUtil.log");
    const std::string line = "2026-01-31 12:00:00\t50\t25\r\n";
    CutNextWrite(bench, 4, false);
    OutputCurrentMemUtil(TIME);
    CutNextWrite(bench, cbTaken, false);
    OutputCurrentMemUtil(TIME);
    OutputCurrentMemUtil(TIME);
    const std::string next = std::string("\r\n" + line).substr(0, cbTaken);
    CHECK(Bytes(bench, L"MemoryUtil.log") == before + "2026" + next + (cbTaken == 2 ? "" : "\r\n") + line);
    CHECK(bench.ReadLog().CountOfLevel(2) == 2);
}

TEST_CASE("a torn line is forgotten with its file when a header begins the file anew")
{
    // The same process without a load between them: only a header that is still pending does so.
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    FillMemoryStore({50}, {25});
    CutNextWrite(bench, 5, false);
    OutputCurrentMemUtil(TIME);
    OutputCurrentMemUtil(TIME);
    OutputCurrentMemUtil(TIME);
    const std::string line = "2026-01-31 12:00:00\t50\t25\r\n";
    CHECK(Bytes(bench, L"MemoryUtil.log") == "Time\t\tPhysical Mem\tPage File\r\n" + line + line);
}

TEST_CASE("a missing Logs directory is not made for a trace")
{
    ReportingBench bench(2);
    bench.registry.SetSwitch(1);
    FillMemoryStore({1}, {2});
    bench.path.Set(bench.tree.Root() + L"\\X\\bin\\Varnex.dll");
    OutputCurrentMemUtil(TIME);
    CHECK_THAT(bench.ReadLog(), HasLine(2, "[OutputCurrentMemUtil]failed to open file (3)"));
    CHECK(GetFileAttributesW((bench.tree.Root() + L"\\X").c_str()) == INVALID_FILE_ATTRIBUTES);
}

TEST_CASE("a line that cannot be written is logged with the path")
{
    ReportingBench bench;
    bool bTorn = false;
    const std::wstring path = bench.tree.InLogs(L"CPUUtil.log");
    REQUIRE(CreateDirectoryW(path.c_str(), nullptr));
    WriteUtilToFile(path.c_str(), TIME, {1}, bTorn);
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 1);
    CHECK_THAT(log, HasLine(2, "[WriteUtilToFile]failed to open file " + AnsiFromWide(path) + " (5)"));
}

TEST_CASE("a line needs a path, a time and values")
{
    ReportingBench bench;
    bool bTorn = false;
    const std::wstring path = bench.tree.InLogs(L"x.log");
    WriteUtilToFile(nullptr, TIME, {1}, bTorn);
    WriteUtilToFile(path.c_str(), nullptr, {1}, bTorn);
    WriteUtilToFile(path.c_str(), TIME, {}, bTorn);
    CHECK_FALSE(bTorn);
    CHECK_FALSE(FileExists(path));
    CHECK(bench.ReadLog().Lines().empty());
}

TEST_CASE("values are written as signed 64-bit decimals behind what is there")
{
    ReportingBench bench;
    bool bTorn = false;
    const std::wstring path = bench.tree.InLogs(L"x.log");
    WriteFileBytes(path, "before\x1A");
    WriteUtilToFile(path.c_str(), TIME,
                    {0, -1, -2, std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()},
                    bTorn);
    CHECK(ReadFileBytes(path) == "before\x1A"
                                 "2026-01-31 12:00:00\t0\t-1\t-2\t9223372036854775807\t-9223372036854775808\r\n");
}

TEST_CASE("the path of a trace file lies in Logs beside the module's directory")
{
    struct Rule
    {
        const wchar_t* pwszModule;
        const wchar_t* pwszPath;
    };
    const Rule rule = GENERATE(values<Rule>({
        {L"D:\\A\\B\\bin\\x.dll", L"D:\\A\\B\\Logs\\CPUUtil.log"},
        {L"X:\\dir\\x.dll", L"X:\\Logs\\CPUUtil.log"},
        {L"\\\\host\\share\\bin\\x.dll", L"\\\\host\\share\\Logs\\CPUUtil.log"},
        {L"D:\\\x4E2D\\bin\\x.dll", L"D:\\\x4E2D\\Logs\\CPUUtil.log"},
        {L"X:\\x.dll", L"X:\\Logs\\CPUUtil.log"}, // not the current drive's
    }));
    ReportingBench bench;
    bench.path.Set(rule.pwszModule);
    wchar_t wszPath[TRACE_PATH_CHARS];
    CHECK(GetFileFullPath(L"CPUUtil.log", wszPath));
    CHECK(std::wstring(wszPath) == rule.pwszPath);
    CHECK(bench.ReadLog().Lines().empty());
}

TEST_CASE("a trace path of 259 characters fits and one of 260 does not")
{
    const std::size_t cchPath = GENERATE(as<std::size_t>{}, 258, 259, 260, 261, 400, 1024, 32'000);
    ReportingBench bench;
    const std::wstring tail = L"\\Logs\\CPUUtil.log";
    const std::wstring parent = L"D:\\" + std::wstring(cchPath - tail.size() - 3, L'p');
    bench.path.Set(parent + L"\\bin\\Varnex.dll");
    wchar_t wszPath[TRACE_PATH_CHARS] = L"";
    const bool bFits = cchPath < 260;
    CHECK(GetFileFullPath(L"CPUUtil.log", wszPath) == bFits);
    const LogFile log = bench.ReadLog();
    if (bFits)
    {
        CHECK(std::wstring(wszPath) == parent + tail);
        CHECK(log.Lines().empty());
    }
    else
    {
        CHECK(log.Lines().size() == 1);
        CHECK_THAT(log,
                   HasLine(2, "[WriteUtilToFile]output buffer is too small (" + std::to_string(cchPath) + ",260)"));
    }
}

TEST_CASE("a module whose trace path is too long writes no trace, and its header stays pending")
{
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    FillMemoryStore({1}, {2});
    bench.path.Set(L"D:\\" + std::wstring(250, L'p') + L"\\bin\\Varnex.dll");
    OutputCurrentMemUtil(TIME);
    CHECK(bench.ReadLog().CountOfLevel(2) == 1);
    bench.path.Set(bench.tree.ModulePath());
    OutputCurrentMemUtil(TIME);
    CHECK(Bytes(bench, L"MemoryUtil.log") == "Time\t\tPhysical Mem\tPage File\r\n2026-01-31 12:00:00\t1\t2\r\n");
}

TEST_CASE("a module path that cannot be had means no trace")
{
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    FillMemoryStore({1}, {2});
    bench.path.Fail(ERROR_INVALID_HANDLE);
    OutputCurrentMemUtil(TIME);
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 1);
    CHECK_THAT(log, HasLine(2, "[GetFileFullPath]failed to get module file name (6)"));
}

TEST_CASE("a header that does not fit is cut behind a whole column and still ends its line")
{
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    std::vector<Filling<int>> processors;
    std::string line = "2026-01-31 12:00:00";
    for (int i = 0; i < 64; ++i)
    {
        processors.push_back({std::to_wstring(i), {i}});
        line += "\t" + std::to_string(i);
    }
    FillCpus(processors);
    OutputCurrentCPUUtil(TIME, 64);

    // 5 characters, then 9 columns of 5 and 34 of 6: 254 with the 43rd column; the 44th would make 260 without an end.
    std::string header = "Time\t";
    int nColumn = 1;
    while (header.size() + 1 + 3 + std::to_string(nColumn).size() + 2 <= 259)
    {
        header += "\tCPU" + std::to_string(nColumn++);
    }
    CHECK(nColumn == 44); // the first that is left out
    CHECK(Bytes(bench, L"CPUUtil.log") == header + "\r\n" + line + "\r\n");
}

TEST_CASE("the header of the adapters has room for 1024 characters")
{
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    std::string line = "2026-01-31 12:00:00";
    std::string header = "Time\t";
    for (DWORD dwCard = 10; dwCard < 20; ++dwCard)
    {
        FillCards({TracedCard(dwCard, std::wstring(196, L'n'), dwCard)});
        line += "\t" + std::to_string(dwCard);
        if (dwCard < 15) // 5 columns of 200 and 5 characters before them
        {
            header += "\t" + std::string(196, 'n') + "-" + std::to_string(dwCard);
        }
    }
    // One that would fit again is left out with all behind the first that does not.
    FillCards({TracedCard(30, L"s", 30)});
    line += "\t30";
    OutputNetwork(TIME);
    CHECK(header.size() == 1005);
    CHECK(Bytes(bench, L"NetworkUtil.log") == header + "\r\n" + line + "\r\n");
}

namespace
{

// The length of a header whose columns but the last take 805 characters with what stands before them.
std::size_t HeaderLength(std::size_t cchLastColumn)
{
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    for (DWORD dwCard = 10; dwCard < 14; ++dwCard)
    {
        FillCards({TracedCard(dwCard, std::wstring(196, L'n'), 1)});
    }
    FillCards({TracedCard(14, std::wstring(cchLastColumn - 4, L'n'), 1)}); // a tab, a dash and "14"
    OutputNetwork(TIME);
    const std::string bytes = Bytes(bench, L"NetworkUtil.log");
    return bytes.find("\r\n") + 2;
}

} // namespace

TEST_CASE("a header of 1023 characters is whole")
{
    CHECK(HeaderLength(216) == 805 + 216 + 2);
}

TEST_CASE("a header of 1024 characters loses its last column")
{
    CHECK(HeaderLength(217) == 805 + 2);
}

TEST_CASE("an adapter's name is written in the system's code page")
{
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    FillCards({TracedCard(0xFFFFFFFF, L"Karte f\xFCr \x4E2D", 1)});
    OutputNetwork(TIME);
    const std::string name = AnsiFromWide(L"Karte f\xFCr \x4E2D");
    CHECK(Bytes(bench, L"NetworkUtil.log") == "Time\t\t" + name + "--1\r\n2026-01-31 12:00:00\t1\r\n");
}

TEST_CASE("under the UTF-8 code page a header of three bytes for a character is whole and ends its line")
{
    ReportingBench bench;
    bench.imports.Replace<decltype(::WideCharToMultiByte)>(
        "WideCharToMultiByte",
        [](UINT, DWORD, LPCWCH pwchText, int cchText, LPSTR pchTarget, int cbTarget, LPCCH, LPBOOL)
        { return WideCharToMultiByte(CP_UTF8, 0, pwchText, cchText, pchTarget, cbTarget, nullptr, nullptr); });
    bench.registry.SetSwitch(1);
    FillCards({TracedCard(2, std::wstring(200, L'\x4E2D'), 1)});
    OutputNetwork(TIME);
    std::string name;
    for (int i = 0; i < 200; ++i)
    {
        name += "\xE4\xB8\xAD";
    }
    CHECK(Bytes(bench, L"NetworkUtil.log") == "Time\t\t" + name + "-2\r\n2026-01-31 12:00:00\t1\r\n");
}

} // namespace varnex::test
