#include "support/VirtualClock.h"

#include "common/Handles.h"
#include "common/Locks.h"

#include <catch2/catch.hpp>

#include <windows.h>

namespace varnex::test
{

namespace
{

constexpr int WORKERS = 5;
constexpr int MINUTES = 1441;

// A sampler as the module has five of them: a sample a minute, its flag looked at every second.
struct Sampler
{
    CriticalSection section;
    int bRunning = 1;
    int nSamples = 0;

    bool Runs()
    {
        const CriticalSectionHold hold(section);
        return bRunning != 0;
    }
    void Stop()
    {
        const CriticalSectionHold hold(section);
        bRunning = 0;
    }
};

DWORD WINAPI RunSampler(void* pSampler)
{
    auto& sampler = *static_cast<Sampler*>(pSampler);
    while (sampler.Runs())
    {
        ++sampler.nSamples;
        for (int nSecond = 0; nSecond < 60 && sampler.Runs(); ++nSecond)
        {
            Sleep(1000);
        }
    }
    return 0;
}

} // namespace

TEST_CASE("a day of five samplers takes seconds")
{
    const ULONGLONG ullStart = GetTickCount64();
    ImportRedirector redirector;
    VirtualClock clock(redirector);
    Sampler samplers[WORKERS];
    UniqueHandle threads[WORKERS];
    for (int nSampler = 0; nSampler < WORKERS; ++nSampler)
    {
        InitializeCriticalSection(&samplers[nSampler].section);
        threads[nSampler].Reset(CreateThread(nullptr, 0, RunSampler, &samplers[nSampler], 0, nullptr));
    }
    clock.WaitUntilAllAsleep();
    clock.Advance(60 * (MINUTES - 1));
    for (Sampler& sampler : samplers)
    {
        CHECK(sampler.nSamples == MINUTES);
        sampler.Stop();
    }
    clock.AdvanceUntilWorkersEnd(1);
    for (Sampler& sampler : samplers)
    {
        DeleteCriticalSection(&sampler.section);
    }
    const UnscriptedScope unscripted;
    const ULONGLONG ullRealMs = GetTickCount64() - ullStart;
    INFO("432000 sleeps of 5 workers took " << ullRealMs << " real ms");
    CHECK(ullRealMs < 60000); // ten times what it needs, for a machine that others share
}

} // namespace varnex::test
