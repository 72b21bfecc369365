#include "ImagePages.h"

#include <catch2/catch.hpp>

#include <psapi.h>

#include <vector>

namespace varnex::bench
{

namespace
{

constexpr std::size_t PAGE_BYTES = 4096;

// How many of a region's pages are there and no longer the file's.
std::size_t CountOwnPages(const MEMORY_BASIC_INFORMATION& region)
{
    std::vector<PSAPI_WORKING_SET_EX_INFORMATION> pages(region.RegionSize / PAGE_BYTES);
    for (std::size_t i = 0; i < pages.size(); ++i)
    {
        pages[i].VirtualAddress = static_cast<char*>(region.BaseAddress) + i * PAGE_BYTES;
    }
    REQUIRE(QueryWorkingSetEx(GetCurrentProcess(), pages.data(), static_cast<DWORD>(pages.size() * sizeof(pages[0]))));
    std::size_t nOwn = 0;
    for (const PSAPI_WORKING_SET_EX_INFORMATION& page : pages)
    {
        nOwn += page.VirtualAttributes.Valid && !page.VirtualAttributes.Shared ? 1 : 0;
    }
    return nOwn;
}

} // namespace

std::size_t OwnBytesOfImage(HMODULE hModule)
{
    std::size_t nOwn = 0;
    const char* pAddress = reinterpret_cast<const char*>(hModule);
    MEMORY_BASIC_INFORMATION region;
    while (VirtualQuery(pAddress, &region, sizeof region) != 0 && region.AllocationBase == hModule)
    {
        nOwn += region.State == MEM_COMMIT ? CountOwnPages(region) : 0;
        pAddress = static_cast<const char*>(region.BaseAddress) + region.RegionSize;
    }
    REQUIRE(nOwn != 0); // no module is loaded without a variable's being written to
    return nOwn * PAGE_BYTES;
}

} // namespace varnex::bench
