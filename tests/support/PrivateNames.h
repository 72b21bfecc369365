#pragma once

#include "support/ImportRedirector.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace varnex::test
{

// Whether an object made with these attributes is open to every account, and its handle not inherited.
bool IsForEveryone(const SECURITY_ATTRIBUTES* pSecurity);

// A name that only this process and its children know: tests that run side by side would meet in the module's own.
std::wstring PrivateName(const std::wstring& name, const std::wstring& key);
// A key that no other test of this machine has right now.
std::wstring MakePrivateKey();

// Leads the module's named events and sections to private names, and notes what it asked for:
//
//     PrivateNames names(redirector, MakePrivateKey());
//     ...
//     CHECK(names.Asked() == std::vector<std::wstring>{L"CreateEvent Global\\{...}"});
//
// Failures that are set at the redirector apply on top.
class PrivateNames
{
public:
    PrivateNames(ImportRedirector& redirector, const std::wstring& key);
    ~PrivateNames();
    PrivateNames(const PrivateNames&) = delete;
    PrivateNames& operator=(const PrivateNames&) = delete;

    const std::wstring& Key() const noexcept { return m_key; }
    // The calls in order: "CreateEvent", "OpenEvent", "CreateFileMapping" or "OpenFileMapping", and the name.
    std::vector<std::wstring> Asked() const;
    void ForgetAsked();
    // Runs at each call, on the calling thread, before it is answered; takes the call as Asked tells it.
    void OnAsked(std::function<void(const std::wstring& call)> action);
    // Opening this name fails from here on, until it is given back.
    void Hide(const std::wstring& name);
    void ShowAll();
    // How many objects were made without a null access list, inheritable, or in another way than asked for here.
    std::size_t CountUnlikeExpected() const;

private:
    struct State;
    void ScriptEvents();
    void ScriptSections();

    std::wstring m_key;
    std::shared_ptr<State> m_state;
    RestoredImports m_imports;
};

} // namespace varnex::test
