#include "ComJournal.h"

#include "common/Locks.h"
#include "support/ScriptScope.h"

#include <objbase.h>

namespace varnex::test
{

struct ComJournal::State
{
    SlimLock lock;
    std::vector<std::string> steps;
    std::string logAtLeave;

    void Note(const char* pszStep)
    {
        const SlimLockHold hold(lock);
        steps.emplace_back(pszStep);
    }
};

namespace
{

// A thread that is refused for its other model has COM all the same.
HRESULT Enter(HRESULT nAnswer, DWORD dwModel)
{
    const bool bOther = nAnswer == RPC_E_CHANGED_MODE;
    const HRESULT nEntered = SUCCEEDED(nAnswer) || bOther
                                 ? CoInitializeEx(nullptr, bOther ? dwModel ^ COINIT_APARTMENTTHREADED : dwModel)
                                 : nAnswer;
    return FAILED(nAnswer) ? nAnswer : nEntered;
}

} // namespace

ComJournal::ComJournal(ReportingBench& bench, HRESULT nAnswer)
    : m_state(std::make_shared<State>()), m_imports(bench.imports)
{
    m_imports.Replace<decltype(::CoInitialize)>("CoInitialize",
                                                [state = m_state, nAnswer](LPVOID)
                                                {
                                                    state->Note("single");
                                                    return Enter(nAnswer, COINIT_APARTMENTTHREADED);
                                                });
    m_imports.Replace<decltype(::CoInitializeEx)>("CoInitializeEx",
                                                  [state = m_state, nAnswer](LPVOID, DWORD dwModel)
                                                  {
                                                      state->Note(dwModel == COINIT_MULTITHREADED ? "multi"
                                                                                                  : "another model");
                                                      return Enter(nAnswer, dwModel);
                                                  });
    m_imports.Replace<decltype(::CoUninitialize)>("CoUninitialize",
                                                  [state = m_state, nAnswer, &tree = bench.tree]
                                                  {
                                                      state->Note("leave");
                                                      state->logAtLeave = tree.Log();
                                                      if (SUCCEEDED(nAnswer) || nAnswer == RPC_E_CHANGED_MODE)
                                                      {
                                                          CoUninitialize();
                                                      }
                                                  });
}

ComJournal::~ComJournal() = default;

std::string ComJournal::LogAtLeave() const
{
    return m_state->logAtLeave;
}

std::vector<std::string> ComJournal::Steps() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->steps;
}

} // namespace varnex::test
