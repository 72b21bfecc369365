#pragma once

#include "diag/SPLogger.h"

#include <exception>
#include <utility>

namespace varnex
{

// Stops every exception at the module's boundary (an export, a thread body, the library entry, a monitor's cycle),
// logs it at level 1 under the operation's name and gives the result for a failure instead.
template <class Result, class Body>
Result StopExceptions(const char* pszOperation, Result failure, Body&& body) noexcept
{
    try
    {
        return std::forward<Body>(body)();
    }
    catch (const std::exception& error)
    {
        Log()->Level1A("%s -- exception stopped(%s).", pszOperation, error.what());
    }
    catch (...)
    {
        Log()->Level1A("%s -- unknown exception stopped.", pszOperation);
    }
    return failure;
}

} // namespace varnex
