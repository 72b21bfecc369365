#pragma once

#include "DomMethods.h"
#include "support/CallGate.h"

#include <windows.h>

#include <array>
#include <functional>

namespace varnex::test
{

// Answers for single calls into the document object model, by rewriting the method tables that all documents, all
// their parse errors, elements, attributes and maps, of this process share. COM must be initialised.
//
//     ScriptedDom dom;
//     dom.FailCall(DomMethod::Load, 1, FailMode::Once, E_ACCESSDENIED); // the next load fails
//     dom.Replace<HRESULT(IXMLDOMNode*, BSTR*)>(DomMethod::GetText, [](IXMLDOMNode*, BSTR*) { ... });
//     ...
//     CHECK(dom.Failures(DomMethod::Load) == 1);
//
// The rules of ImportRedirector hold: a script reaches the real method by calling it, assertions do not belong in
// scripts, and failures apply on top of scripts.
class ScriptedDom
{
public:
    ScriptedDom();
    ~ScriptedDom();
    ScriptedDom(const ScriptedDom&) = delete;
    ScriptedDom& operator=(const ScriptedDom&) = delete;

    template <class Signature>
    void Replace(DomMethod method, std::function<Signature> script)
    {
        SlotOf(method).pGate->SetScript(std::move(script));
    }
    // Every load reports a success without having loaded anything, and the document is complete.
    void LoadNothing();
    // Makes the ullCall-th call from now on (1 is the next) fail.
    void FailCall(DomMethod method, ULONGLONG ullCall, FailMode mode, HRESULT nResult);
    // Calls of every method reach their scripts again.
    void StopFailing() noexcept;
    ULONGLONG Calls(DomMethod method) const;
    // How many calls the rule has failed.
    ULONGLONG Failures(DomMethod method) const;

private:
    struct Slot
    {
        void** ppMethod = nullptr;
        CallGate* pGate = nullptr;
    };
    const Slot& SlotOf(DomMethod method) const;

    std::array<Slot, DOM_METHODS> m_slots;
};

} // namespace varnex::test
