#pragma once

#include <windows.h>

#include <string>

namespace varnex::bench
{

// The alert store's operations as bare calls, on the files of a directory.
class FloorAlerts
{
public:
    // directory: with a backslash at its end.
    explicit FloorAlerts(const std::string& directory);
    ~FloorAlerts();
    FloorAlerts(const FloorAlerts&) = delete;
    FloorAlerts& operator=(const FloorAlerts&) = delete;

    // The module's path, the line's local time, the mutex; the file opened, written to once and closed.
    // bSafe: with a look at the file's last byte before, which may be a torn line's.
    void Store(HMODULE hModule, const char* pachLine, DWORD cbLine, bool bSafe) const noexcept;

    // The module's path, the mutex; the lines to be taken (cbTaken bytes, at most a piece) read, the rest read and
    // written beside the file piece by piece, the new file moved over the old one; for each of nTaken records the
    // host's name and its local time.
    void Fetch(HMODULE hModule, DWORD cbTaken, unsigned nTaken) const noexcept;

private:
    static constexpr DWORD PIECE_BYTES = 65'536; // as much as a fetch may take

    std::string m_data;
    std::string m_backup;
    HANDLE m_hMutex;
};

// Seconds as local time, by the calls that it takes.
void ConvertToLocalTime() noexcept;

} // namespace varnex::bench
