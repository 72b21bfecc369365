#include "reporting/TraceFiles.h"

#include "common/AnsiText.h"
#include "common/BoundedText.h"
#include "common/Handles.h"
#include "diag/SPLogger.h"
#include "entry/ModuleState.h"
#include "reporting/TraceSwitch.h"
#include "reporting/UtilizationStores.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>

namespace varnex
{

namespace
{

constexpr std::size_t HEADER_CHARS = 260;
constexpr std::size_t NETWORK_HEADER_CHARS = 1024;
constexpr std::size_t MODULE_PATH_CHARS = 32'768; // no path is longer
constexpr wchar_t LINE_END[] = L"\r\n";

// One trace file; used by its own sampler's thread only.
struct TraceFile
{
    const wchar_t* pwszFileName;
    const char* pszOpenFailure; // takes the system error
    bool bHeaderPending = true; // until the header has been written whole
    bool bTorn = false;         // the file ends in a part of a line
};

TraceFile g_cpuTrace = {L"CPUUtil.log", "[OutputCurrentCPUUtil]failed to open file (%d)"};
TraceFile g_memoryTrace = {L"MemoryUtil.log", "[OutputCurrentMemUtil]failed to open file (%d)"};
TraceFile g_diskTrace = {L"DiskUtil.log", "[OutputCurrentDiskUtil]failed to open file (%d)"};
TraceFile g_networkTrace = {L"NetworkUtil.log", "[OutputCurrentNetworkUtil]failed to open file (%d)"};

// A header line that is built column by column and always ends in CR LF. A column that would not fit, and all behind
// it, are left out.
class HeaderLine
{
public:
    explicit HeaderLine(std::size_t cchLimit) : m_cchLimit(cchLimit) {}
    void AddColumn(const std::wstring& column)
    {
        m_bFull = m_bFull || m_text.size() + column.size() + std::size(LINE_END) > m_cchLimit;
        if (!m_bFull)
        {
            m_text += column;
        }
    }
    std::wstring Finished() const { return m_text + LINE_END; }

private:
    std::size_t m_cchLimit;
    std::wstring m_text = L"Time\t"; // the columns begin with a tab of their own, which data lines do not have
    bool m_bFull = false;
};

// As std::to_wstring has it, which would bring the run-time library's whole formatted output, 20 KB of code.
std::wstring NumberText(std::int64_t nNumber)
{
    const std::string digits = std::to_string(nNumber);
    return {digits.begin(), digits.end()};
}

UniqueFile OpenTrace(const wchar_t* pwszPath, DWORD dwAccess, DWORD dwDisposition) noexcept
{
    return UniqueFile(CreateFileW(pwszPath, dwAccess, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, dwDisposition,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

// Writes a line in one write; a torn one is ended first. False (logged) when not all of it was written.
bool WriteTraceText(HANDLE hFile, const wchar_t* pwszPath, const std::wstring& line, bool& bTorn)
{
    const std::string lineEnd = bTorn ? "\r\n" : "";
    const std::string text = lineEnd + AnsiText(line);
    DWORD cbWritten = 0;
    const bool bSucceeded =
        WriteFile(hFile, text.data(), static_cast<DWORD>(text.size()), &cbWritten, nullptr) != FALSE;
    const DWORD dwError = bSucceeded ? ERROR_DISK_FULL : GetLastError();
    bTorn = cbWritten != lineEnd.size() && cbWritten != text.size();
    if (bSucceeded && cbWritten == text.size())
    {
        return true;
    }
    Log()->Level2W(L"WriteTraceText -- fail to write file(%s), error(%d).", pwszPath, dwError);
    return false;
}

// Begins the file anew with its header. False (logged) leaves the header pending.
bool WriteHeader(TraceFile& trace, const wchar_t* pwszPath, const std::wstring& header)
{
    const UniqueFile file = OpenTrace(pwszPath, GENERIC_WRITE, CREATE_ALWAYS);
    if (!file)
    {
        const DWORD dwError = GetLastError();
        Log()->Level2A(trace.pszOpenFailure, dwError);
        return false;
    }
    trace.bTorn = false;
    trace.bHeaderPending = !WriteTraceText(file.Get(), pwszPath, header, trace.bTorn);
    return !trace.bHeaderPending;
}

// Leaves a path without a backslash as it is.
void CutAtLastBackslash(std::wstring& path)
{
    path.resize(std::min(path.rfind(L'\\'), path.size()));
}

// Whether there is a store, asked before the switch is. Those of processors and disks come with their names; memory's
// and that of the adapters are always there.

template <class Sample>
bool HasStore(NamedHistories<Sample>& store) noexcept
{
    const StoreLockHold hold(store.lock);
    return hold && !store.All().empty();
}

template <class Store>
bool HasStore(const Store&) noexcept
{
    return true;
}

// Each history's newest value; none while a history is empty.

template <class Sample>
std::vector<std::int64_t> NewestValues(NamedHistories<Sample>& store)
{
    const StoreLockHold hold(store.lock);
    if (!hold)
    {
        return {};
    }
    std::vector<std::int64_t> values;
    values.reserve(store.All().size());
    for (const BoundedHistory<Sample>& history : store.All())
    {
        if (history.Size() == 0)
        {
            return {};
        }
        values.push_back(history.Newest());
    }
    return values;
}

std::vector<std::int64_t> NewestValues(MemoryHistories& store)
{
    const StoreLockHold hold(store.lock);
    if (!hold || store.physical.Size() == 0 || store.pagingFile.Size() == 0)
    {
        return {};
    }
    return {store.physical.Newest(), store.pagingFile.Newest()};
}

std::vector<std::int64_t> NewestValues(NetworkHistories& store)
{
    const StoreLockHold hold(store.lock); // taken again, here and below, by a cycle that holds it
    std::vector<std::int64_t> values;
    values.reserve(store.histories.size());
    for (const auto& [dwInterfaceIndex, history] : store.histories)
    {
        values.push_back(static_cast<std::int64_t>(history.Newest().DeltaBytes));
    }
    return values;
}

// The one course of all four: header if it is pending, then the line.
template <class Store, class MakeHeader>
void OutputTrace(TraceFile& trace, const wchar_t* pwszTime, Store& store, MakeHeader&& makeHeader)
{
    wchar_t wszPath[TRACE_PATH_CHARS];
    if (pwszTime == nullptr || !HasStore(store) || !NeedToOutputCurrentUtil() ||
        !GetFileFullPath(trace.pwszFileName, wszPath))
    {
        return;
    }
    const std::vector<std::int64_t> values = NewestValues(store);
    if (!values.empty() && (!trace.bHeaderPending || WriteHeader(trace, wszPath, makeHeader())))
    {
        WriteUtilToFile(wszPath, pwszTime, values, trace.bTorn);
    }
}

} // namespace

void OutputCurrentCPUUtil(const wchar_t* pwszTime, std::size_t nProcessors)
{
    OutputTrace(g_cpuTrace, pwszTime, Stores().cpu,
                [nProcessors]
                {
                    HeaderLine header(HEADER_CHARS);
                    for (std::size_t i = 1; i <= nProcessors; ++i)
                    {
                        header.AddColumn(L"\tCPU" + NumberText(static_cast<std::int64_t>(i)));
                    }
                    return header.Finished();
                });
}

void OutputCurrentMemUtil(const wchar_t* pwszTime)
{
    OutputTrace(g_memoryTrace, pwszTime, Stores().memory, [] { return L"Time\t\tPhysical Mem\tPage File\r\n"; });
}

void OutputCurrentDiskUtil(const wchar_t* pwszTime)
{
    OutputTrace(g_diskTrace, pwszTime, Stores().disk,
                []
                {
                    HeaderLine header(HEADER_CHARS);
                    const StoreLockHold hold(Stores().disk.lock);
                    if (hold)
                    {
                        for (const auto& name : *Stores().disk.GetNames())
                        {
                            const int nDisk = _wtoi(name.get()); // a name begins with the disk's number
                            header.AddColumn(L"\tDisk" + NumberText(nDisk));
                        }
                    }
                    return header.Finished();
                });
}

void OutputCurrentNetworkUtil(const wchar_t* pwszTime)
{
    NetworkHistories& store = Stores().network;
    OutputTrace(g_networkTrace, pwszTime, store,
                [&store]
                {
                    HeaderLine header(NETWORK_HEADER_CHARS);
                    const StoreLockHold hold(store.lock);
                    for (const auto& [dwInterfaceIndex, history] : store.histories)
                    {
                        header.AddColumn(L"\t" + std::wstring(history.Oldest().Name) + L"-" +
                                         NumberText(static_cast<int>(dwInterfaceIndex)));
                    }
                    return header.Finished();
                });
}

bool GetFileFullPath(const wchar_t* pwszFileName, wchar_t (&wszPath)[TRACE_PATH_CHARS])
{
    std::wstring path(MODULE_PATH_CHARS, L'\0'); // on the heap: a thread's stack is not made for it
    const DWORD cchModule = GetModuleFileNameW(g_hModule, path.data(), MODULE_PATH_CHARS);
    if (cchModule == 0 || cchModule >= MODULE_PATH_CHARS)
    {
        const DWORD dwError = GetLastError();
        Log()->Level2A("[GetFileFullPath]failed to get module file name (%d)", dwError);
        return false;
    }
    path.resize(cchModule);
    CutAtLastBackslash(path);
    CutAtLastBackslash(path); // none is left of a module in a drive's root: its "Logs" lies there, on its own drive
    path += std::wstring(L"\\Logs\\") + pwszFileName;
    if (path.size() >= TRACE_PATH_CHARS)
    {
        Log()->Level2A("[WriteUtilToFile]output buffer is too small (%d,%d)", static_cast<int>(path.size()),
                       static_cast<int>(TRACE_PATH_CHARS));
        return false;
    }
    CopyTextW(wszPath, path.c_str());
    return true;
}

void WriteUtilToFile(const wchar_t* pwszPath, const wchar_t* pwszTime, const std::vector<std::int64_t>& values,
                     bool& bTorn)
{
    if (pwszPath == nullptr || pwszTime == nullptr || values.empty())
    {
        return;
    }
    const UniqueFile file = OpenTrace(pwszPath, FILE_APPEND_DATA, OPEN_ALWAYS);
    if (!file)
    {
        const DWORD dwError = GetLastError();
        Log()->Level2W(L"[WriteUtilToFile]failed to open file %s (%d)", pwszPath, dwError);
        return;
    }
    std::wstring line = pwszTime;
    for (const std::int64_t nValue : values)
    {
        line += L'\t' + NumberText(nValue);
    }
    WriteTraceText(file.Get(), pwszPath, line + LINE_END, bTorn);
}

} // namespace varnex
