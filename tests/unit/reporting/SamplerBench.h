#pragma once

#include "ReportingBench.h"

#include "entry/ModuleState.h"

#include <memory>

namespace varnex::test
{

// One sampler of a bench, in its slot, on a worker of the clock; its thread's exit code is kept.
template <class Sampler>
class SamplerRun
{
public:
    SamplerRun(ReportingBench& bench, WorkerSlot& slot) : m_bench(bench), m_slot(slot)
    {
        auto* const pSampler = new Sampler;
        slot.Publish(pSampler);
        bench.clock.RunOnOtherThread(
            [pSampler, pExitCode = m_pExitCode]
            {
                const ScriptedScope scripted;
                *pExitCode = AlertReachThreadProc(pSampler);
            });
        bench.clock.WaitUntilAllAsleep();
    }
    ~SamplerRun()
    {
        m_slot.RequestStop();
        m_bench.clock.AdvanceUntilWorkersEnd(100);
        m_slot.Forget(); // an object that kept its slot is left alone, as by a stop
    }
    SamplerRun(const SamplerRun&) = delete;
    SamplerRun& operator=(const SamplerRun&) = delete;

    void RequestStop() { m_slot.RequestStop(); }
    bool HasEnded() const { return *m_pExitCode != STILL_ACTIVE; }
    DWORD ExitCode() const { return *m_pExitCode; }
    bool KeepsSlot() const { return m_slot.IsSet(); }

private:
    ReportingBench& m_bench;
    WorkerSlot& m_slot;
    std::shared_ptr<DWORD> m_pExitCode = std::make_shared<DWORD>(STILL_ACTIVE);
};

} // namespace varnex::test
