#include "DocumentClass.h"

#include "support/ImportTable.h"
#include "support/ScriptScope.h"

#include <stdexcept>

namespace varnex::test
{

namespace
{

constexpr CLSID CLASS_DOM_DOCUMENT = {0x2933BF90, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

} // namespace

DocumentClass::DocumentClass()
{
    const UnscriptedScope unscripted;
    if (FAILED(CoGetClassObject(CLASS_DOM_DOCUMENT, CLSCTX_ALL, nullptr, IID_IClassFactory,
                                reinterpret_cast<void**>(m_class.GetAddressOf()))))
    {
        throw std::runtime_error("there is no class of documents");
    }
    for (const Import& import : ReadImports(GetModuleHandleW(nullptr)))
    {
        if (import.name == "CoCreateInstance")
        {
            m_ppSlot = import.ppSlot;
            m_pOriginal = *import.ppSlot;
        }
    }
    s_pNewest = this;
    WriteImportSlot(m_ppSlot, reinterpret_cast<void*>(&DocumentClass::Create));
}

DocumentClass::~DocumentClass()
{
    WriteImportSlot(m_ppSlot, m_pOriginal);
    s_pNewest = nullptr;
}

HRESULT DocumentClass::Create(REFCLSID clsid, IUnknown* pOuter, DWORD dwContext, REFIID iid, void** ppObject)
{
    if (IsEqualCLSID(clsid, CLASS_DOM_DOCUMENT))
    {
        return s_pNewest->m_class->CreateInstance(pOuter, iid, ppObject);
    }
    return reinterpret_cast<decltype(&::CoCreateInstance)>(s_pNewest->m_pOriginal)(clsid, pOuter, dwContext, iid,
                                                                                   ppObject);
}

} // namespace varnex::test
