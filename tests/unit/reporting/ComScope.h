#pragma once

#include "support/ScriptScope.h"

#include <catch2/catch.hpp>

#include <objbase.h>

namespace varnex::test
{

// COM on the test's thread.
class ComScope
{
public:
    ComScope()
    {
        const UnscriptedScope unscripted;
        REQUIRE(SUCCEEDED(CoInitialize(nullptr)));
    }
    ~ComScope()
    {
        const UnscriptedScope unscripted;
        CoUninitialize();
    }
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;
};

} // namespace varnex::test
