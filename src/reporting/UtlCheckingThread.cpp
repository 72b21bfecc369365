#include "reporting/UtlCheckingThread.h"

#include "common/BoundedText.h"
#include "common/Com.h"
#include "common/LocalTime.h"
#include "diag/ExceptionBarrier.h"
#include "entry/ModuleState.h"
#include "reporting/ReportHandOff.h"
#include "reporting/UtilizationReport.h"

#include <cstring>

namespace varnex
{

namespace
{

constexpr DWORD REQUEST_WAIT_MS = 4'200'000; // then the event is opened anew
constexpr DWORD NO_EVENT_PAUSE_MS = 10'000;
constexpr DWORD NO_REQUEST_PAUSE_MS = 3'000;

// Null, logged and ten seconds later, when there is none: every caller tries again.
UniqueHandle OpenNamedEventOrPause(const wchar_t* pwszName) noexcept
{
    UniqueHandle event(OpenEventW(EVENT_ALL_ACCESS, FALSE, pwszName));
    if (!event)
    {
        const DWORD dwError = GetLastError();
        Log()->Level1W(L"CPKIUtlCheckingThread -- OpenEvent fail(%d), Event name(%s)", dwError, pwszName);
        Sleep(NO_EVENT_PAUSE_MS);
    }
    return event;
}

// The text of a report made now; null when it could not be built.
UniqueBstr MakeReport(std::uint32_t nTotal, std::uint32_t nMinimum) noexcept
{
    UniqueBstr text;
    StopExceptions("CPKIUtlCheckingThread", false,
                   [&]
                   {
                       UtilizationReport report;
                       wchar_t wszTime[TIME_CHARS];
                       FormatLocalTimeW(SecondsNow(), wszTime);
                       CopyTextW(report.wszTime, wszTime);
                       text = CreatePKIXMLToMMF(nTotal, nMinimum, &report);
                       return true;
                   });
    return text;
}

// Puts the text into the section: the whole of it, or, when there is none or it is too large, a length of 0.
void WriteReport(ReportSection& section, const UniqueBstr& text) noexcept
{
    const std::size_t cchText = SysStringLen(text.Get());
    Log()->Level3A("CPKIUtlCheckingThread -- Create PKI XML Finish, Buffer size(%d).",
                   static_cast<int>(cchText * sizeof(wchar_t)));
    section.nTextLength = 0;
    if (!text)
    {
        Log()->Level1A("CPKIUtlCheckingThread -- the report could not be built, length 0 is handed over.");
        return;
    }
    if (cchText > MAX_REPORT_CHARS)
    {
        Log()->Level1A("CPKIUtlCheckingThread -- the report is too large(%d bytes, the section holds %d), length 0 is "
                       "handed over.",
                       static_cast<int>(cchText * sizeof(wchar_t)),
                       static_cast<int>(MAX_REPORT_CHARS * sizeof(wchar_t)));
        return;
    }
    std::memcpy(section.awchText, text.Text(), cchText * sizeof(wchar_t));
    section.nTextLength = static_cast<std::uint32_t>(cchText);
    Log()->Level4A("CPKIUtlCheckingThread -- saved PKI Utilization XML into MMF finish.");
}

// Answers the request in the section. False when there is none to answer; the begin event then stays set, and the next
// cycle comes at once: the asking process resets the event or keeps its section open.
bool AnswerRequest() noexcept
{
    const UniqueHandle section(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, REPORT_SECTION_NAME));
    if (!section)
    {
        const DWORD dwError = GetLastError();
        Log()->Level1W(L"CPKIUtlCheckingThread -- OpenFileMapping(%s) fail(%d)", REPORT_SECTION_NAME, dwError);
        return false;
    }
    const UniqueView view = MapReportSection(section.Get());
    if (!view)
    {
        const DWORD dwError = GetLastError();
        Log()->Level1W(L"CPKIUtlCheckingThread -- MapViewOfFile(%s) fail(%d)", REPORT_SECTION_NAME, dwError);
        return false;
    }
    Log()->Level4A("CPKIUtlCheckingThread -- OpenFileMappingW and MapViewOfFile all successful...");
    auto& request = *static_cast<volatile ReportSection*>(view.Get()); // others may write to it at any time: read once
    const std::uint32_t nTotal = request.TotalSamplingNum;
    const std::uint32_t nMinimum = request.minSamplingNum;
    Log()->Level4A("CPKIUtlCheckingThread --  MMF data: TotalSamplingNum(%d), minSamplingNum(%d)", nTotal, nMinimum);
    if (nTotal == 0 || nMinimum == 0)
    {
        // The thread goes on, whatever the text says.
        Log()->Level1A("CPKIUtlCheckingThread -- total or minimum sampling amount is zero, exit...");
        return false;
    }
    Log()->Level3A("CPKIUtlCheckingThread -- MMF data: TotalSamplingAmout(%d), MinimumSamplingAmout(%d)", nTotal,
                   nMinimum);
    WriteReport(*static_cast<ReportSection*>(view.Get()), MakeReport(nTotal, nMinimum));
    return true;
}

// The section is complete: the finish event is set first, the begin event reset after it.
void TellFinished(HANDLE hBegin) noexcept
{
    const UniqueHandle finish = OpenNamedEventOrPause(FINISH_EVENT_NAME);
    if (!finish)
    {
        return;
    }
    Log()->Level4A("CPKIUtlCheckingThread -- Open Event for finish-calculation PKI UTL successfully...");
    SetEvent(finish.Get());
    Log()->Level4A("CPKIUtlCheckingThread -- Tell KA to read PKI UTL XML from MMF...");
    ResetEvent(hBegin);
    Log()->Level3A("CPKIUtlCheckingThread -- All operation has finished this loop, should next loop...");
}

// One request, or one wait without any. False for the stop command.
bool RunRequestCycle(const CPKIUtlCheckingThread& worker) noexcept
{
    UniqueHandle begin = OpenNamedEventOrPause(BEGIN_EVENT_NAME);
    if (!begin)
    {
        return true;
    }
    Log()->Level4A("CPKIUtlCheckingThread -- Open Event for calculation PKI utl successfully...");
    if (WaitForSingleObject(begin.Get(), REQUEST_WAIT_MS) != WAIT_OBJECT_0)
    {
        const DWORD dwError = GetLastError();
        Log()->Level1A("CPKIUtlCheckingThread -- WaitForSingleObject event for calculation PKI utl fail(%d).", dwError);
        begin.Reset();
        Sleep(NO_REQUEST_PAUSE_MS);
        return true;
    }
    if (!worker.IsRunning())
    {
        Log()->Level1A("CPKIUtlCheckingThread -- get thread exit command, exit...");
        ResetEvent(begin.Get());
        return false;
    }
    Log()->Level3A("CPKIUtlCheckingThread -- PKI UTL Begin Event has been signal, will calculate PKI data to MMF...");
    if (AnswerRequest())
    {
        TellFinished(begin.Get());
    }
    return true;
}

} // namespace

CPKIUtlCheckingThread::CPKIUtlCheckingThread() noexcept
{
    Log()->Level4A("CPKIUtlCheckingThread construct -- without parameters.");
}

int CPKIUtlCheckingThread::UpdateAlertPolicy()
{
    return 1;
}

DWORD CPKIUtlCheckingThread::Run()
{
    Log()->Level3A("CPKIUtlCheckingThread --  PKI Utilization checking thread begin...");
    const ThreadApartment apartment(RPC_E_CHANGED_MODE);
    if (!apartment.Usable())
    {
        Log()->Level1A("CPKIUtlCheckingThread -- initialize COM interface failed(0x%08x).", apartment.Result());
        return 0;
    }
    while (IsRunning() && RunRequestCycle(*this))
    {
    }
    // Unlike the samplers this thread uninitialises COM before it is dismantled; like them also after a refusal that
    // was tolerated, once too often: it has always been so.
    ThreadApartment::Leave();
    DismantleWorker(this, g_pUtlCheckingThread);
    Log()->Level3A("CPKIUtlCheckingThread -- thread exit...");
    return 1;
}

} // namespace varnex
