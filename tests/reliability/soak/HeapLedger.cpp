#include "HeapLedger.h"

#include "common/Locks.h"
#include "support/ScriptScope.h"

#include <cstdlib>
#include <unordered_map>

namespace varnex::test
{

struct HeapLedger::State
{
    SlimLock lock;
    std::unordered_map<const void*, std::size_t> live;
    Blocks ordinary;
    Blocks global;

    void* Took(void* pBlock, std::size_t cbBlock)
    {
        const SlimLockHold hold(lock);
        if (pBlock != nullptr)
        {
            live[pBlock] = cbBlock;
            ++ordinary.llCount;
            ordinary.llBytes += static_cast<long long>(cbBlock);
        }
        return pBlock;
    }
    void Gave(const void* pBlock)
    {
        const SlimLockHold hold(lock);
        const auto found = live.find(pBlock);
        if (found != live.end())
        {
            --ordinary.llCount;
            ordinary.llBytes -= static_cast<long long>(found->second);
            live.erase(found);
        }
    }
};

HeapLedger::HeapLedger(ImportRedirector& redirector) : m_state(std::make_shared<State>()), m_imports(redirector)
{
    // Told before the block is really given back: another thread may be handed it at once.
    const auto& state = m_state;
    m_imports.Replace<void*(std::size_t)>("malloc",
                                          [state](std::size_t cb) { return state->Took(std::malloc(cb), cb); });
    m_imports.Replace<void*(std::size_t, std::size_t)>("calloc", [state](std::size_t n, std::size_t cb)
                                                       { return state->Took(std::calloc(n, cb), n * cb); });
    m_imports.Replace<void*(void*, std::size_t)>("realloc",
                                                 [state](void* pBlock, std::size_t cb)
                                                 {
                                                     state->Gave(pBlock);
                                                     return state->Took(std::realloc(pBlock, cb), cb);
                                                 });
    m_imports.Replace<void(void*)>("free",
                                   [state](void* pBlock)
                                   {
                                       state->Gave(pBlock);
                                       std::free(pBlock);
                                   });
    m_imports.Replace<decltype(::LocalAlloc)>(
        "LocalAlloc", [state](UINT nFlags, SIZE_T cb) -> HLOCAL { return state->Took(LocalAlloc(nFlags, cb), cb); });
    m_imports.Replace<decltype(::LocalFree)>("LocalFree",
                                             [state](HLOCAL hBlock)
                                             {
                                                 state->Gave(hBlock);
                                                 return LocalFree(hBlock);
                                             });
    m_imports.Replace<decltype(::GlobalAlloc)>("GlobalAlloc",
                                               [state](UINT nFlags, SIZE_T cb)
                                               {
                                                   const SlimLockHold hold(state->lock);
                                                   ++state->global.llCount;
                                                   state->global.llBytes += static_cast<long long>(cb);
                                                   return GlobalAlloc(nFlags, cb);
                                               });
}

HeapLedger::~HeapLedger() = default;

HeapLedger::Blocks HeapLedger::Ordinary() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->ordinary;
}

HeapLedger::Blocks HeapLedger::Global() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->global;
}

} // namespace varnex::test
