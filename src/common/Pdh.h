#pragma once

#include "common/UniqueResource.h"

#include <windows.h>

#include <pdh.h>
#include <pdhmsg.h>

namespace varnex
{

struct PdhQueryTraits
{
    using Type = PDH_HQUERY;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type hQuery) noexcept { PdhCloseQuery(hQuery); }
};
using UniquePdhQuery = UniqueResource<PdhQueryTraits>;

struct PdhCounterTraits
{
    using Type = PDH_HCOUNTER;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type hCounter) noexcept { PdhRemoveCounter(hCounter); }
};
using UniquePdhCounter = UniqueResource<PdhCounterTraits>;

static_assert(isMoveOnly<UniquePdhQuery> && isMoveOnly<UniquePdhCounter>);

} // namespace varnex
