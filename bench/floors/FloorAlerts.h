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

    // The mutex; the file opened, written to once and closed. Nothing else.
    void StoreBarely(const char* pachLine, DWORD cbLine) const noexcept;
    // As much as a store cannot do without: the line tells its moment in local time as well, and the file lies beside
    // the module; and with a look at the file's last byte, which may be a torn line's.
    void StoreSafely(HMODULE hModule, const FILETIME& moment, const char* pachLine, DWORD cbLine) const noexcept;

    // The module's path, the mutex; the lines to be taken (cbTaken bytes, at most a piece) read, the rest read and
    // written beside the file piece by piece, the new file moved over the old one; for each of nTaken records the
    // host's name and the local time of its moment.
    void Fetch(HMODULE hModule, const FILETIME& moment, DWORD cbTaken, unsigned nTaken) const noexcept;

private:
    HANDLE OpenData(DWORD dwAccess) const noexcept;

    static constexpr DWORD PIECE_BYTES = 65'536; // as much as a fetch may take

    std::string m_data;
    std::string m_backup;
    HANDLE m_hMutex;
};

// A moment as local time, by the calls that it takes.
void ConvertToLocalTime(const FILETIME& moment) noexcept;
void TellLocalTime() noexcept; // the same for now

} // namespace varnex::bench
