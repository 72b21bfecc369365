#pragma once

#include "support/ScriptScope.h"

#include "common/Locks.h"

#include <windows.h>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace varnex::test
{

enum class FailMode
{
    Once,       // exactly the k-th call fails
    FromThereOn // the k-th call and every later one fail
};

// What a failing call answers: the value in the return register, and the last error unless bKeepsLastError.
struct CallFailure
{
    DWORD dwLastError = 0;
    ULONGLONG ullResult = 0;
    bool bKeepsLastError = false;
};

// A machine-code doorway in front of one function. Whoever calls Code() reaches, as the gate stands at that moment, the
// original, a script (any callable of the function's signature) or a made-up failure; arguments pass through untouched,
// so counting and failing need not know the signature. Calls may come from any thread. A gate's code is never freed: a
// thread that still holds the address when the test is over reaches the original.
//
// Tests use ImportRedirector and ScriptedExports, which own gates, rather than gates themselves.
class CallGate
{
public:
    // A gate for pOriginal, open (it passes every call on) until told otherwise.
    static CallGate& Take(void* pOriginal);
    // Opens the gate again and gives it back.
    void GiveBack() noexcept;

    CallGate(const CallGate&) = delete;
    CallGate& operator=(const CallGate&) = delete;

    void* Code() const noexcept { return m_pCode; }
    void* Original() const noexcept { return m_pOriginal; }
    // Calls since the gate was taken, the failed ones included, those from unscripted threads not.
    ULONGLONG Calls() const noexcept { return m_ullCalls.load(); }

    template <class Signature>
    void SetScript(std::function<Signature> script);
    void ClearScript() noexcept;

    // Fails the ullCall-th call (1 is the next one) from now on.
    void SetFailure(ULONGLONG ullCall, FailMode mode, const CallFailure& failure) noexcept;
    void ClearFailure() noexcept;
    // How many calls the failure was given to since it was set.
    ULONGLONG Failures() const noexcept { return m_ullFailures.load(); }

private:
    friend class ScriptRun;
    friend struct CallRouter;
    using AnyScript = std::shared_ptr<void>;

    CallGate(void* pCode, void* pOriginal) noexcept : m_pCode(pCode), m_pOriginal(pOriginal) {}
    bool TakesFailure() noexcept;
    AnyScript Script() noexcept;
    void* Route() noexcept;
    void SetScript(AnyScript script, void* pDispatcher) noexcept;

    void* const m_pCode;
    void* const m_pOriginal;
    std::atomic<ULONGLONG> m_ullCalls{0};
    std::atomic<void*> m_pDispatcher{nullptr};
    SlimLock m_lock;
    AnyScript m_script;

    std::atomic<bool> m_bFails{false};
    std::atomic<ULONGLONG> m_ullFailAtCall{0};
    std::atomic<bool> m_bFailsOn{false};
    std::atomic<ULONGLONG> m_ullCallsSinceRule{0};
    std::atomic<ULONGLONG> m_ullFailures{0};
    std::atomic<ULONGLONG> m_ullFailResult{0};
    std::atomic<DWORD> m_dwFailError{0};
    std::atomic<bool> m_bKeepsLastError{false};
};

// What went wrong inside scripts, on whichever thread: a script that throws answers with zero and leaves its text
// here. ~ImportRedirector turns the texts into test failures.
void ReportScriptTrouble(const std::string& text) noexcept;
std::vector<std::string> TakeScriptTroubles();

// --- the scripted road ----------------------------------------------------------------------------------------------

// The gate through which this thread has just come. Keeps the last error.
CallGate& TakeEnteredGate() noexcept;

// One run of a script: holds the script, keeps the thread unscripted meanwhile, and lets the caller see the last error
// that the script leaves, whatever its own end does.
class ScriptRun
{
public:
    explicit ScriptRun(CallGate& gate) noexcept;
    ~ScriptRun();
    ScriptRun(const ScriptRun&) = delete;
    ScriptRun& operator=(const ScriptRun&) = delete;

    // Null when the script was taken away at this very moment.
    void* Script() const noexcept { return m_script.get(); }

private:
    bool m_bWasUnscripted;
    std::shared_ptr<void> m_script;
};

template <class Signature>
struct ScriptCall;

template <class Result, class... Arguments>
struct ScriptCall<Result(Arguments...)>
{
    using Function = std::function<Result(Arguments...)>;

    // Where a scripted gate leads: the same signature as the function that it stands for.
    static Result Dispatch(Arguments... arguments)
    {
        CallGate& gate = TakeEnteredGate();
        const ScriptRun run(gate);
        if (run.Script() == nullptr)
        {
            return reinterpret_cast<Result (*)(Arguments...)>(gate.Original())(arguments...);
        }
        return Answer(*static_cast<const Function*>(run.Script()), arguments...);
    }

private:
    static Result Answer(const Function& script, Arguments... arguments)
    {
        try
        {
            return script(arguments...);
        }
        catch (const std::exception& error)
        {
            ReportScriptTrouble(error.what());
        }
        catch (...)
        {
            ReportScriptTrouble("a script threw (assertions belong on the test's own thread, outside scripts)");
        }
        return Result();
    }
};

template <class Signature>
void CallGate::SetScript(std::function<Signature> script)
{
    const UnscriptedScope unscripted;
    SetScript(std::make_shared<std::function<Signature>>(std::move(script)),
              reinterpret_cast<void*>(&ScriptCall<Signature>::Dispatch));
}

} // namespace varnex::test
