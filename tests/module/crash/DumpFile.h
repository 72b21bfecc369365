#pragma once

#include "common/Handles.h"

#include <windows.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <dbghelp.h>

namespace varnex::test
{

// A dump as the system's dump library reads it. Fails the test when the file is none.
class DumpFile
{
public:
    explicit DumpFile(const std::wstring& path);

    const MINIDUMP_HEADER& Header() const noexcept;
    // Null when there is no such stream.
    template <class T>
    const T* Stream(MINIDUMP_STREAM_TYPE type) const
    {
        return static_cast<const T*>(Find(type));
    }
    bool Has(MINIDUMP_STREAM_TYPE type) const { return Find(type) != nullptr; }

    // The memory of the process, wherever in the dump it stands; null when it does not hold all of it.
    const char* Memory(std::uint64_t ullAddress, std::size_t cbWanted) const;
    const MINIDUMP_THREAD* Thread(std::uint64_t ullId) const;
    // File names without their directories.
    std::vector<std::wstring> Modules() const;

private:
    const void* Find(MINIDUMP_STREAM_TYPE type) const;
    const char* At(std::uint64_t ullOffset) const noexcept;

    UniqueView m_view;
    mutable std::map<MINIDUMP_STREAM_TYPE, std::vector<std::uint64_t>>
        m_streams; // aligned, as in the file they need not be
};

} // namespace varnex::test
