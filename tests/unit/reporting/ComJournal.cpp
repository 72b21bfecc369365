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

ComJournal::ComJournal(ReportingBench& bench, HRESULT nAnswer)
    : m_state(std::make_shared<State>()), m_imports(bench.imports)
{
    m_imports.Replace<decltype(::CoInitialize)>("CoInitialize",
                                                [state = m_state, nAnswer](LPVOID pReserved)
                                                {
                                                    state->Note("single");
                                                    return FAILED(nAnswer) ? nAnswer : CoInitialize(pReserved);
                                                });
    m_imports.Replace<decltype(::CoInitializeEx)>(
        "CoInitializeEx",
        [state = m_state, nAnswer](LPVOID pReserved, DWORD dwModel)
        {
            state->Note(dwModel == COINIT_MULTITHREADED ? "multi" : "another model");
            return FAILED(nAnswer) ? nAnswer : CoInitializeEx(pReserved, dwModel);
        });
    m_imports.Replace<decltype(::CoUninitialize)>("CoUninitialize",
                                                  [state = m_state, nAnswer, &tree = bench.tree]
                                                  {
                                                      state->Note("leave");
                                                      state->logAtLeave = tree.Log();
                                                      if (SUCCEEDED(nAnswer))
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
