#include "support/ScriptedMemoryStatus.h"

#include <catch2/catch.hpp>

#include <windows.h>

namespace varnex::test
{

namespace
{

BOOL ReadStatus(MEMORYSTATUSEX& status)
{
    const FARPROC pfnFound = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GlobalMemoryStatusEx");
    return reinterpret_cast<decltype(::GlobalMemoryStatusEx)*>(reinterpret_cast<void*>(pfnFound))(&status);
}

MEMORYSTATUSEX ClearedStatus()
{
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof(status);
    return status;
}

} // namespace

TEST_CASE("the memory status is what was set")
{
    ImportRedirector redirector;
    ScriptedExports exports(redirector);
    ScriptedMemoryStatus memory(exports);
    memory.SetPhysicalMB(8192, 2048);
    memory.SetPagingBytes(5, 4);
    MEMORYSTATUSEX status = ClearedStatus();
    CHECK(ReadStatus(status) != FALSE);
    CHECK(status.ullTotalPhys == 8192ULL << 20);
    CHECK(status.ullAvailPhys == 2048ULL << 20);
    CHECK(status.ullTotalPageFile == 5);
    CHECK(status.ullAvailPageFile == 4);
}

TEST_CASE("a utilization in percent is exact in whole megabytes")
{
    ImportRedirector redirector;
    ScriptedExports exports(redirector);
    ScriptedMemoryStatus memory(exports);
    memory.SetUtilization(75, 40);
    MEMORYSTATUSEX status = ClearedStatus();
    ReadStatus(status);
    CHECK(((status.ullTotalPhys >> 20) - (status.ullAvailPhys >> 20)) * 100 / (status.ullTotalPhys >> 20) == 75);
    CHECK(((status.ullTotalPageFile >> 20) - (status.ullAvailPageFile >> 20)) * 100 / (status.ullTotalPageFile >> 20) ==
          40);
}

TEST_CASE("the status call can fail")
{
    ImportRedirector redirector;
    ScriptedExports exports(redirector);
    ScriptedMemoryStatus memory(exports);
    memory.Fail(ERROR_ACCESS_DENIED);
    MEMORYSTATUSEX status = ClearedStatus();
    CHECK(ReadStatus(status) == FALSE);
    CHECK(GetLastError() == ERROR_ACCESS_DENIED);
    memory.SetUtilization(1, 1);
    CHECK(ReadStatus(status) != FALSE);
}

TEST_CASE("a caller that sets no length or clears nothing is found out")
{
    ImportRedirector redirector;
    ScriptedExports exports(redirector);
    const ScriptedMemoryStatus memory(exports);
    MEMORYSTATUSEX status = ClearedStatus();
    ReadStatus(status);
    CHECK(memory.BadReads() == 0);
    status.ullTotalVirtual = 1;
    ReadStatus(status);
    CHECK(memory.BadReads() == 1);
    status.dwLength = 1;
    CHECK(ReadStatus(status) == FALSE);
    CHECK(memory.BadReads() == 2);
    CHECK(memory.Reads() == 3);
}

} // namespace varnex::test
