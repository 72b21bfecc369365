#include "support/ScriptedWmi.h"

#include "support/TestText.h"
#include "support/WmiStandIns.h"

#include "common/Locks.h"

#include <algorithm>
#include <atomic>
#include <set>
#include <sstream>
#include <utility>

namespace varnex::test
{

WmiValue WmiText(const std::wstring& text)
{
    WmiValue value = WmiNullText();
    value.text = text;
    return value;
}

WmiValue WmiNullText()
{
    return WmiOfType(VT_BSTR);
}

WmiValue WmiNumber(LONG nNumber)
{
    return WmiOfType(VT_I4, nNumber);
}

WmiValue WmiOfType(VARTYPE nType, LONG nNumber)
{
    WmiValue value;
    value.nType = nType;
    value.nNumber = nNumber;
    return value;
}

WmiValue WmiUnreadable(HRESULT nStatus)
{
    WmiValue value;
    value.nStatus = nStatus;
    return value;
}

WmiObject WmiAdapter(const std::wstring& name, LONG nInterfaceIndex, const WmiValue& speed)
{
    return {{L"Name", WmiText(name)},
            {L"MACAddress", WmiText(L"00:15:5D:00:00:" + std::to_wstring(10 + nInterfaceIndex % 90))},
            {L"InterfaceIndex", WmiNumber(nInterfaceIndex)},
            {L"Speed", speed}};
}

// What the stand-ins share. They keep it alive, so a module that holds one too long meets no dangling pointer.
struct WmiScript
{
    SlimLock lock;
    std::vector<WmiObject> objects;
    std::map<ScriptedWmi::Step, HRESULT> failures;
    std::optional<std::size_t> nEnd;
    HRESULT nEndStatus = WBEM_S_FALSE;
    bool bEndHasObject = false;
    std::vector<std::string> calls;
    WmiRequest request;
    std::set<const void*> liveTexts;
    std::atomic<long> nLiveObjects{0};

    // Notes the call and what it was given; tells its scripted failure, or S_OK.
    template <class Note>
    HRESULT Enter(ScriptedWmi::Step step, const char* pszCall, const Note& note)
    {
        const SlimLockHold hold(lock);
        calls.emplace_back(pszCall);
        note(request);
        const auto failure = failures.find(step);
        return failure == failures.end() ? S_OK : failure->second;
    }
};

namespace
{

using Script = std::shared_ptr<WmiScript>;

// A COM object that counts itself. The module asks for no other interface of any of them.
template <class Interface>
class StandIn : public Interface
{
public:
    explicit StandIn(Script script) : m_script(std::move(script)) { ++m_script->nLiveObjects; }
    virtual ~StandIn() { --m_script->nLiveObjects; }
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppObject) override
    {
        *ppObject = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nReferences; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG nLeft = --m_nReferences;
        if (nLeft == 0)
        {
            const UnscriptedScope unscripted;
            delete this;
        }
        return nLeft;
    }

protected:
    Script m_script;

private:
    std::atomic<ULONG> m_nReferences{1};
};

class ScriptedObject final : public StandIn<UnusedClassObject>
{
public:
    ScriptedObject(Script script, WmiObject properties)
        : StandIn(std::move(script)), m_properties(std::move(properties))
    {
    }

    HRESULT STDMETHODCALLTYPE Get(LPCWSTR pwszName, LONG, VARIANT* pValue, CIMTYPE*, LONG*) override
    {
        const UnscriptedScope unscripted;
        const SlimLockHold hold(m_script->lock);
        m_script->calls.push_back("Get(" + AnsiFromWide(pwszName) + ")");
        const auto property =
            std::find_if(m_properties.begin(), m_properties.end(),
                         [=](const auto& candidate) { return _wcsicmp(candidate.first.c_str(), pwszName) == 0; });
        if (property == m_properties.end())
        {
            return static_cast<HRESULT>(WBEM_E_NOT_FOUND);
        }
        if (SUCCEEDED(property->second.nStatus))
        {
            Fill(*pValue, property->second);
        }
        return property->second.nStatus;
    }

private:
    void Fill(VARIANT& target, const WmiValue& value)
    {
        VariantInit(&target);
        target.vt = value.nType;
        if (value.nType != VT_BSTR)
        {
            target.lVal = value.nNumber;
        }
        else if (value.text)
        {
            target.bstrVal = SysAllocString(value.text->c_str());
            m_script->liveTexts.insert(target.bstrVal);
        }
        else
        {
            target.bstrVal = nullptr;
        }
    }

    const WmiObject m_properties;
};

class ScriptedEnumerator final : public StandIn<UnusedEnumerator>
{
public:
    using StandIn::StandIn;

    HRESULT STDMETHODCALLTYPE Next(LONG nTimeout, ULONG nCount, IWbemClassObject** ppObject, ULONG* pnReturned) override
    {
        const UnscriptedScope unscripted;
        const SlimLockHold hold(m_script->lock);
        m_script->calls.emplace_back("Next");
        m_script->request.nTimeout = nTimeout;
        m_script->request.nCount = nCount;
        *ppObject = nullptr;
        *pnReturned = 0;
        const bool bEnd = m_nNext >= m_script->nEnd.value_or(m_script->objects.size());
        if (!bEnd || m_script->bEndHasObject)
        {
            *ppObject = new ScriptedObject(m_script, m_script->objects.at(m_nNext));
            *pnReturned = 1;
            ++m_nNext;
        }
        return bEnd ? m_script->nEndStatus : S_OK;
    }

private:
    std::size_t m_nNext = 0;
};

// What WMI says of a query's text: the class is the one of the objects.
HRESULT JudgeQuery(BSTR bstrLanguage, BSTR bstrQuery)
{
    if (_wcsicmp(bstrLanguage, L"WQL") != 0)
    {
        return static_cast<HRESULT>(WBEM_E_INVALID_QUERY_TYPE);
    }
    std::wistringstream words(bstrQuery);
    std::wstring select, properties, from, queried;
    words >> select >> properties >> from >> queried;
    if (_wcsicmp(select.c_str(), L"SELECT") != 0 || _wcsicmp(from.c_str(), L"FROM") != 0)
    {
        return static_cast<HRESULT>(WBEM_E_INVALID_QUERY);
    }
    return _wcsicmp(queried.c_str(), L"Win32_NetworkAdapter") == 0 ? S_OK : static_cast<HRESULT>(WBEM_E_INVALID_CLASS);
}

class ScriptedServices final : public StandIn<UnusedServices>
{
public:
    using StandIn::StandIn;

    HRESULT STDMETHODCALLTYPE ExecQuery(BSTR bstrLanguage, BSTR bstrQuery, LONG nFlags, IWbemContext*,
                                        IEnumWbemClassObject** ppEnumerator) override
    {
        const UnscriptedScope unscripted;
        *ppEnumerator = nullptr;
        HRESULT nStatus = m_script->Enter(ScriptedWmi::Step::Query, "ExecQuery",
                                          [&](WmiRequest& request)
                                          {
                                              request.language = bstrLanguage;
                                              request.query = bstrQuery;
                                              request.nFlags = nFlags;
                                          });
        if (SUCCEEDED(nStatus))
        {
            nStatus = JudgeQuery(bstrLanguage, bstrQuery);
        }
        if (SUCCEEDED(nStatus))
        {
            *ppEnumerator = new ScriptedEnumerator(m_script);
        }
        return nStatus;
    }
};

class ScriptedLocator final : public StandIn<IWbemLocator>
{
public:
    using StandIn::StandIn;

    HRESULT STDMETHODCALLTYPE ConnectServer(BSTR bstrSpace, BSTR bstrUser, BSTR bstrPassword, BSTR bstrLocale,
                                            LONG nFlags, BSTR bstrAuthority, IWbemContext* pContext,
                                            IWbemServices** ppServices) override
    {
        const UnscriptedScope unscripted;
        *ppServices = nullptr;
        HRESULT nStatus = m_script->Enter(ScriptedWmi::Step::Connect, "ConnectServer",
                                          [&](WmiRequest& request)
                                          {
                                              request.space = bstrSpace;
                                              request.bPlainConnection =
                                                  bstrUser == nullptr && bstrPassword == nullptr &&
                                                  bstrLocale == nullptr && nFlags == 0 && bstrAuthority == nullptr &&
                                                  pContext == nullptr;
                                          });
        if (SUCCEEDED(nStatus) && _wcsicmp(bstrSpace, L"ROOT\\CIMV2") != 0)
        {
            nStatus = static_cast<HRESULT>(WBEM_E_INVALID_NAMESPACE);
        }
        if (SUCCEEDED(nStatus))
        {
            *ppServices = new ScriptedServices(m_script);
        }
        return nStatus;
    }
};

HRESULT CreateLocator(const Script& script, DWORD dwContext, REFIID iid, void** ppObject)
{
    *ppObject = nullptr;
    HRESULT nStatus = script->Enter(ScriptedWmi::Step::CreateLocator, "CoCreateInstance",
                                    [&](WmiRequest& request)
                                    {
                                        request.dwContext = dwContext;
                                        request.iid = iid;
                                    });
    APTTYPE type = APTTYPE_CURRENT;
    APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
    if (SUCCEEDED(nStatus))
    {
        nStatus = CoGetApartmentType(&type, &qualifier); // fails without COM
    }
    if (SUCCEEDED(nStatus))
    {
        *ppObject = static_cast<IWbemLocator*>(new ScriptedLocator(script));
    }
    return nStatus;
}

void ScriptCreation(RestoredImports& imports, const Script& script)
{
    imports.Replace<decltype(::CoCreateInstance)>(
        "CoCreateInstance",
        [script](REFCLSID clsid, IUnknown* pOuter, DWORD dwContext, REFIID iid, void** ppObject)
        {
            return IsEqualCLSID(clsid, CLSID_WbemLocator) ? CreateLocator(script, dwContext, iid, ppObject)
                                                          : CoCreateInstance(clsid, pOuter, dwContext, iid, ppObject);
        });
}

void ScriptBlanket(RestoredImports& imports, const Script& script)
{
    imports.Replace<decltype(::CoSetProxyBlanket)>(
        "CoSetProxyBlanket",
        [script](IUnknown* pProxy, DWORD dwAuthentication, DWORD dwAuthorization, OLECHAR* pPrincipal, DWORD dwLevel,
                 DWORD dwImpersonation, RPC_AUTH_IDENTITY_HANDLE hIdentity, DWORD dwCapabilities)
        {
            return script->Enter(ScriptedWmi::Step::SetBlanket, "CoSetProxyBlanket",
                                 [&](WmiRequest& request)
                                 {
                                     request.bPlainBlanket = dynamic_cast<ScriptedServices*>(pProxy) != nullptr &&
                                                             pPrincipal == nullptr && hIdentity == nullptr;
                                     request.dwAuthentication = dwAuthentication;
                                     request.dwAuthorization = dwAuthorization;
                                     request.dwLevel = dwLevel;
                                     request.dwImpersonation = dwImpersonation;
                                     request.dwCapabilities = dwCapabilities;
                                 });
        });
}

// The module frees a text by itself or with the VARIANT around it.
void ScriptTexts(RestoredImports& imports, const Script& script)
{
    const auto forget = [script](const void* pText)
    {
        const SlimLockHold hold(script->lock);
        script->liveTexts.erase(pText);
    };
    imports.TryReplace<decltype(::SysAllocString)>("SysAllocString",
                                                   [script](const OLECHAR* pwszText)
                                                   {
                                                       const BSTR bstrText = SysAllocString(pwszText);
                                                       const SlimLockHold hold(script->lock);
                                                       if (bstrText != nullptr)
                                                       {
                                                           script->liveTexts.insert(bstrText);
                                                       }
                                                       return bstrText;
                                                   });
    imports.TryReplace<decltype(::SysFreeString)>("SysFreeString",
                                                  [forget](BSTR bstrText)
                                                  {
                                                      forget(bstrText);
                                                      SysFreeString(bstrText);
                                                  });
    imports.TryReplace<decltype(::VariantClear)>("VariantClear",
                                                 [forget](VARIANTARG* pValue)
                                                 {
                                                     if (pValue->vt == VT_BSTR)
                                                     {
                                                         forget(pValue->bstrVal);
                                                     }
                                                     return VariantClear(pValue);
                                                 });
}

} // namespace

ScriptedWmi::ScriptedWmi(ImportRedirector& redirector) : m_script(std::make_shared<WmiScript>()), m_imports(redirector)
{
    ScriptCreation(m_imports, m_script);
    ScriptBlanket(m_imports, m_script);
    ScriptTexts(m_imports, m_script);
}

ScriptedWmi::~ScriptedWmi() = default;

void ScriptedWmi::SetObjects(std::vector<WmiObject> objects)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_script->lock);
    m_script->objects = std::move(objects);
}

void ScriptedWmi::Fail(Step step, HRESULT nStatus)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_script->lock);
    m_script->failures[step] = nStatus;
}

void ScriptedWmi::Succeed(Step step)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_script->lock);
    m_script->failures.erase(step);
}

void ScriptedWmi::EndAfter(std::size_t nObjects, HRESULT nStatus)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_script->lock);
    m_script->nEnd = nObjects;
    m_script->nEndStatus = nStatus;
    m_script->bEndHasObject = false;
}

void ScriptedWmi::EndWithObject(std::size_t nObjects, HRESULT nStatus)
{
    EndAfter(nObjects, nStatus);
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_script->lock);
    m_script->bEndHasObject = true;
}

std::vector<std::string> ScriptedWmi::Calls() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_script->lock);
    return m_script->calls;
}

void ScriptedWmi::ForgetCalls()
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_script->lock);
    m_script->calls.clear();
}

WmiRequest ScriptedWmi::Request() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_script->lock);
    return m_script->request;
}

long ScriptedWmi::LiveObjects() const
{
    return m_script->nLiveObjects.load();
}

std::size_t ScriptedWmi::LiveTexts() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_script->lock);
    return m_script->liveTexts.size();
}

} // namespace varnex::test
