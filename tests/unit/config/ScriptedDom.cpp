#include "ScriptedDom.h"

#include "common/Com.h"
#include "support/ImportTable.h"
#include "support/ScriptScope.h"

#include <msxml2.h>

#include <stdexcept>

namespace varnex::test
{

namespace
{

void Demand(bool bGood)
{
    if (!bGood)
    {
        throw std::runtime_error("there is no document object model to script");
    }
}

ComPtr<IXMLDOMDocument> MakeDocument()
{
    constexpr CLSID classDocument = {0x2933BF90, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
    constexpr IID interfaceDocument = {0x2933BF81, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
    ComPtr<IXMLDOMDocument> document;
    Demand(SUCCEEDED(CoCreateInstance(classDocument, nullptr, CLSCTX_ALL, interfaceDocument,
                                      reinterpret_cast<void**>(document.GetAddressOf()))));
    return document;
}

ComPtr<IXMLDOMElement> MakeElement(IXMLDOMDocument& document)
{
    const UniqueBstr name(L"a");
    ComPtr<IXMLDOMElement> element;
    Demand(SUCCEEDED(document.createElement(name.Get(), element.GetAddressOf())));
    return element;
}

// One object of each kind. All objects of a kind share their method table.
class DomObjects
{
public:
    DomObjects() : m_document(MakeDocument()), m_element(MakeElement(*m_document.Get()))
    {
        const UniqueBstr name(L"a");
        Demand(SUCCEEDED(m_document->createAttribute(name.Get(), m_attribute.GetAddressOf())));
        Demand(SUCCEEDED(m_document->get_parseError(m_parseError.GetAddressOf())));
        Demand(SUCCEEDED(m_element->get_attributes(m_attributes.GetAddressOf())));
    }
    void** MethodTable(DomObject object) const
    {
        switch (object)
        {
        case DomObject::Document:
            return MethodTableOf(m_document.Get());
        case DomObject::ParseError:
            return MethodTableOf(m_parseError.Get());
        case DomObject::Element:
            return MethodTableOf(m_element.Get());
        case DomObject::Attribute:
            return MethodTableOf(m_attribute.Get());
        case DomObject::AttributeMap:
            return MethodTableOf(m_attributes.Get());
        }
        throw std::invalid_argument("no such object");
    }

private:
    static void** MethodTableOf(IUnknown* pObject)
    {
        Demand(pObject != nullptr);
        return *reinterpret_cast<void***>(pObject);
    }

    ComPtr<IXMLDOMDocument> m_document;
    ComPtr<IXMLDOMParseError> m_parseError;
    ComPtr<IXMLDOMElement> m_element;
    ComPtr<IXMLDOMAttribute> m_attribute;
    ComPtr<IXMLDOMNamedNodeMap> m_attributes;
};

} // namespace

ScriptedDom::ScriptedDom()
{
    const UnscriptedScope unscripted;
    const DomObjects objects;
    for (std::size_t i = 0; i < DOM_METHODS; ++i)
    {
        const DomMethodPlace place = PlaceOf(static_cast<DomMethod>(i));
        Slot& slot = m_slots[i];
        slot.ppMethod = objects.MethodTable(place.object) + place.nIndex;
        slot.pGate = &CallGate::Take(*slot.ppMethod);
        WriteImportSlot(slot.ppMethod, slot.pGate->Code());
    }
}

ScriptedDom::~ScriptedDom()
{
    for (const Slot& slot : m_slots)
    {
        WriteImportSlot(slot.ppMethod, slot.pGate->Original());
        slot.pGate->GiveBack();
    }
}

const ScriptedDom::Slot& ScriptedDom::SlotOf(DomMethod method) const
{
    return m_slots.at(static_cast<std::size_t>(method));
}

void ScriptedDom::LoadNothing()
{
    Replace<HRESULT(IXMLDOMDocument*, VARIANT, VARIANT_BOOL*)>(DomMethod::Load,
                                                               [](IXMLDOMDocument*, VARIANT, VARIANT_BOOL* pbLoaded)
                                                               {
                                                                   *pbLoaded = VARIANT_TRUE;
                                                                   return S_OK;
                                                               });
    Replace<HRESULT(IXMLDOMDocument*, long*)>(DomMethod::GetReadyState,
                                              [](IXMLDOMDocument*, long* pnState)
                                              {
                                                  *pnState = 4;
                                                  return S_OK;
                                              });
}

void ScriptedDom::FailCall(DomMethod method, ULONGLONG ullCall, FailMode mode, HRESULT nResult)
{
    CallFailure failure;
    failure.ullResult = static_cast<DWORD>(nResult);
    failure.bKeepsLastError = true;
    SlotOf(method).pGate->SetFailure(ullCall, mode, failure);
}

void ScriptedDom::StopFailing() noexcept
{
    for (const Slot& slot : m_slots)
    {
        slot.pGate->ClearFailure();
    }
}

ULONGLONG ScriptedDom::Calls(DomMethod method) const
{
    return SlotOf(method).pGate->Calls();
}

ULONGLONG ScriptedDom::Failures(DomMethod method) const
{
    return SlotOf(method).pGate->Failures();
}

} // namespace varnex::test
