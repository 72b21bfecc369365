#pragma once

#include "support/ImportRedirector.h"

namespace varnex::test
{

// For tests of many days: makes the time of a module under a virtual clock pass in lumps of five seconds, without losing
// any of it. A worker's sleeps of a second add up until there are five seconds of them; one that waits for an object looks every five
// seconds (to the clock itself, whoever waits looks again whenever anything happens). The test's own thread is left to
// the clock. Declare it behind the clock; one at a time.
class CoarseTime
{
public:
    CoarseTime(ImportRedirector& redirector, HMODULE hModule);
    ~CoarseTime();
    CoarseTime(const CoarseTime&) = delete;
    CoarseTime& operator=(const CoarseTime&) = delete;

private:
    void** const m_ppSleep;
    RestoredImports m_imports;
};

} // namespace varnex::test
