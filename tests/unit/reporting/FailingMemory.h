#pragma once

#include "support/ImportRedirector.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>

namespace varnex::test
{

// Said of a history that could not grow.
constexpr char NO_MEMORY_LINE[] = "BoundedHistory -- no memory for one more sample, the oldest one makes room.";

// Lets a single allocation of one size fail: choose a size that little else asks for.
class FailingMemory
{
public:
    FailingMemory(ImportRedirector& redirector, std::size_t cbBlock) : m_redirector(redirector)
    {
        redirector.Replace<void*(std::size_t)>("malloc",
                                               [this, cbBlock](std::size_t cb) -> void*
                                               {
                                                   const bool bFails =
                                                       cb == cbBlock && m_nUntilFailure > 0 && --m_nUntilFailure == 0;
                                                   m_nFailed += bFails ? 1 : 0;
                                                   return bFails ? nullptr : std::malloc(cb);
                                               });
    }
    ~FailingMemory() { m_redirector.Restore("malloc"); }
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;

    // The nBlock-th of these from now on (1 is the next) fails.
    void FailBlock(int nBlock) { m_nUntilFailure = nBlock; }
    int Failed() const { return m_nFailed; }

private:
    ImportRedirector& m_redirector;
    std::atomic<int> m_nUntilFailure{0};
    std::atomic<int> m_nFailed{0};
};

} // namespace varnex::test
