#include "unit/sampling/ArrayFailure.h"

#include <windows.h>

#include <new>

namespace varnex::test
{

namespace
{

unsigned g_nCallsLeft = 0; // until the one that fails, which counts; 0 when none is to fail
bool g_bMet = false;

} // namespace

ArrayFailure::ArrayFailure(unsigned nCall)
{
    g_nCallsLeft = nCall;
    g_bMet = false;
}

ArrayFailure::~ArrayFailure()
{
    g_nCallsLeft = 0;
}

bool ArrayFailure::IsMet() const
{
    return g_bMet;
}

} // namespace varnex::test

// This program's own form of the operator. The library's delete goes with it, as with the library's own form.
void* operator new[](std::size_t cbArray, const std::nothrow_t&) noexcept
{
    using namespace varnex::test;
    if (g_nCallsLeft != 0 && --g_nCallsLeft == 0)
    {
        g_bMet = true;
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return ::operator new(cbArray, std::nothrow);
}
