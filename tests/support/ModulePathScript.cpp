#include "support/ModulePathScript.h"

#include "common/Locks.h"
#include "support/TestText.h"

namespace varnex::test
{

struct ModulePathScript::State
{
    SlimLock lock;
    std::wstring path;
    DWORD dwLastError = 0; // of a call that fails

    template <class Character>
    DWORD Answer(const std::basic_string<Character>& text, Character* pText, DWORD cchText) const
    {
        if (dwLastError != 0 || cchText == 0)
        {
            SetLastError(dwLastError != 0 ? dwLastError : ERROR_INSUFFICIENT_BUFFER);
            return 0;
        }
        const std::size_t cchCopied = text.copy(pText, cchText - 1);
        pText[cchCopied] = 0;
        const bool bCut = cchCopied < text.size();
        SetLastError(bCut ? ERROR_INSUFFICIENT_BUFFER : ERROR_SUCCESS);
        return bCut ? cchText : static_cast<DWORD>(cchCopied);
    }
};

ModulePathScript::ModulePathScript(ImportRedirector& redirector, const std::wstring& path)
    : m_state(std::make_shared<State>()), m_imports(redirector)
{
    m_state->path = path;
    const auto answerWide = [state = m_state](HMODULE, LPWSTR pwszText, DWORD cchText)
    {
        const SlimLockHold hold(state->lock);
        return state->Answer(state->path, pwszText, cchText);
    };
    const auto answerNarrow = [state = m_state](HMODULE, LPSTR pszText, DWORD cchText)
    {
        const SlimLockHold hold(state->lock);
        return state->Answer(AnsiFromWide(state->path), pszText, cchText);
    };
    m_imports.TryReplace<decltype(::GetModuleFileNameW)>("GetModuleFileNameW", answerWide);
    m_imports.TryReplace<decltype(::GetModuleFileNameA)>("GetModuleFileNameA", answerNarrow);
}

ModulePathScript::~ModulePathScript() = default;

void ModulePathScript::Set(const std::wstring& path)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->path = path;
    m_state->dwLastError = 0;
}

void ModulePathScript::Fail(DWORD dwLastError)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->dwLastError = dwLastError;
}

} // namespace varnex::test
