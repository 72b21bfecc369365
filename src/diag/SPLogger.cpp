#include "diag/SPLogger.h"

#include "common/AnsiText.h"
#include "common/BoundedText.h"
#include "common/Handles.h"
#include "common/LastError.h"
#include "common/Locks.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <utility>

namespace varnex
{

namespace
{

constexpr DWORD MUTEX_WAIT_MS = 5000;
constexpr DWORD MAX_LOG_BYTES = 8'388'608; // a log of exactly this size is not rolled
constexpr std::size_t HEADER_CHARS = 128;

std::string Formatted(const char* pszFormat, std::va_list arguments)
{
    const int cchText = FormattedLengthA(pszFormat, arguments);
    std::string text(cchText > 0 ? static_cast<std::size_t>(cchText) : 0, '\0');
    FormatTextVA(text.data(), text.size() + 1, pszFormat, arguments);
    return text;
}

std::wstring Formatted(const wchar_t* pwszFormat, std::va_list arguments)
{
    const int cchText = FormattedLengthW(pwszFormat, arguments);
    std::wstring text(cchText > 0 ? static_cast<std::size_t>(cchText) : 0, L'\0');
    FormatTextVW(text.data(), text.size() + 1, pwszFormat, arguments);
    return text;
}

// The line as it stands in the file: CR LF for every LF, those inside the message too.
std::string WithLineEnds(const std::string& text)
{
    std::string line;
    line.reserve(text.size() + 8);
    std::size_t nFrom = 0;
    for (std::size_t nEnd = text.find('\n'); nEnd != std::string::npos; nEnd = text.find('\n', nFrom))
    {
        line.append(text, nFrom, nEnd - nFrom).append("\r\n");
        nFrom = nEnd + 1;
    }
    return line.append(text, nFrom);
}

} // namespace

// Not a static object of the function: the run-time library takes a lock of its own for those, whose semaphore would
// stay behind at every unload of the module.
SPLogger* SPLogger::Instance() noexcept
{
    static RecoverableLock lock;
    alignas(SPLogger) static std::byte storage[sizeof(SPLogger)];
    const RecoverableLockHold hold(lock);
    SPLogger* pLogger = s_pInstance.load(std::memory_order_relaxed);
    if (pLogger == nullptr)
    {
        pLogger = ::new (static_cast<void*>(storage)) SPLogger;
        std::atexit([] { s_pInstance.load(std::memory_order_relaxed)->~SPLogger(); });
        s_pInstance.store(pLogger, std::memory_order_release);
    }
    return pLogger;
}

SPLogger::SPLogger() noexcept
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    FormatTextA(LoggerName, "SPLogger_%04d%02d%02d%02d%02d%02d", now.wYear, now.wMonth, now.wDay, now.wHour,
                now.wMinute, now.wSecond);
    const DWORD cchDirectory = ExpandEnvironmentStringsA("%TEMP%", LogDirectory, sizeof LogDirectory);
    if (cchDirectory == 0 || cchDirectory > sizeof LogDirectory || LogDirectory[0] == '\0')
    {
        CopyTextA(LogDirectory, "c:");
    }
    CopyTextA(MutexName, LoggerName);
    // Rooted at the current drive, without the directory: the library entry replaces it at once.
    FormatTextA(LogFilePath, "\\%s.log", LoggerName);
    Mutex = CreateMutexA(nullptr, FALSE, MutexName);
    if (Mutex == nullptr)
    {
        OutputDebugStringA("Create SPLogger failed.");
        Level = 1;
    }
}

SPLogger::~SPLogger()
{
    UniqueHandle(std::exchange(Mutex, nullptr));
}

void SPLogger::Configure(const char* pszDirectory, const char* pszName) noexcept
{
    CopyTextA(LogDirectory, pszDirectory);
    CopyTextA(LoggerName, pszName);
    BuildFilePath();
    Level = 3;
}

void SPLogger::BuildFilePath() noexcept
{
    FormatTextA(LogFilePath, "%s\\%s.%s", LogDirectory, LoggerName, "log");
}

void SPLogger::SetConfiguredLevel(int nLevel) noexcept
{
    if (static_cast<unsigned>(nLevel) <= 4)
    {
        Level = nLevel;
    }
}

void SPLogger::RollOverIfNeeded() noexcept
{
    CreateDirectoryA(LogDirectory, nullptr);
    WIN32_FILE_ATTRIBUTE_DATA attributes;
    if (!GetFileAttributesExA(LogFilePath, GetFileExInfoStandard, &attributes))
    {
        return;
    }
    if (attributes.nFileSizeHigh == 0 && attributes.nFileSizeLow <= MAX_LOG_BYTES)
    {
        return;
    }
    SYSTEMTIME now;
    GetLocalTime(&now);
    char szStem[260];
    CopyTextA(szStem, LogFilePath);
    szStem[std::strlen(szStem) - std::strlen(".log")] = '\0';
    char szRolledPath[300];
    FormatTextA(szRolledPath, "%s_%04d%02d%02d%02d%02d%02d.log", szStem, now.wYear, now.wMonth, now.wDay, now.wHour,
                now.wMinute, now.wSecond);
    MoveFileExA(LogFilePath, szRolledPath, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

void SPLogger::WriteSeparator() noexcept
{
    AppendText("\r\n", 2);
}

void SPLogger::AppendText(const char* pachText, std::size_t cbText) noexcept
{
    const UniqueFile file(CreateFileA(LogFilePath, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
    {
        return;
    }
    DWORD cbWritten = 0;
    if (m_bTorn)
    {
        WriteFile(file.Get(), "\r\n", 2, &cbWritten, nullptr);
        if (cbWritten != 2)
        {
            return;
        }
        cbWritten = 0;
    }
    WriteFile(file.Get(), pachText, static_cast<DWORD>(cbText), &cbWritten, nullptr);
    m_bTorn = cbWritten != 0 && cbWritten != cbText; // a disk that became full
}

void SPLogger::WriteLineA(const char* pszTag, const char* pszFormat, std::va_list arguments)
{
    RollOverIfNeeded();
    SYSTEMTIME now;
    GetLocalTime(&now);
    char szHeader[HEADER_CHARS];
    FormatTextA(szHeader, "%04d-%02d-%02d %02d:%02d:%02d [%s] - ", now.wYear, now.wMonth, now.wDay, now.wHour,
                now.wMinute, now.wSecond, pszTag);
    const std::string line = WithLineEnds(szHeader + Formatted(pszFormat, arguments) + "\n");
    AppendText(line.data(), line.size());
}

void SPLogger::WriteLineW(const wchar_t* pwszTag, const wchar_t* pwszFormat, std::va_list arguments)
{
    RollOverIfNeeded();
    SYSTEMTIME now;
    GetLocalTime(&now);
    wchar_t wszHeader[HEADER_CHARS];
    FormatTextW(wszHeader, L"%04d-%02d-%02d %02d:%02d:%02d [%s] - ", now.wYear, now.wMonth, now.wDay, now.wHour,
                now.wMinute, now.wSecond, pwszTag);
    const std::string line = WithLineEnds(AnsiText(wszHeader + Formatted(pwszFormat, arguments) + L"\n"));
    AppendText(line.data(), line.size());
}

// Puts the calling thread on record as the writer.
class SPLogger::WriterMark
{
public:
    explicit WriterMark(SPLogger& logger) noexcept : m_logger(logger)
    {
        m_logger.m_dwWriter.store(GetCurrentThreadId(), std::memory_order_release);
    }
    ~WriterMark() { m_logger.m_dwWriter.store(0, std::memory_order_release); }
    WriterMark(const WriterMark&) = delete;
    WriterMark& operator=(const WriterMark&) = delete;

private:
    SPLogger& m_logger;
};

void SPLogger::WriteLeveledA(int nLevel, const char* pszFormat, std::va_list arguments) noexcept
{
    const LastErrorKeeper keeper;
    char szTag[2];
    FormatTextA(szTag, "%d", nLevel);
    // A mutex that its owner abandoned is not given back, and the line is dropped like one that waited too long.
    if (WaitForSingleObject(Mutex, MUTEX_WAIT_MS) != WAIT_OBJECT_0)
    {
        return;
    }
    const MutexHold hold(Mutex);
    const WriterMark mark(*this);
    try
    {
        WriteLineA(szTag, pszFormat, arguments);
    }
    catch (const std::exception&)
    {
        // No memory for the line: it is dropped, as for a full disk.
    }
}

void SPLogger::WriteLeveledW(int nLevel, const wchar_t* pwszFormat, std::va_list arguments) noexcept
{
    const LastErrorKeeper keeper;
    wchar_t wszTag[4];
    FormatTextW(wszTag, L"%d", nLevel);
    if (WaitForSingleObject(Mutex, MUTEX_WAIT_MS) != WAIT_OBJECT_0)
    {
        return;
    }
    const MutexHold hold(Mutex);
    const WriterMark mark(*this);
    try
    {
        WriteLineW(wszTag, pwszFormat, arguments);
    }
    catch (const std::exception&)
    {
    }
}

SPLogger::WritersHeldOff::WritersHeldOff(DWORD dwWaitMs) noexcept : m_bHeldOff(true)
{
    const HANDLE hMutex = Instance()->Mutex;
    if (hMutex == nullptr)
    {
        return; // without a mutex no line is ever written
    }
    const DWORD dwResult = WaitForSingleObject(hMutex, dwWaitMs);
    m_bHeldOff = dwResult == WAIT_OBJECT_0 || dwResult == WAIT_ABANDONED;
    if (m_bHeldOff)
    {
        m_hold.Reset(hMutex);
    }
}

// The eight entries differ in level and width only. A line below the level costs one load and one comparison.
#define VARNEX_LOG_ENTRY(name, level, width, character)                                                                \
    void SPLogger::name(const character* pFormat, ...) noexcept                                                        \
    {                                                                                                                  \
        if (pFormat == nullptr || Level.load(std::memory_order_relaxed) < (level))                                     \
        {                                                                                                              \
            return;                                                                                                    \
        }                                                                                                              \
        std::va_list arguments;                                                                                        \
        va_start(arguments, pFormat);                                                                                  \
        WriteLeveled##width(level, pFormat, arguments);                                                                \
        va_end(arguments);                                                                                             \
    }

VARNEX_LOG_ENTRY(Level1A, 1, A, char)
VARNEX_LOG_ENTRY(Level1W, 1, W, wchar_t)
VARNEX_LOG_ENTRY(Level2A, 2, A, char)
VARNEX_LOG_ENTRY(Level2W, 2, W, wchar_t)
VARNEX_LOG_ENTRY(Level3A, 3, A, char)
VARNEX_LOG_ENTRY(Level3W, 3, W, wchar_t)
VARNEX_LOG_ENTRY(Level4A, 4, A, char)
VARNEX_LOG_ENTRY(Level4W, 4, W, wchar_t)

#undef VARNEX_LOG_ENTRY

} // namespace varnex
