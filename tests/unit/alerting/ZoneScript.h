#pragma once

#include "support/ImportRedirector.h"

namespace varnex::test
{

// The time zone of the code under test, whatever the machine's own is.
void UseUtc(ImportRedirector& imports);
// An hour ahead of UTC, two in summer (from the last Sunday of March to the last of October).
void UseCentralEurope(ImportRedirector& imports);

} // namespace varnex::test
