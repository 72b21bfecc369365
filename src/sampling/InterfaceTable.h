#pragma once

#include <memory>

#include <windows.h>
#include <winsock2.h>

#include <iphlpapi.h>

namespace varnex
{

// A snapshot of the system's table of network interfaces, unsorted.
class InterfaceTable
{
public:
    enum class ReadResult
    {
        Read,
        NoMemory,
        Failed,
    };

    // Reads into a first buffer of cbFirst bytes (0: none, only the size is asked for), then, if the table wants more,
    // into one of the size that it reports. NoMemory: there was none for the first buffer that it needed; a table that
    // has grown out of the second one is Failed.
    ReadResult Read(ULONG cbFirst) noexcept;

    const MIB_IFROW* begin() const noexcept { return Table() == nullptr ? nullptr : Table()->table; }
    const MIB_IFROW* end() const noexcept
    {
        return Table() == nullptr ? nullptr : Table()->table + Table()->dwNumEntries;
    }

private:
    const MIB_IFTABLE* Table() const noexcept { return reinterpret_cast<const MIB_IFTABLE*>(m_buffer.get()); }

    std::unique_ptr<BYTE[]> m_buffer;
};

} // namespace varnex
