#pragma once

#include <cstdint>
#include <string>

#include <windows.h>

namespace varnex::host
{

// A zip archive that is made up in memory.
class ZipFile
{
public:
    // name: with slashes between folders. time: local. Throws HostError when the content or the archive is larger than
    // the format's 4 GB.
    void Add(const std::wstring& name, const std::string& content, const SYSTEMTIME& time);

    // The archive. Nothing can be added any more.
    std::string Finish();

private:
    std::string m_archive;   // the entries
    std::string m_directory; // that of the archive, which follows them
    std::uint16_t m_nEntries = 0;
};

} // namespace varnex::host
