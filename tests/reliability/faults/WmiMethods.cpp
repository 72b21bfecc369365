// The C form of the interfaces names the places of their method tables.
#define CINTERFACE

#include "WmiMethods.h"

#include "support/ImportTable.h"

#include <objbase.h>
#include <oleauto.h>
#include <wbemidl.h>

#include <stdexcept>

namespace varnex::test
{

namespace
{

void Demand(bool bGood)
{
    if (!bGood)
    {
        throw std::runtime_error("there are no scripted WMI objects");
    }
}

IWbemLocator* MakeLocator(HMODULE hModule)
{
    IWbemLocator* pLocator = nullptr;
    Demand(SUCCEEDED(CoInitialize(nullptr)));
    for (const Import& import : ReadImports(hModule))
    {
        if (import.name == "CoCreateInstance")
        {
            const auto pfnCreate = reinterpret_cast<decltype(&::CoCreateInstance)>(*import.ppSlot);
            pfnCreate(CLSID_WbemLocator, nullptr, CLSCTX_ALL, IID_IWbemLocator, reinterpret_cast<void**>(&pLocator));
        }
    }
    CoUninitialize(); // the objects are this process's own
    Demand(pLocator != nullptr);
    return pLocator;
}

} // namespace

template <class Function>
void WmiMethods::Engage(const char* pszName, Function& pfnMethod)
{
    auto** ppSlot = reinterpret_cast<void**>(&pfnMethod);
    CallGate& gate = CallGate::Take(*ppSlot);
    m_methods.push_back({pszName, ppSlot, &gate});
    WriteImportSlot(ppSlot, gate.Code());
}

WmiMethods::WmiMethods(HMODULE hModule)
{
    IWbemLocator* const pLocator = MakeLocator(hModule);
    IWbemServices* pServices = nullptr;
    IEnumWbemClassObject* pEnumerator = nullptr;
    IWbemClassObject* pObject = nullptr;
    ULONG nReturned = 0;
    wchar_t wszSpace[] = L"ROOT\\CIMV2";
    wchar_t wszLanguage[] = L"WQL";
    wchar_t wszQuery[] = L"SELECT * FROM Win32_NetworkAdapter";
    pLocator->lpVtbl->ConnectServer(pLocator, wszSpace, nullptr, nullptr, nullptr, 0, nullptr, nullptr, &pServices);
    Demand(pServices != nullptr);
    pServices->lpVtbl->ExecQuery(pServices, wszLanguage, wszQuery, 0, nullptr, &pEnumerator);
    Demand(pEnumerator != nullptr);
    pEnumerator->lpVtbl->Next(pEnumerator, 0, 1, &pObject, &nReturned);
    Demand(pObject != nullptr);
    Engage("IWbemLocator::ConnectServer", pLocator->lpVtbl->ConnectServer);
    Engage("IWbemServices::ExecQuery", pServices->lpVtbl->ExecQuery);
    Engage("IEnumWbemClassObject::Next", pEnumerator->lpVtbl->Next);
    Engage("IWbemClassObject::Get", pObject->lpVtbl->Get);
    pObject->lpVtbl->Release(pObject);
    pEnumerator->lpVtbl->Release(pEnumerator);
    pServices->lpVtbl->Release(pServices);
    pLocator->lpVtbl->Release(pLocator);
}

WmiMethods::~WmiMethods()
{
    for (const Method& method : m_methods)
    {
        WriteImportSlot(method.ppSlot, method.pGate->Original());
        method.pGate->GiveBack();
    }
}

std::vector<FaultTarget> WmiMethods::Targets() const
{
    std::vector<FaultTarget> targets;
    for (const Method& method : m_methods)
    {
        CallGate* const pGate = method.pGate;
        const CallFailure failure = {0, static_cast<DWORD>(WBEM_E_FAILED), true};
        targets.push_back({method.pszName,
                           [pGate, failure](ULONGLONG ullCall, FailMode mode)
                           { pGate->SetFailure(ullCall, mode, failure); },
                           [pGate] { return pGate->Calls(); }, [pGate] { return pGate->Failures(); }});
    }
    return targets;
}

} // namespace varnex::test
