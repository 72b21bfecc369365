#pragma once

#include <windows.h>

#include <cstddef>
#include <string>

namespace varnex::bench
{

// A log line as bare calls: the mutex, the directory, the file's attributes, the time, and the file opened for these
// bytes, written to and closed.
class FloorLog
{
public:
    explicit FloorLog(const std::string& directory);
    ~FloorLog();
    FloorLog(const FloorLog&) = delete;
    FloorLog& operator=(const FloorLog&) = delete;

    void Write(const char* pachLine, DWORD cbLine) const noexcept;

private:
    std::string m_directory;
    std::string m_path;
    HANDLE m_hMutex;
};

} // namespace varnex::bench
