#include "DumpFile.h"

#include <catch2/catch.hpp>

#include <cstring>

namespace varnex::test
{

namespace
{

constexpr ULONG32 DUMP_SIGNATURE = 0x504D444D; // "MDMP"; compilers warn about the system's own constant

struct Range
{
    std::uint64_t ullStart;
    std::uint64_t cbSize;
    std::uint64_t ullOffset; // in the file
};

bool Holds(const Range& range, std::uint64_t ullAddress, std::size_t cbWanted)
{
    return ullAddress >= range.ullStart && ullAddress + cbWanted <= range.ullStart + range.cbSize;
}

std::vector<Range> RangesOf(const MINIDUMP_MEMORY_LIST* pList, const MINIDUMP_MEMORY64_LIST* pFullList)
{
    std::vector<Range> ranges;
    for (ULONG32 i = 0; pList != nullptr && i < pList->NumberOfMemoryRanges; ++i)
    {
        const MINIDUMP_MEMORY_DESCRIPTOR& range = pList->MemoryRanges[i];
        ranges.push_back({range.StartOfMemoryRange, range.Memory.DataSize, range.Memory.Rva});
    }
    std::uint64_t ullOffset = pFullList == nullptr ? 0 : pFullList->BaseRva; // one after the other from here
    for (ULONG64 i = 0; pFullList != nullptr && i < pFullList->NumberOfMemoryRanges; ++i)
    {
        const MINIDUMP_MEMORY_DESCRIPTOR64& range = pFullList->MemoryRanges[i];
        ranges.push_back({range.StartOfMemoryRange, range.DataSize, ullOffset});
        ullOffset += range.DataSize;
    }
    return ranges;
}

} // namespace

DumpFile::DumpFile(const std::wstring& path)
{
    const UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    REQUIRE(file);
    const UniqueHandle mapping(CreateFileMappingW(file.Get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
    REQUIRE(mapping);
    m_view.Reset(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
    REQUIRE(m_view);
    REQUIRE(Header().Signature == DUMP_SIGNATURE);
}

const MINIDUMP_HEADER& DumpFile::Header() const noexcept
{
    return *static_cast<const MINIDUMP_HEADER*>(m_view.Get());
}

const void* DumpFile::Find(MINIDUMP_STREAM_TYPE type) const
{
    MINIDUMP_DIRECTORY* pDirectory = nullptr;
    void* pStream = nullptr;
    ULONG cbStream = 0;
    if (MiniDumpReadDumpStream(m_view.Get(), type, &pDirectory, &pStream, &cbStream) == FALSE)
    {
        return nullptr;
    }
    std::vector<std::uint64_t>& copy = m_streams[type];
    copy.resize(cbStream / sizeof(std::uint64_t) + 1);
    std::memcpy(copy.data(), pStream, cbStream);
    return copy.data();
}

const char* DumpFile::At(std::uint64_t ullOffset) const noexcept
{
    return static_cast<const char*>(m_view.Get()) + ullOffset;
}

const char* DumpFile::Memory(std::uint64_t ullAddress, std::size_t cbWanted) const
{
    for (const Range& range :
         RangesOf(Stream<MINIDUMP_MEMORY_LIST>(MemoryListStream), Stream<MINIDUMP_MEMORY64_LIST>(Memory64ListStream)))
    {
        if (Holds(range, ullAddress, cbWanted))
        {
            return At(range.ullOffset + (ullAddress - range.ullStart));
        }
    }
    return nullptr;
}

const MINIDUMP_THREAD* DumpFile::Thread(std::uint64_t ullId) const
{
    const auto* pList = Stream<MINIDUMP_THREAD_LIST>(ThreadListStream);
    for (ULONG32 i = 0; pList != nullptr && i < pList->NumberOfThreads; ++i)
    {
        if (pList->Threads[i].ThreadId == ullId)
        {
            return &pList->Threads[i];
        }
    }
    return nullptr;
}

std::vector<std::wstring> DumpFile::Modules() const
{
    std::vector<std::wstring> names;
    const auto* pList = Stream<MINIDUMP_MODULE_LIST>(ModuleListStream);
    for (ULONG32 i = 0; pList != nullptr && i < pList->NumberOfModules; ++i)
    {
        const char* pName = At(pList->Modules[i].ModuleNameRva); // a MINIDUMP_STRING
        ULONG32 cbPath;
        std::memcpy(&cbPath, pName, sizeof cbPath);
        std::wstring path(cbPath / sizeof(wchar_t), L'\0');
        std::memcpy(path.data(), pName + sizeof cbPath, cbPath);
        names.push_back(path.substr(path.rfind(L'\\') + 1));
    }
    return names;
}

} // namespace varnex::test
