#include "ReportClient.h"

#include "HostError.h"
#include "reporting/ReportHandOff.h"

#include <algorithm>

namespace varnex::host
{

namespace
{

constexpr DWORD POLL_MS = 100;

constexpr wchar_t NOBODY_TEXT[] = L"Nobody answers: no process on this machine has Varnex.dll loaded, or this account "
                                  L"may not reach it. Start one, for example varnexhost watch --report.";

[[noreturn]] void ThrowUnreachable(DWORD dwError)
{
    throw HostError(dwError == ERROR_FILE_NOT_FOUND
                        ? NOBODY_TEXT
                        : L"The report's objects cannot be opened: " + SystemErrorText(dwError));
}

UniqueHandle OpenNamedEvent(const wchar_t* pwszName)
{
    UniqueHandle event(OpenEventW(EVENT_MODIFY_STATE | SYNCHRONIZE, FALSE, pwszName));
    if (!event)
    {
        ThrowUnreachable(GetLastError());
    }
    return event;
}

UniqueHandle OpenSection()
{
    UniqueHandle section(OpenFileMappingW(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, REPORT_SECTION_NAME));
    if (!section)
    {
        ThrowUnreachable(GetLastError());
    }
    return section;
}

UniqueView MapSection(HANDLE hSection)
{
    UniqueView view(MapViewOfFile(hSection, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, REPORT_SECTION_BYTES));
    if (!view)
    {
        throw HostError(L"The report section cannot be mapped: " + SystemErrorText(GetLastError()));
    }
    return view;
}

// The named objects, open for as long as the exchange takes.
class Exchange
{
public:
    explicit Exchange(unsigned nTimeoutSeconds)
        : m_begin(OpenNamedEvent(BEGIN_EVENT_NAME)), m_finish(OpenNamedEvent(FINISH_EVENT_NAME)),
          m_section(OpenSection()), m_view(MapSection(m_section.Get())),
          m_nDeadline(GetTickCount64() + nTimeoutSeconds * 1000ULL)
    {
    }

    void WaitUntilFree() const;
    void Ask(const ReportRequest& request) const;
    std::wstring Take() const;

private:
    ReportSection& Section() const noexcept { return *static_cast<ReportSection*>(m_view.Get()); }
    DWORD Remaining() const noexcept
    {
        const std::uint64_t nNow = GetTickCount64();
        return nNow >= m_nDeadline ? 0 : static_cast<DWORD>(m_nDeadline - nNow);
    }

    UniqueHandle m_begin;
    UniqueHandle m_finish;
    UniqueHandle m_section;
    UniqueView m_view;
    std::uint64_t m_nDeadline;
};

void Exchange::WaitUntilFree() const
{
    // The event means "under way" while it is set, so there is nothing to wait for but a poll.
    while (WaitForSingleObject(m_begin.Get(), 0) == WAIT_OBJECT_0)
    {
        if (Remaining() == 0)
        {
            throw HostError(L"Another request for a report has been under way all the time.");
        }
        Sleep(std::min(POLL_MS, Remaining()));
    }
}

void Exchange::Ask(const ReportRequest& request) const
{
    ResetEvent(m_finish.Get()); // left over from an asker that gave up too early
    Section().TotalSamplingNum = request.nSpan;
    Section().minSamplingNum = request.nMinimum;
    SetEvent(m_begin.Get());
    if (WaitForSingleObject(m_finish.Get(), Remaining()) != WAIT_OBJECT_0)
    {
        ResetEvent(m_begin.Get()); // else the module answers nobody, whenever it begins to
        throw HostError(L"No answer within " + std::to_wstring(request.nTimeoutSeconds) +
                        L" seconds. A process has Varnex.dll loaded, but utilization reporting seems not to be "
                        L"started in it; varnexhost watch starts it with --report.");
    }
}

std::wstring Exchange::Take() const
{
    const std::uint32_t nLength = Section().nTextLength;
    std::wstring text(Section().awchText, std::min<std::size_t>(nLength, MAX_REPORT_CHARS));
    ResetEvent(m_finish.Get());
    if (nLength == 0)
    {
        throw HostError(L"The module could not make the report, or it was too large for the section. Its log, "
                        L"Varnex.log, tells more.");
    }
    if (nLength > MAX_REPORT_CHARS)
    {
        throw HostError(L"The answer is no report: it claims " + std::to_wstring(nLength) +
                        L" characters, more than the section holds.");
    }
    return text;
}

} // namespace

std::wstring AskForReport(const ReportRequest& request)
{
    const Exchange exchange(request.nTimeoutSeconds);
    exchange.WaitUntilFree();
    exchange.Ask(request);
    return exchange.Take();
}

bool IsReportServed() noexcept
{
    const UniqueHandle section(OpenFileMappingW(FILE_MAP_READ, FALSE, REPORT_SECTION_NAME));
    return static_cast<bool>(section) || GetLastError() == ERROR_ACCESS_DENIED;
}

} // namespace varnex::host
