#pragma once

#include "support/ChildProcess.h"

#include <catch2/catch.hpp>

#include <string>

namespace varnex::test
{

// Runs a hidden test case of this program in a process of its own, where the logger has not been made yet.
inline void PassesInItsOwnProcess(const std::string& name)
{
    const ChildProcess child = ChildProcess::OfTestCase(name);
    REQUIRE(child.WaitForEnd(60'000));
    INFO(child.Output());
    CHECK(child.ExitCode() == 0);
    // Catch is content with a name that no test case has.
    CHECK_THAT(child.Output(), Catch::Contains("All tests passed"));
}

} // namespace varnex::test
