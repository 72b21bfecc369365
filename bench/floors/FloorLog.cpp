#include "FloorLog.h"

#include <catch2/catch.hpp>

namespace varnex::bench
{

FloorLog::FloorLog(const std::string& directory)
    : m_directory(directory), m_path(directory + "\\Floors.log"),
      m_hMutex(CreateMutexA(nullptr, FALSE, "SPLogger_Floor"))
{
    REQUIRE(m_hMutex != nullptr);
}

FloorLog::~FloorLog()
{
    CloseHandle(m_hMutex);
}

void FloorLog::Write(const char* pachLine, DWORD cbLine) const noexcept
{
    if (WaitForSingleObject(m_hMutex, 5000) != WAIT_OBJECT_0)
    {
        return;
    }
    CreateDirectoryA(m_directory.c_str(), nullptr);
    WIN32_FILE_ATTRIBUTE_DATA attributes;
    GetFileAttributesExA(m_path.c_str(), GetFileExInfoStandard, &attributes);
    SYSTEMTIME now;
    GetLocalTime(&now);
    const HANDLE hFile = CreateFileA(m_path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                     OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD cbWritten;
    WriteFile(hFile, pachLine, cbLine, &cbWritten, nullptr);
    CloseHandle(hFile);
    ReleaseMutex(m_hMutex);
}

} // namespace varnex::bench
