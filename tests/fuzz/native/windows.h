#pragma once

// As much of Windows as the portable pieces of src/ mention, for building them natively under sanitizers. A file is a
// buffer in memory (NativeFile); nothing else of it works.

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using HRESULT = std::int32_t;
using ULONGLONG = std::uint64_t;
using LONGLONG = std::int64_t;
using HANDLE = void*;
using HMODULE = struct Module*;
using HKEY = struct Key*;

struct FILETIME
{
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
struct SYSTEMTIME
{
    WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};
union LARGE_INTEGER
{
    LONGLONG QuadPart;
};
union ULARGE_INTEGER
{
    struct
    {
        DWORD LowPart, HighPart;
    };
    ULONGLONG QuadPart;
};

constexpr BOOL FALSE = 0;
constexpr BOOL TRUE = 1;
constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_CRC = 23;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_DISK_FULL = 112;
constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
constexpr DWORD FILE_END = 2;
#define IS_SURROGATE_PAIR(high, low) ((high) >= 0xD800 && (high) <= 0xDBFF && (low) >= 0xDC00 && (low) <= 0xDFFF)
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1)))

// A file: what it holds, where it stands, how much a read gives at most, and after how many bytes reads and writes
// fail.
struct NativeFile
{
    std::string bytes;
    std::size_t nPosition = 0;
    std::size_t nChunk = static_cast<std::size_t>(-1);
    std::size_t nReadLimit = static_cast<std::size_t>(-1);
    std::size_t nWriteLimit = static_cast<std::size_t>(-1);
};

DWORD GetLastError() noexcept;
void SetLastError(DWORD dwError) noexcept;
BOOL ReadFile(HANDLE hFile, void* pBuffer, DWORD cbWanted, DWORD* pcbRead, void* pOverlapped) noexcept;
BOOL WriteFile(HANDLE hFile, const void* pBuffer, DWORD cbData, DWORD* pcbWritten, void* pOverlapped) noexcept;
BOOL SetFilePointerEx(HANDLE hFile, LARGE_INTEGER nDistance, LARGE_INTEGER* pnNew, DWORD dwFrom) noexcept;
BOOL CloseHandle(HANDLE hObject) noexcept;
BOOL FreeLibrary(HMODULE hModule) noexcept;
void* LocalFree(void* pBlock) noexcept;
BOOL UnmapViewOfFile(const void* pView) noexcept;
int RegCloseKey(HKEY hKey) noexcept;
BOOL ReleaseMutex(HANDLE hMutex) noexcept;
void GetSystemTimeAsFileTime(FILETIME* pTime) noexcept;
BOOL FileTimeToSystemTime(const FILETIME* pTime, SYSTEMTIME* pSystemTime) noexcept;
BOOL SystemTimeToTzSpecificLocalTime(const void* pZone, const SYSTEMTIME* pUtc, SYSTEMTIME* pLocal) noexcept;

// The code page is 1252: a byte is a character.
constexpr unsigned CP_ACP = 0;
constexpr unsigned CP_UTF8 = 65001;
unsigned GetACP() noexcept;
BOOL IsDBCSLeadByte(BYTE byte) noexcept;
// Not here: a wide character has another size natively.
int WideCharToMultiByte(unsigned nCodePage, DWORD dwFlags, const wchar_t* pwchSource, int cchSource, char* pchTarget,
                        int cbTarget, const char* pszDefault, BOOL* pbUsedDefault) noexcept;
int MultiByteToWideChar(unsigned nCodePage, DWORD dwFlags, const char* pchSource, int cbSource, wchar_t* pwchTarget,
                        int cchTarget) noexcept;

// The run-time library's own formatting, which leaves a text that was cut without a terminator.
int _vscprintf(const char* pszFormat, std::va_list arguments) noexcept;
int _vsnprintf(char* pszTarget, std::size_t cchTarget, const char* pszFormat, std::va_list arguments) noexcept;
// Not here: the native wide formats read %s otherwise.
int _vscwprintf(const wchar_t* pwszFormat, std::va_list arguments) noexcept;
int _vsnwprintf(wchar_t* pwszTarget, std::size_t cchTarget, const wchar_t* pwszFormat, std::va_list arguments) noexcept;
