#pragma once

#include "support/CallGate.h"
#include "support/ImportTable.h"

#include <windows.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace varnex::test
{

// Answers for the functions that a module imports, by rewriting its import address table. Unit tests redirect the
// imports of their own program (which links the module's objects), module tests those of the DLL that they loaded:
//
//     ImportRedirector redirector;                          // this program; or redirector(module.Handle())
//     redirector.Replace<decltype(::MoveFileExA)>("MoveFileExA", [](LPCSTR, LPCSTR, DWORD) {
//         SetLastError(ERROR_ACCESS_DENIED);
//         return FALSE;
//     });
//     redirector.FailCall("CreateMutexW", 2, FailMode::Once, ERROR_ACCESS_DENIED); // the second call from here on
//     ...
//     CHECK(redirector.Calls("MoveFileExA") == 1);
//
// - An import is named "CreateThread" or, for one DLL's, "KERNEL32.dll!CreateThread". A name that the module does not
//   import fails the test, so that no test can believe in a script that never answers; the Try... forms return false.
// - Scripts may be called on any thread. Inside a script every redirected function is the real one: call it by its
//   name. Assertions do not belong in scripts (Catch knows one thread only): record there, check afterwards.
// - Everything is put back at the end of the scope; a module that was unloaded meanwhile is left alone.
// - A compiler may read an import's address once for a whole loop. Redirect before the thread that runs the loop
//   starts; afterwards such a thread calls on through the gate, which then passes it to the real function.
// - One redirector for one module, shared by all that script it (VirtualClock, ScriptedPdh, ...): the last script that
//   is set for an import counts, and failures apply on top of scripts.
class ImportRedirector
{
public:
    explicit ImportRedirector(HMODULE hModule = GetModuleHandleW(nullptr));
    ~ImportRedirector();
    ImportRedirector(const ImportRedirector&) = delete;
    ImportRedirector& operator=(const ImportRedirector&) = delete;

    // From now on calls reach the script.
    template <class Signature>
    void Replace(const char* pszImport, std::function<Signature> script)
    {
        Gate(pszImport).SetScript(std::move(script));
    }
    template <class Signature>
    bool TryReplace(const char* pszImport, std::function<Signature> script)
    {
        return Has(pszImport) && (Replace<Signature>(pszImport, std::move(script)), true);
    }
    // The same with a plain function.
    template <class Result, class... Arguments>
    void Redirect(const char* pszImport, Result (*pfnReplacement)(Arguments...))
    {
        Replace<Result(Arguments...)>(pszImport, pfnReplacement);
    }

    // The function that the import led to before: for calls from outside a script.
    template <class Signature>
    Signature* Original(const char* pszImport)
    {
        return reinterpret_cast<Signature*>(Gate(pszImport).Original());
    }

    // Makes the ullCall-th call from now on (1 is the next) fail: it returns ullResult and leaves dwLastError. The
    // function itself, and a script, are not called then. One rule for each import; the newest counts.
    void FailCall(const char* pszImport, ULONGLONG ullCall, FailMode mode, DWORD dwLastError, ULONGLONG ullResult = 0);
    void FailCall(const char* pszImport, ULONGLONG ullCall, FailMode mode, const CallFailure& failure);
    void StopFailing(const char* pszImport);
    // How many calls the rule has failed: a test that scripted a failure checks that it was met.
    ULONGLONG Failures(const char* pszImport);

    // Counting starts with the first mention of an import in any call of this class.
    void CountCalls(const char* pszImport);
    void CountEveryCall();
    ULONGLONG Calls(const char* pszImport);
    // Every import that was called since it is counted, by name.
    std::map<std::string, ULONGLONG> CallCounts() const;

    // Puts one import back.
    void Restore(const char* pszImport) noexcept;

    bool Has(const char* pszImport) const;
    // The names of all imported functions.
    std::vector<std::string> Names() const;

private:
    struct Slot
    {
        Import import;
        CallGate* pGate; // null until the import is first mentioned
    };

    CallGate& Gate(const char* pszImport);
    CallGate& Engage(Slot& slot);
    void Disengage(Slot& slot) noexcept;
    Slot* Find(const char* pszImport) noexcept;
    bool IsModuleLoaded() const noexcept;

    HMODULE m_hModule;
    std::vector<Slot> m_slots;
};

// Puts a group of imports back at the end of its scope: for a class that scripts some imports of a redirector which
// outlives it.
class RestoredImports
{
public:
    explicit RestoredImports(ImportRedirector& redirector) : m_redirector(redirector) {}
    ~RestoredImports();
    RestoredImports(const RestoredImports&) = delete;
    RestoredImports& operator=(const RestoredImports&) = delete;

    template <class Signature>
    void Replace(const char* pszImport, std::function<Signature> script)
    {
        m_redirector.Replace<Signature>(pszImport, std::move(script));
        m_names.emplace_back(pszImport);
    }
    // Returns whether the module imports it.
    template <class Signature>
    bool TryReplace(const char* pszImport, std::function<Signature> script)
    {
        return m_redirector.Has(pszImport) && (Replace<Signature>(pszImport, std::move(script)), true);
    }

private:
    ImportRedirector& m_redirector;
    std::vector<std::string> m_names;
};

} // namespace varnex::test
