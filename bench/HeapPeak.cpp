#include "HeapPeak.h"

#include "support/ImportTable.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <string>

namespace varnex::bench
{

namespace
{

void** g_ppMalloc = nullptr;
void** g_ppFree = nullptr;
void* (*g_pfnMalloc)(std::size_t) = nullptr;
void (*g_pfnFree)(void*) = nullptr;
std::ptrdiff_t g_cbHeld = 0;
std::ptrdiff_t g_cbPeak = 0;

void* CountedMalloc(std::size_t cbBlock)
{
    void* const pBlock = g_pfnMalloc(cbBlock);
    if (pBlock != nullptr)
    {
        g_cbHeld += static_cast<std::ptrdiff_t>(_msize(pBlock));
        g_cbPeak = std::max(g_cbPeak, g_cbHeld);
    }
    return pBlock;
}

void CountedFree(void* pBlock)
{
    if (pBlock != nullptr)
    {
        g_cbHeld -= static_cast<std::ptrdiff_t>(_msize(pBlock));
    }
    g_pfnFree(pBlock);
}

} // namespace

HeapPeak::HeapPeak()
{
    for (const test::Import& import : test::ReadImports(GetModuleHandleW(nullptr)))
    {
        if (import.name == "malloc")
        {
            g_ppMalloc = import.ppSlot;
        }
        else if (import.name == "free")
        {
            g_ppFree = import.ppSlot;
        }
    }
    REQUIRE((g_ppMalloc != nullptr && g_ppFree != nullptr));
    g_pfnMalloc = reinterpret_cast<void* (*)(std::size_t)>(*g_ppMalloc);
    g_pfnFree = reinterpret_cast<void (*)(void*)>(*g_ppFree);
    test::WriteImportSlot(g_ppMalloc, reinterpret_cast<void*>(CountedMalloc));
    test::WriteImportSlot(g_ppFree, reinterpret_cast<void*>(CountedFree));
    g_cbHeld = 0;
    g_cbPeak = 0;
}

HeapPeak::~HeapPeak()
{
    test::WriteImportSlot(g_ppMalloc, reinterpret_cast<void*>(g_pfnMalloc));
    test::WriteImportSlot(g_ppFree, reinterpret_cast<void*>(g_pfnFree));
}

std::size_t HeapPeak::Bytes() const noexcept
{
    return static_cast<std::size_t>(g_cbPeak);
}

} // namespace varnex::bench
