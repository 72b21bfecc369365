// Stands in for DBGHELP.DLL: what would be the dump is a text that tells what was asked for.

#include "CrashWords.h"

#include <windows.h>

#include <cstdio>

#include <dbghelp.h>

using namespace varnex::test;

namespace
{

void Write(HANDLE hFile, const char* pszWord, unsigned long long ullNumber)
{
    char szLine[100];
    const int cbLine = std::snprintf(szLine, sizeof(szLine), "%s %llu\n", pszWord, ullNumber);
    DWORD cbWritten = 0;
    WriteFile(hFile, szLine, static_cast<DWORD>(cbLine), &cbWritten, nullptr);
}

} // namespace

extern "C" BOOL WINAPI MiniDumpWriteDump(HANDLE hProcess, DWORD dwProcessId, HANDLE hFile, MINIDUMP_TYPE type,
                                         PMINIDUMP_EXCEPTION_INFORMATION pException,
                                         PMINIDUMP_USER_STREAM_INFORMATION pUserStreams,
                                         PMINIDUMP_CALLBACK_INFORMATION pCallback)
{
    Write(hFile, OWN_PROCESS, hProcess == GetCurrentProcess() && dwProcessId == GetCurrentProcessId() ? 1 : 0);
    Write(hFile, DUMP_TYPE, static_cast<unsigned>(type));
    Write(hFile, DUMPED_THREAD, pException->ThreadId);
    Write(hFile, EXCEPTION_CODE, pException->ExceptionPointers->ExceptionRecord->ExceptionCode);
    Write(hFile, CLIENT_POINTERS, static_cast<unsigned>(pException->ClientPointers));
    Write(hFile, EXTRAS, pUserStreams != nullptr || pCallback != nullptr ? 1 : 0);
    return GetEnvironmentVariableW(FAIL_VARIABLE, nullptr, 0) == 0;
}
