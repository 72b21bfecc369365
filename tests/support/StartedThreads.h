#pragma once

#include "common/Handles.h"
#include "support/ImportRedirector.h"

#include <vector>

namespace varnex::test
{

// The threads of the workers that a module starts, held by handles of the test's own, to see how they end:
//
//     StartedThreads threads(redirector);
//     module.Start(VARNEX_ALERT_MEMORY);
//     module.StopAndEnd(VARNEX_ALERT_MEMORY);
//     CHECK(threads.ExitCodes() == std::vector<DWORD>{1});
//
// It looks at SetThreadPriority, which is called for each of them before it runs; CreateThread belongs to the clock.
// For tests that start workers from one thread at a time.
class StartedThreads
{
public:
    explicit StartedThreads(ImportRedirector& redirector);
    StartedThreads(const StartedThreads&) = delete;
    StartedThreads& operator=(const StartedThreads&) = delete;

    // What each of them ended with, in the order of their starts. Fails the test when one of them still runs after ten
    // real seconds.
    std::vector<DWORD> ExitCodes() const;

private:
    RestoredImports m_imports;
    std::vector<UniqueHandle> m_threads;
};

} // namespace varnex::test
