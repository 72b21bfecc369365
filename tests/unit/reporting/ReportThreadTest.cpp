#include "ComJournal.h"
#include "ForeignSection.h"
#include "ReportDocument.h"
#include "SamplerBench.h"
#include "StoreFilling.h"

#include "reporting/UtlCheckingThread.h"
#include "support/ProcessMeter.h"

#include <catch2/catch.hpp>

#include <algorithm>

namespace varnex::test
{

namespace
{

using Wanted = HasLinesInOrder::Wanted;

constexpr char TIME[] = "2026-01-31 12:00:00";
constexpr char BEGIN_LINE[] = "CPKIUtlCheckingThread --  PKI Utilization checking thread begin...";
constexpr char EXIT_LINE[] = "CPKIUtlCheckingThread -- thread exit...";
constexpr char COMMAND_LINE[] = "CPKIUtlCheckingThread -- get thread exit command, exit...";
constexpr char OPENED_LINE[] = "CPKIUtlCheckingThread -- Open Event for calculation PKI utl successfully...";
constexpr std::size_t MAX_TEXT = (SECTION_BYTES - TEXT_OFFSET) / 2;

const std::wstring OPEN_SECTION = std::wstring(L"OpenFileMapping ") + SECTION_NAME;

class ReportRun : public SamplerRun<CPKIUtlCheckingThread>
{
public:
    explicit ReportRun(ReportingBench& bench)
        : SamplerRun(bench, g_pUtlCheckingThread), agent(bench.names.Key()), m_bench(bench)
    {
    }
    ~ReportRun()
    {
        if (!HasEnded())
        {
            Stop();
        }
    }
    void Stop()
    {
        RequestStop();
        agent.SetBegin();
        m_bench.clock.AdvanceUntilWorkersEnd(11);
    }
    void Ask(std::uint32_t nTotal, std::uint32_t nMinimum)
    {
        agent.Ask(nTotal, nMinimum);
        m_bench.clock.WaitUntilAllAsleep();
    }

    HostAgent agent;

private:
    ReportingBench& m_bench;
};

// The report cycles that repeat without a pause: what the process held during them, and that they end when the agent
// takes its request back.
class BusyCycles
{
public:
    BusyCycles(ReportingBench& bench, HostAgent& agent) : m_bench(bench)
    {
        bench.imports.CountCalls("MapViewOfFile");
        bench.imports.CountCalls("UnmapViewOfFile");
        bench.names.OnAsked(
            [this, &agent](const std::wstring& call)
            {
                if (call == OPEN_SECTION && ++m_nCycles == CYCLES)
                {
                    agent.ResetBegin();
                }
                if (call == OPEN_SECTION && (m_nCycles == 10 || m_nCycles == CYCLES))
                {
                    m_handles.push_back(CountHandles());
                }
            });
    }
    ~BusyCycles() { m_bench.names.OnAsked(nullptr); }
    BusyCycles(const BusyCycles&) = delete;
    BusyCycles& operator=(const BusyCycles&) = delete;

    void Check()
    {
        CHECK(m_nCycles == CYCLES);
        REQUIRE(m_handles.size() == 2);
        CHECK(m_handles[0] == m_handles[1]);
        CHECK(m_bench.clock.ElapsedMs() == 0);
    }
    static constexpr int CYCLES = 50;

private:
    ReportingBench& m_bench;
    int m_nCycles = 0;
    std::vector<std::size_t> m_handles;
};

// Cards that make the report's text exactly that long.
void FillForTextLength(ReportRun& run, std::size_t cchText)
{
    const auto measure = [&run]
    {
        run.Ask(1, 1);
        REQUIRE(run.agent.TakeFinish());
        return std::size_t{run.agent.Length()};
    };
    const auto card = [](DWORD dwIndex, std::size_t cchAddress)
    { return MakeCard(dwIndex, std::wstring(cchAddress, L'A'), 0, 0); };
    const std::size_t cchBase = measure();
    FillCards({card(1000, 1)});
    const std::size_t cchCard = measure() - cchBase - 1;
    Stores().network.histories.clear();
    // Addresses of about 15 characters each, which leaves room to share out what is over.
    const std::size_t nCards = (cchText - cchBase) / (cchCard + 15);
    const std::size_t cchAddresses = cchText - cchBase - nCards * cchCard;
    for (std::size_t i = 0; i < nCards; ++i)
    {
        FillCards({card(static_cast<DWORD>(1000 + i), cchAddresses / nCards + (i < cchAddresses % nCards ? 1 : 0))});
    }
}

} // namespace

TEST_CASE("a request is answered with the text at offset 12, its length in units at offset 8, and the finish event")
{
    ReportingBench bench;
    FillMemoryStore(std::vector<int>(50, 30), std::vector<int>(50, 20));
    ReportRun run(bench);
    bench.ForgetLog();
    run.Ask(60, 40);
    CHECK(run.agent.TakeFinish());
    CHECK_FALSE(run.agent.IsBeginSet());
    const std::wstring text = run.agent.Text();
    CHECK(ReadReport(text) == ExpectedReport(TIME).Memory(30, 10000, 20, 10000).Tree());
    CHECK(text.size() == run.agent.Length());
    CHECK(run.agent.IsRestUntouched());
    CHECK(bench.names.CountUnlikeExpected() == 0);
    const std::string bytes = std::to_string(text.size() * 2);
    const std::vector<Wanted> wanted = {
        {3, "CPKIUtlCheckingThread -- PKI UTL Begin Event has been signal, will calculate PKI data to MMF..."},
        {4, "CPKIUtlCheckingThread -- OpenFileMappingW and MapViewOfFile all successful..."},
        {4, "CPKIUtlCheckingThread --  MMF data: TotalSamplingNum(60), minSamplingNum(40)"},
        {3, "CPKIUtlCheckingThread -- MMF data: TotalSamplingAmout(60), MinimumSamplingAmout(40)"},
        {3, "CreatePKIXMLToMMF -- Should calculate average PKI utilization, nTotalSampleNum(60), nMinSampleNum(40)"},
        {3, "CreatePKIXMLToMMF -- Create KA PKI Utilization XML finish."},
        {3, "CPKIUtlCheckingThread -- Create PKI XML Finish, Buffer size(" + bytes + ")."},
        {4, "CPKIUtlCheckingThread -- saved PKI Utilization XML into MMF finish."},
        {4, "CPKIUtlCheckingThread -- Open Event for finish-calculation PKI UTL successfully..."},
        {4, "CPKIUtlCheckingThread -- Tell KA to read PKI UTL XML from MMF..."},
        {3, "CPKIUtlCheckingThread -- All operation has finished this loop, should next loop..."},
        {4, OPENED_LINE},
    };
    CHECK_THAT(bench.ReadLog(), HasLinesInOrder(wanted));
    CHECK(bench.ReadLog().CountOfLevel(1) == 0);
    CHECK(bench.ReadLog().CountContaining("CPKIUtlCheckingThread") == 10);
}

TEST_CASE("the text is complete before the finish event is set, and the begin event is reset after that")
{
    ReportingBench bench;
    std::vector<std::string> steps;
    HostAgent* pAgent = nullptr;
    bench.imports.Replace<decltype(::SetEvent)>(
        "SetEvent",
        [&](HANDLE hEvent)
        {
            const std::wstring text = pAgent->Text();
            const bool bWhole = text.size() > 20 && text.find(L"</ServerPKIInformation>") != std::wstring::npos;
            steps.push_back(std::string(bWhole ? "whole text, " : "no text, ") +
                            (pAgent->IsBeginSet() ? "begin set: finish" : "begin reset: finish"));
            return SetEvent(hEvent);
        });
    bench.imports.Replace<decltype(::ResetEvent)>("ResetEvent",
                                                  [&](HANDLE hEvent)
                                                  {
                                                      steps.emplace_back("reset");
                                                      return ResetEvent(hEvent);
                                                  });
    bench.imports.Replace<decltype(::UnmapViewOfFile)>("UnmapViewOfFile",
                                                       [&](LPCVOID pView)
                                                       {
                                                           steps.emplace_back("unmap");
                                                           return UnmapViewOfFile(pView);
                                                       });
    {
        ReportRun run(bench);
        pAgent = &run.agent;
        run.Ask(60, 40);
        CHECK(steps == std::vector<std::string>{"unmap", "whole text, begin set: finish", "reset"});
        CHECK(run.agent.TakeFinish());
        CHECK_FALSE(run.agent.IsBeginSet());
        bench.imports.Restore("SetEvent");
        bench.imports.Restore("ResetEvent");
        bench.imports.Restore("UnmapViewOfFile");
    }
}

TEST_CASE("numbers from the section are taken as they are")
{
    ReportingBench bench;
    FillMemoryStore({10, 20, 30}, {10, 20, 30});
    ReportRun run(bench);
    run.Ask(0xFFFFFFFF, 0x80000000);
    CHECK(run.agent.TakeFinish());
    CHECK(ReadReport(run.agent.Text()) == ExpectedReport(TIME).Memory(20, 10000, 20, 10000).Tree());
    CHECK_THAT(bench.ReadLog(),
               HasLine(4, "CPKIUtlCheckingThread --  MMF data: TotalSamplingNum(-1), minSamplingNum(-2147483648)"));
    run.Ask(1, 1441);
    CHECK(run.agent.TakeFinish());
    CHECK(ReadReport(run.agent.Text()) == ExpectedReport(TIME).Memory(0, 10000, 0, 10000).Tree());
}

TEST_CASE("a span or minimum of zero is refused, over and over until the begin event is reset, and nothing leaks")
{
    const auto nTotal = GENERATE(as<std::uint32_t>{}, 0, 60);
    const auto nMinimum = GENERATE_COPY(as<std::uint32_t>{}, 0, nTotal == 0 ? 60 : 0);
    CAPTURE(nTotal, nMinimum);
    ReportingBench bench;
    ReportRun run(bench);
    BusyCycles cycles(bench, run.agent);
    run.Ask(nTotal, nMinimum);
    cycles.Check();
    CHECK(bench.imports.Calls("MapViewOfFile") == BusyCycles::CYCLES);
    CHECK(bench.imports.Calls("UnmapViewOfFile") == BusyCycles::CYCLES);
    CHECK_FALSE(run.agent.TakeFinish());
    CHECK(run.agent.Bytes().substr(8) == std::string(SECTION_BYTES - 8, '\x5A'));
    const LogFile log = bench.ReadLog();
    CHECK(log.Count(1, "CPKIUtlCheckingThread -- total or minimum sampling amount is zero, exit...") ==
          BusyCycles::CYCLES);
    CHECK(log.CountContaining("TotalSamplingAmout") == 0);
    CHECK_FALSE(run.HasEnded());
}

TEST_CASE("a section that cannot be opened is looked for until the begin event is reset, and nothing leaks")
{
    ReportingBench bench;
    ReportRun run(bench);
    bench.names.Hide(SECTION_NAME);
    BusyCycles cycles(bench, run.agent);
    run.Ask(60, 40);
    cycles.Check();
    CHECK_FALSE(run.agent.TakeFinish());
    CHECK(bench.ReadLog().Count(1, "CPKIUtlCheckingThread -- OpenFileMapping(Global\\{EA7425FD-1ED7-4e48-B0CD-"
                                   "EE962879E787}) fail(2)") == BusyCycles::CYCLES);
    bench.names.ShowAll();
    run.Ask(60, 40);
    CHECK(run.agent.TakeFinish());
}

TEST_CASE("a section that cannot be mapped is tried until the begin event is reset, and nothing leaks")
{
    ReportingBench bench;
    ReportRun run(bench);
    bench.imports.FailCall("MapViewOfFile", 1, FailMode::FromThereOn, ERROR_NOT_ENOUGH_MEMORY);
    BusyCycles cycles(bench, run.agent);
    run.Ask(60, 40);
    cycles.Check();
    CHECK(bench.imports.Failures("MapViewOfFile") == BusyCycles::CYCLES);
    bench.imports.StopFailing("MapViewOfFile");
    CHECK_FALSE(run.agent.TakeFinish());
    CHECK(bench.ReadLog().Count(1, "CPKIUtlCheckingThread -- MapViewOfFile(Global\\{EA7425FD-1ED7-4e48-B0CD-"
                                   "EE962879E787}) fail(8)") == BusyCycles::CYCLES);
}

TEST_CASE("a section of somebody else's that is too small or only reserved is not touched, over and over")
{
    const bool bReserved = GENERATE(false, true);
    CAPTURE(bReserved);
    ReportingBench bench;
    const ForeignSection foreign(bReserved);
    ReportRun run(bench);
    int nOpened = 0;
    bench.imports.Replace<decltype(::OpenFileMappingW)>(
        "OpenFileMappingW",
        [&](DWORD dwAccess, BOOL bInherit, LPCWSTR pwszName)
        {
            if (++nOpened == 5)
            {
                run.agent.ResetBegin();
            }
            return OpenFileMappingW(dwAccess, bInherit, PrivateName(pwszName, foreign.Key()).c_str());
        });
    run.Ask(60, 40);
    CHECK(nOpened == 5);
    CHECK_FALSE(run.agent.TakeFinish());
    const LogFile log = bench.ReadLog();
    CHECK(log.CountOfLevel(1) == 5);
    CHECK(log.CountContaining("CPKIUtlCheckingThread -- MapViewOfFile(Global\\{EA7425FD-1ED7-4e48-B0CD-EE962879E787}) "
                              "fail(") == 5);
    CHECK(log.CountContaining("fail(0)") == 0);
    CHECK_FALSE(run.HasEnded());
    bench.imports.Restore("OpenFileMappingW");
}

TEST_CASE("a begin event that cannot be opened is looked for every ten seconds, and nothing leaks")
{
    ReportingBench bench;
    bench.names.Hide(BEGIN_NAME);
    ReportRun run(bench);
    bench.clock.AdvanceMs(20'000);
    const std::size_t nHandles = CountHandles();
    bench.clock.AdvanceMs(79'999);
    const std::string line =
        "CPKIUtlCheckingThread -- OpenEvent fail(2), Event name(Global\\{0362D603-1A78-45f6-92F9-A070F876338A})";
    CHECK(bench.ReadLog().Count(1, line) == 10);
    bench.clock.AdvanceMs(1);
    CHECK(bench.ReadLog().Count(1, line) == 11);
    CHECK(CountHandles() == nHandles);
    CHECK(bench.clock.SleepCount(10'000) == 11);
    bench.names.ShowAll();
    bench.clock.AdvanceMs(10'000);
    run.Ask(60, 40);
    CHECK(run.agent.TakeFinish());
}

TEST_CASE("seventy minutes without a request give one message, a pause of three seconds and a new wait")
{
    ReportingBench bench;
    ReportRun run(bench);
    const std::size_t nHandles = CountHandles();
    const char* const pszPart = "CPKIUtlCheckingThread -- WaitForSingleObject event for calculation PKI utl fail(";
    bench.clock.AdvanceMs(4'199'999);
    CHECK(bench.ReadLog().CountContaining(pszPart) == 0);
    bench.clock.AdvanceMs(1);
    CHECK(bench.ReadLog().CountContaining(pszPart) == 1);
    CHECK(bench.ReadLog().CountOfLevel(1) == 1);
    CHECK(bench.ReadLog().Count(4, OPENED_LINE) == 1);
    CHECK(CountHandles() == nHandles - 1); // the event is closed during the pause
    bench.clock.AdvanceMs(2'999);
    CHECK(bench.ReadLog().Count(4, OPENED_LINE) == 1);
    bench.clock.AdvanceMs(1);
    CHECK(bench.ReadLog().Count(4, OPENED_LINE) == 2);
    CHECK(CountHandles() == nHandles);
    bench.clock.AdvanceMs(4'200'000);
    CHECK(bench.ReadLog().CountContaining(pszPart) == 2);
    CHECK(bench.clock.SleepCount(3'000) == 2);
    bench.clock.AdvanceMs(3'000);
    run.Ask(60, 40);
    CHECK(run.agent.TakeFinish());
}

TEST_CASE("a wait that ends without a request tells the last error and is begun anew")
{
    struct Rule
    {
        DWORD dwResult;
        DWORD dwError;
    };
    const Rule rule = GENERATE(values<Rule>({{WAIT_FAILED, ERROR_INVALID_HANDLE}, {WAIT_TIMEOUT, 1234}}));
    ReportingBench bench(1); // the thread's first lines, whose mutex is waited for as well, are not written
    bench.imports.FailCall("WaitForSingleObject", 1, FailMode::Once, rule.dwError, rule.dwResult);
    ReportRun run(bench);
    REQUIRE(bench.imports.Failures("WaitForSingleObject") == 1);
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 1);
    CHECK_THAT(log, HasLine(1, "CPKIUtlCheckingThread -- WaitForSingleObject event for calculation PKI utl fail(" +
                                   std::to_string(rule.dwError) + ")."));
    CHECK(bench.clock.SleepCount(3'000) == 1);
    bench.clock.AdvanceMs(3'000);
    run.Ask(60, 40);
    CHECK(run.agent.TakeFinish());
}

TEST_CASE("a finish event that cannot be opened leaves the request standing, and it is answered ten seconds later")
{
    ReportingBench bench;
    ReportRun run(bench);
    run.Ask(60, 40); // the first report opens things for good
    REQUIRE(run.agent.TakeFinish());
    bench.names.Hide(FINISH_NAME);
    const std::size_t nHandles = CountHandles();
    run.Ask(60, 40);
    CHECK_FALSE(run.agent.TakeFinish());
    CHECK(run.agent.IsBeginSet());
    const std::string line =
        "CPKIUtlCheckingThread -- OpenEvent fail(2), Event name(Global\\{6E0677E3-DC12-4591-81E3-E63E95E4D023})";
    CHECK(bench.ReadLog().Count(1, line) == 1);
    bench.clock.AdvanceMs(20'000);
    CHECK(bench.ReadLog().Count(1, line) == 3);
    CHECK(bench.ReadLog().CountContaining("saved PKI Utilization XML") == 4);
    CHECK(bench.clock.SleepCount(10'000) == 3);
    bench.names.ShowAll();
    bench.clock.AdvanceMs(10'000);
    CHECK(run.agent.TakeFinish());
    CHECK_FALSE(run.agent.IsBeginSet());
    CHECK(ReadReport(run.agent.Text()) == ExpectedReport("2026-01-31 12:00:30").Memory(0, 10000, 0, 10000).Tree());
    CHECK(CountHandles() == nHandles);
}

TEST_CASE("a hundred reports leave no handle behind")
{
    ReportingBench bench(1);
    ReportRun run(bench);
    run.Ask(60, 40);
    REQUIRE(run.agent.TakeFinish());
    const std::size_t nHandles = CountHandles();
    for (int i = 0; i < 100; ++i)
    {
        run.Ask(60, 40);
        REQUIRE(run.agent.TakeFinish());
    }
    CHECK(CountHandles() == nHandles);
}

TEST_CASE("a report that just fits is handed over whole")
{
    ReportingBench bench(1);
    ReportRun run(bench);
    FillForTextLength(run, MAX_TEXT);
    run.Ask(1, 1);
    CHECK(run.agent.TakeFinish());
    CHECK(run.agent.Length() == MAX_TEXT);
    CHECK(run.agent.IsRestUntouched());
    CHECK(ReadReport(run.agent.Text()).children.size() > 100);
    CHECK(bench.ReadLog().Lines().empty());
}

TEST_CASE("a report that is one character too large is not handed over at all")
{
    ReportingBench bench(1);
    ReportRun run(bench);
    FillForTextLength(run, MAX_TEXT + 1);
    run.Ask(1, 1);
    CHECK(run.agent.TakeFinish());
    CHECK_FALSE(run.agent.IsBeginSet());
    CHECK(run.agent.Length() == 0);
    CHECK(run.agent.IsRestUntouched());
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 1);
    CHECK_THAT(log, HasLine(1, "CPKIUtlCheckingThread -- the report is too large(32758 bytes, the section holds "
                               "32756), length 0 is handed over."));
    // The next one, smaller again, is handed over.
    CleanUtilizationStores(0);
    run.Ask(1, 1);
    CHECK(run.agent.TakeFinish());
    CHECK(ReadReport(run.agent.Text()) == ExpectedReport(TIME).Memory(0, 10000, 0, 10000).Tree());
}

TEST_CASE("a report that cannot be built is handed over as length 0")
{
    ReportingBench bench;
    ReportRun run(bench);
    const bool bNoDocument = GENERATE(true, false);
    bench.ForgetLog();
    if (bNoDocument)
    {
        bench.imports.FailCall("CoCreateInstance", 1, FailMode::Once, {0, static_cast<ULONGLONG>(REGDB_E_CLASSNOTREG)});
    }
    else
    {
        bench.imports.FailCall("SysAllocString", 20, FailMode::Once, ERROR_OUTOFMEMORY);
    }
    run.Ask(60, 40);
    CHECK(run.agent.TakeFinish());
    CHECK_FALSE(run.agent.IsBeginSet());
    CHECK(run.agent.Length() == 0);
    CHECK(run.agent.IsRestUntouched());
    CHECK(bench.imports.Failures(bNoDocument ? "CoCreateInstance" : "SysAllocString") == 1);
    const LogFile log = bench.ReadLog();
    CHECK(log.CountOfLevel(1) == 2);
    CHECK(log.CountContaining("saved PKI Utilization XML") == 0);
    CHECK_THAT(log, HasLinesInOrder({{3, "CPKIUtlCheckingThread -- Create PKI XML Finish, Buffer size(0)."},
                                     {1, "CPKIUtlCheckingThread -- the report could not be built, length 0 is handed "
                                         "over."}}));
}

TEST_CASE("a stop while waiting ends the report thread, with COM left before its last line")
{
    ReportingBench bench;
    const ComJournal com(bench);
    ReportRun run(bench);
    run.Stop();
    CHECK(run.ExitCode() == 1);
    CHECK_FALSE(run.KeepsSlot());
    CHECK_FALSE(run.agent.IsBeginSet());
    CHECK_FALSE(run.agent.TakeFinish());
    CHECK(com.Steps() == std::vector<std::string>{"single", "leave"});
    CHECK_THAT(LogFile::FromBytes(com.LogAtLeave()), HasLine(1, COMMAND_LINE) && !HasLine(3, EXIT_LINE));
    const std::vector<Wanted> wanted = {
        {4, "CPKIUtlCheckingThread construct -- without parameters."},
        {3, BEGIN_LINE},
        {4, OPENED_LINE},
        {1, COMMAND_LINE},
        {3, EXIT_LINE},
    };
    CHECK(bench.ReadLog().Lines().size() == wanted.size());
    CHECK_THAT(bench.ReadLog(), HasLinesInOrder(wanted));
}

TEST_CASE("without COM the report thread ends with 0 and keeps its slot")
{
    ReportingBench bench;
    const ComJournal com(bench, E_OUTOFMEMORY);
    ReportRun run(bench);
    CHECK(run.HasEnded());
    CHECK(run.ExitCode() == 0);
    CHECK(run.KeepsSlot());
    CHECK(com.Steps() == std::vector<std::string>{"single"});
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 3);
    CHECK_THAT(log, HasLinesInOrder({{3, BEGIN_LINE},
                                     {1, "CPKIUtlCheckingThread -- initialize COM interface failed(0x8007000e)."}}));
}

TEST_CASE("an apartment of the other model is good enough for the report thread")
{
    ReportingBench bench;
    const ComJournal com(bench, RPC_E_CHANGED_MODE);
    ReportRun run(bench);
    CHECK_FALSE(run.HasEnded());
    CHECK_THAT(bench.ReadLog(), HasLine(4, OPENED_LINE));
}

} // namespace varnex::test
