#include "support/StartedThreads.h"

#include "support/ScriptScope.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

StartedThreads::StartedThreads(ImportRedirector& redirector) : m_imports(redirector)
{
    m_imports.Replace<decltype(::SetThreadPriority)>("SetThreadPriority",
                                                     [this](HANDLE hThread, int nPriority)
                                                     {
                                                         UniqueHandle& thread = m_threads.emplace_back();
                                                         DuplicateHandle(GetCurrentProcess(), hThread,
                                                                         GetCurrentProcess(), thread.Receive(), 0,
                                                                         FALSE, DUPLICATE_SAME_ACCESS);
                                                         return SetThreadPriority(hThread, nPriority);
                                                     });
}

std::vector<DWORD> StartedThreads::ExitCodes() const
{
    constexpr DWORD dwPatienceMs = 10'000;
    const UnscriptedScope unscripted;
    std::vector<DWORD> codes;
    for (const UniqueHandle& thread : m_threads)
    {
        REQUIRE(WaitForSingleObject(thread.Get(), dwPatienceMs) == WAIT_OBJECT_0);
        REQUIRE(GetExitCodeThread(thread.Get(), &codes.emplace_back()) != FALSE);
    }
    return codes;
}

} // namespace varnex::test
