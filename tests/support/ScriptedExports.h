#pragma once

#include "support/ImportRedirector.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace varnex::test
{

// Answers for functions that the module looks up at run time, by redirecting its GetProcAddress:
//
//     ScriptedExports exports(redirector);
//     exports.Hide("MiniDumpWriteDump"); // the look-up fails with ERROR_PROC_NOT_FOUND
//     exports.Replace<decltype(::GetSystemTimes)>("GetSystemTimes", [](FILETIME*, FILETIME*, FILETIME*) { ... });
//
// Every other name is looked up as usual. A function is known by its name, whatever library it is asked of.
class ScriptedExports
{
public:
    explicit ScriptedExports(ImportRedirector& redirector);
    ~ScriptedExports();
    ScriptedExports(const ScriptedExports&) = delete;
    ScriptedExports& operator=(const ScriptedExports&) = delete;

    template <class Signature>
    void Replace(const char* pszFunction, std::function<Signature> script)
    {
        Gate(pszFunction).SetScript(std::move(script));
    }
    void Hide(const char* pszFunction);
    // Makes the ullCall-th call from now on (1 is the next) of the function fail: it answers zero and leaves
    // dwLastError. A script is not called then.
    void FailCall(const char* pszFunction, ULONGLONG ullCall, FailMode mode, DWORD dwLastError);
    // How many calls the rule has failed.
    ULONGLONG Failures(const char* pszFunction) const;
    // Back to the real function.
    void Restore(const char* pszFunction);
    // Look-ups of that name so far.
    ULONGLONG LookUps(const char* pszFunction) const;
    // Every name that was looked up so far.
    std::vector<std::string> LookedUp() const;
    // Calls of the scripted function so far.
    ULONGLONG Calls(const char* pszFunction) const;

private:
    struct State;
    CallGate& Gate(const char* pszFunction);
    CallGate* FindGate(const char* pszFunction) const;

    std::shared_ptr<State> m_state;
    RestoredImports m_imports;
};

} // namespace varnex::test
