#include "windows.h"

#include "diag/SPLogger.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

namespace
{

DWORD g_dwLastError = 0;

} // namespace

DWORD GetLastError() noexcept
{
    return g_dwLastError;
}

void SetLastError(DWORD dwError) noexcept
{
    g_dwLastError = dwError;
}

BOOL ReadFile(HANDLE hFile, void* pBuffer, DWORD cbWanted, DWORD* pcbRead, void*) noexcept
{
    auto& file = *static_cast<NativeFile*>(hFile);
    if (file.nPosition >= file.nReadLimit)
    {
        g_dwLastError = ERROR_CRC;
        return FALSE;
    }
    const std::size_t cbLeft = file.bytes.size() - std::min(file.nPosition, file.bytes.size());
    const std::size_t cbRead = std::min({std::size_t{cbWanted}, cbLeft, file.nChunk});
    std::memcpy(pBuffer, file.bytes.data() + file.nPosition, cbRead);
    file.nPosition += cbRead;
    *pcbRead = static_cast<DWORD>(cbRead);
    return TRUE;
}

BOOL WriteFile(HANDLE hFile, const void* pBuffer, DWORD cbData, DWORD* pcbWritten, void*) noexcept
{
    auto& file = *static_cast<NativeFile*>(hFile);
    if (file.bytes.size() + cbData > file.nWriteLimit)
    {
        g_dwLastError = ERROR_DISK_FULL;
        return FALSE;
    }
    file.bytes.append(static_cast<const char*>(pBuffer), cbData);
    *pcbWritten = cbData;
    return TRUE;
}

// Only as the module uses it: from the end.
BOOL SetFilePointerEx(HANDLE hFile, LARGE_INTEGER nDistance, LARGE_INTEGER*, DWORD) noexcept
{
    auto& file = *static_cast<NativeFile*>(hFile);
    const LONGLONG nTarget = static_cast<LONGLONG>(file.bytes.size()) + nDistance.QuadPart;
    if (nTarget < 0)
    {
        g_dwLastError = ERROR_NEGATIVE_SEEK;
        return FALSE;
    }
    file.nPosition = static_cast<std::size_t>(nTarget);
    return TRUE;
}

BOOL CloseHandle(HANDLE) noexcept
{
    return TRUE;
}
BOOL FreeLibrary(HMODULE) noexcept
{
    return TRUE;
}
void* LocalFree(void*) noexcept
{
    return nullptr;
}
BOOL UnmapViewOfFile(const void*) noexcept
{
    return TRUE;
}
int RegCloseKey(HKEY) noexcept
{
    return 0;
}
BOOL ReleaseMutex(HANDLE) noexcept
{
    return TRUE;
}

void GetSystemTimeAsFileTime(FILETIME* pTime) noexcept
{
    *pTime = {};
}

BOOL FileTimeToSystemTime(const FILETIME* pTime, SYSTEMTIME* pSystemTime) noexcept
{
    ULARGE_INTEGER nTicks;
    nTicks.LowPart = pTime->dwLowDateTime;
    nTicks.HighPart = pTime->dwHighDateTime;
    const auto nSeconds = static_cast<std::time_t>(nTicks.QuadPart / 10'000'000) - 11'644'473'600;
    std::tm time{};
    if (gmtime_r(&nSeconds, &time) == nullptr)
    {
        return FALSE;
    }
    *pSystemTime = {static_cast<WORD>(time.tm_year + 1900), static_cast<WORD>(time.tm_mon + 1),
                    static_cast<WORD>(time.tm_wday),        static_cast<WORD>(time.tm_mday),
                    static_cast<WORD>(time.tm_hour),        static_cast<WORD>(time.tm_min),
                    static_cast<WORD>(time.tm_sec),         0};
    return TRUE;
}

BOOL SystemTimeToTzSpecificLocalTime(const void*, const SYSTEMTIME* pUtc, SYSTEMTIME* pLocal) noexcept
{
    *pLocal = *pUtc;
    return TRUE;
}

int _vscprintf(const char* pszFormat, std::va_list arguments) noexcept
{
    return std::vsnprintf(nullptr, 0, pszFormat, arguments);
}

int _vsnprintf(char* pszTarget, std::size_t cchTarget, const char* pszFormat, std::va_list arguments) noexcept
{
    std::va_list copy;
    va_copy(copy, arguments);
    const int cchText = _vscprintf(pszFormat, copy);
    va_end(copy);
    std::vector<char> text(static_cast<std::size_t>(cchText) + 1);
    std::vsnprintf(text.data(), text.size(), pszFormat, arguments);
    std::memcpy(pszTarget, text.data(), std::min(text.size(), cchTarget));
    return static_cast<std::size_t>(cchText) < cchTarget ? cchText : -1;
}

unsigned GetACP() noexcept
{
    return 1252;
}
BOOL IsDBCSLeadByte(BYTE) noexcept
{
    return FALSE;
}
int WideCharToMultiByte(unsigned, DWORD, const wchar_t*, int, char*, int, const char*, BOOL*) noexcept
{
    std::abort();
}
int MultiByteToWideChar(unsigned, DWORD, const char*, int, wchar_t*, int) noexcept
{
    std::abort();
}

int _vscwprintf(const wchar_t*, std::va_list) noexcept
{
    std::abort();
}
int _vsnwprintf(wchar_t*, std::size_t, const wchar_t*, std::va_list) noexcept
{
    std::abort();
}

namespace varnex
{

// The log formats each line, so that its arguments are looked at, and forgets it.

SPLogger::SPLogger() noexcept = default;
SPLogger::~SPLogger() = default;

SPLogger* SPLogger::Instance() noexcept
{
    static SPLogger logger;
    return &logger;
}

#define VARNEX_NATIVE_ENTRY(name)                                                                                      \
    void SPLogger::name(const char* pszFormat, ...) noexcept                                                           \
    {                                                                                                                  \
        std::va_list arguments;                                                                                        \
        va_start(arguments, pszFormat);                                                                                \
        _vscprintf(pszFormat, arguments);                                                                              \
        va_end(arguments);                                                                                             \
    }
VARNEX_NATIVE_ENTRY(Level1A)
VARNEX_NATIVE_ENTRY(Level4A)
#undef VARNEX_NATIVE_ENTRY

} // namespace varnex
