#pragma once

#include "support/ImportRedirector.h"

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varnex::test
{

// What a property of a WMI object reads.
struct WmiValue
{
    HRESULT nStatus = S_OK; // of the reading; the rest counts only when it succeeds
    VARTYPE nType = VT_NULL;
    std::optional<std::wstring> text; // of a VT_BSTR, which is null without one
    LONG nNumber = 0;
};
WmiValue WmiText(const std::wstring& text);
WmiValue WmiNullText();
WmiValue WmiNumber(LONG nNumber);                    // a VT_I4
WmiValue WmiOfType(VARTYPE nType, LONG nNumber = 0); // any type that is no text; VT_NULL: WMI knows no value
WmiValue WmiUnreadable(HRESULT nStatus);

// An object by its properties; reading one that is not there fails with WBEM_E_NOT_FOUND.
using WmiObject = std::map<std::wstring, WmiValue>;
// An adapter as WMI describes one, with a MAC address. An adapter without a speed takes WmiOfType(VT_NULL).
WmiObject WmiAdapter(const std::wstring& name, LONG nInterfaceIndex, const WmiValue& speed);

// The arguments of the newest query for adapters, step by step.
struct WmiRequest
{
    DWORD dwContext = 0;
    IID iid{};
    std::wstring space;
    bool bPlainConnection = false; // no user, password, locale, flags, authority or context
    DWORD dwAuthentication = 0;
    DWORD dwAuthorization = 0;
    DWORD dwLevel = 0;
    DWORD dwImpersonation = 0;
    DWORD dwCapabilities = 0;
    bool bPlainBlanket = false; // the services' proxy; no server principal, no identity
    std::wstring language;
    std::wstring query;
    LONG nFlags = 0;
    LONG nTimeout = 0; // of the newest Next
    ULONG nCount = 0;
};

struct WmiScript;

// Stands in for WMI, behind CoCreateInstance (for the locator's class only) and CoSetProxyBlanket:
//
//     ScriptedWmi wmi(redirector);
//     wmi.SetObjects({WmiAdapter(L"Ethernet", 2, WmiText(L"1000000000"))});
//     wmi.Fail(ScriptedWmi::Step::Connect, E_ACCESSDENIED);
//     ...
//     CHECK(wmi.LiveObjects() == 0); // nothing that was handed out is still held
//
// It may be changed while the module's threads sleep. Every object is answered to any query for adapters; other
// namespaces, languages and classes are refused as Windows refuses them.
class ScriptedWmi
{
public:
    enum class Step
    {
        CreateLocator,
        Connect,
        SetBlanket,
        Query
    };

    explicit ScriptedWmi(ImportRedirector& redirector);
    ~ScriptedWmi();
    ScriptedWmi(const ScriptedWmi&) = delete;
    ScriptedWmi& operator=(const ScriptedWmi&) = delete;

    void SetObjects(std::vector<WmiObject> objects);
    // The step fails from here on, until Succeed.
    void Fail(Step step, HRESULT nStatus);
    void Succeed(Step step);
    // What an enumeration answers after so many objects, without an object: WBEM_S_FALSE after all of them unless this
    // says otherwise.
    void EndAfter(std::size_t nObjects, HRESULT nStatus);
    // The same, but the status comes with the next object.
    void EndWithObject(std::size_t nObjects, HRESULT nStatus);

    // The calls in order: "ConnectServer", "Next", "Get(Speed)".
    std::vector<std::string> Calls() const;
    void ForgetCalls();
    WmiRequest Request() const;
    // COM objects of this class that the module still holds.
    long LiveObjects() const;
    // Texts (BSTR) that the module has made or was given and has not freed.
    std::size_t LiveTexts() const;

private:
    std::shared_ptr<WmiScript> m_script;
    RestoredImports m_imports;
};

} // namespace varnex::test
