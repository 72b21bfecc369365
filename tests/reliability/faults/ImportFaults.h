#pragma once

#include "FaultTarget.h"

#include "support/ImportRedirector.h"

#include <string>
#include <vector>

namespace varnex::test
{

// The imports of the module that can fail, each with the answer by which it says so.
std::vector<FaultTarget> ImportTargets(ImportRedirector& imports);

// The imports that the tables know neither as fallible nor as infallible: none, or the tables are out of date.
std::vector<std::string> UnknownImports(const ImportRedirector& imports);

} // namespace varnex::test
