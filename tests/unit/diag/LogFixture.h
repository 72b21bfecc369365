#pragma once

#include "common/Handles.h"
#include "diag/SPLogger.h"
#include "support/ImportRedirector.h"
#include "support/LogMatchers.h"
#include "support/ModuleTree.h"
#include "support/TestText.h"
#include "support/VirtualClock.h"

#include <catch2/catch.hpp>

#include <string>
#include <utility>

namespace varnex::test
{

// Gives the logger a mutex without a name for a scope. The name of its own one holds only the second of its creation, so
// other test programs may have the same one, and their lines would then come into the way of what a test scripts.
class PrivateLogMutex
{
public:
    PrivateLogMutex()
        : m_mutex(CreateMutexW(nullptr, FALSE, nullptr)), m_hKept(std::exchange(Log()->Mutex, m_mutex.Get()))
    {
    }
    ~PrivateLogMutex() { Log()->Mutex = m_hKept; }
    PrivateLogMutex(const PrivateLogMutex&) = delete;
    PrivateLogMutex& operator=(const PrivateLogMutex&) = delete;

private:
    UniqueHandle m_mutex;
    HANDLE m_hKept;
};

// The process's logger in a tree of its own, at level 4, on 2024-01-31 at 23:59:59 by a clock that stands still.
class LogFixture
{
public:
    explicit LogFixture(bool bMakeLogs = true) : tree(bMakeLogs), clock(redirector)
    {
        clock.Set(LocalTime{2024, 1, 31, 23, 59, 59});
        logger.Configure(AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
        logger.Level = 4;
    }

    // As another thread finds it.
    bool IsMutexFree()
    {
        bool bFree = false;
        clock.RunWhileAdvancing(
            [&]
            {
                bFree = WaitForSingleObject(logger.Mutex, 0) == WAIT_OBJECT_0;
                if (bFree)
                {
                    ReleaseMutex(logger.Mutex);
                }
            });
        return bFree;
    }

    ModuleTree tree;
    ImportRedirector redirector;
    VirtualClock clock;
    SPLogger& logger = *SPLogger::Instance();
    PrivateLogMutex mutex;
};

} // namespace varnex::test
