#pragma once

#include "support/CallGate.h"

#include <windows.h>

#include <functional>
#include <string>

namespace varnex::test
{

// One function, or one method of a COM object, that a fault point makes fail. It lives as long as the scenario that
// handed it out.
struct FaultTarget
{
    std::string name;
    std::function<void(ULONGLONG ullCall, FailMode mode)> fail; // the ullCall-th call from now on
    std::function<ULONGLONG()> calls;
    std::function<ULONGLONG()> failures;
};

inline const char* NameOf(FailMode mode)
{
    return mode == FailMode::Once ? "once" : "on";
}

} // namespace varnex::test
