#include "OwnershipLedger.h"

#include "support/ScriptScope.h"

#include <objbase.h>
#include <oleauto.h>

#include <msxml2.h>

#include <set>

namespace varnex::test
{

struct OwnershipLedger::State
{
    std::size_t nHanded = 0;
    std::multiset<IUnknown*> objects; // each with a reference of the ledger's own
    std::multiset<BSTR> texts;

    void Add(HRESULT nResult, IUnknown* pObject)
    {
        if (SUCCEEDED(nResult) && pObject != nullptr)
        {
            ++nHanded;
            pObject->AddRef();
            objects.insert(pObject);
        }
    }
    void AddText(BSTR bstrText)
    {
        if (bstrText != nullptr)
        {
            ++nHanded;
            texts.insert(bstrText);
        }
    }
    void RemoveText(BSTR bstrText)
    {
        const auto found = texts.find(bstrText);
        if (found != texts.end())
        {
            texts.erase(found);
        }
    }
};

OwnershipLedger::OwnershipLedger(ImportRedirector& redirector, ScriptedDom& dom)
    : m_state(std::make_shared<State>()), m_imports(redirector)
{
    const auto state = m_state;
    m_imports.Replace<decltype(::CoCreateInstance)>(
        "CoCreateInstance",
        [state](REFCLSID classId, LPUNKNOWN pOuter, DWORD dwContext, REFIID iid, LPVOID* ppObject)
        {
            const HRESULT nResult = CoCreateInstance(classId, pOuter, dwContext, iid, ppObject);
            state->Add(nResult, static_cast<IUnknown*>(*ppObject));
            return nResult;
        });
    m_imports.Replace<decltype(::SysAllocString)>("SysAllocString",
                                                  [state](const OLECHAR* pwszText)
                                                  {
                                                      const BSTR bstrText = SysAllocString(pwszText);
                                                      state->AddText(bstrText);
                                                      return bstrText;
                                                  });
    m_imports.Replace<decltype(::SysAllocStringLen)>("SysAllocStringLen",
                                                     [state](const OLECHAR* pwchText, UINT cchText)
                                                     {
                                                         const BSTR bstrText = SysAllocStringLen(pwchText, cchText);
                                                         state->AddText(bstrText);
                                                         return bstrText;
                                                     });
    m_imports.Replace<decltype(::SysFreeString)>("SysFreeString",
                                                 [state](BSTR bstrText)
                                                 {
                                                     state->RemoveText(bstrText);
                                                     SysFreeString(bstrText);
                                                 });
    m_imports.Replace<decltype(::VariantClear)>("VariantClear",
                                                [state](VARIANTARG* pValue)
                                                {
                                                    if (pValue->vt == VT_BSTR)
                                                    {
                                                        state->RemoveText(pValue->bstrVal);
                                                    }
                                                    return VariantClear(pValue);
                                                });

    dom.Replace<HRESULT(IXMLDOMDocument*, BSTR, IXMLDOMNode**)>(
        DomMethod::SelectSingleNode,
        [state](IXMLDOMDocument* pDocument, BSTR bstrPath, IXMLDOMNode** ppNode)
        {
            const HRESULT nResult = pDocument->selectSingleNode(bstrPath, ppNode);
            state->Add(nResult, *ppNode);
            return nResult;
        });
    dom.Replace<HRESULT(IXMLDOMDocument*, IXMLDOMElement**)>(
        DomMethod::GetDocumentElement,
        [state](IXMLDOMDocument* pDocument, IXMLDOMElement** ppElement)
        {
            const HRESULT nResult = pDocument->get_documentElement(ppElement);
            state->Add(nResult, *ppElement);
            return nResult;
        });
    dom.Replace<HRESULT(IXMLDOMDocument*, IXMLDOMParseError**)>(
        DomMethod::GetParseError,
        [state](IXMLDOMDocument* pDocument, IXMLDOMParseError** ppError)
        {
            const HRESULT nResult = pDocument->get_parseError(ppError);
            state->Add(nResult, *ppError);
            return nResult;
        });
    dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT, BSTR, BSTR, IXMLDOMNode**)>(
        DomMethod::CreateNode,
        [state](IXMLDOMDocument* pDocument, VARIANT type, BSTR bstrName, BSTR bstrSpace, IXMLDOMNode** ppNode)
        {
            const HRESULT nResult = pDocument->createNode(type, bstrName, bstrSpace, ppNode);
            state->Add(nResult, *ppNode);
            return nResult;
        });
    for (const DomMethod append : {DomMethod::AppendToDocument, DomMethod::AppendToElement})
    {
        dom.Replace<HRESULT(IXMLDOMNode*, IXMLDOMNode*, IXMLDOMNode**)>(
            append,
            [state](IXMLDOMNode* pParent, IXMLDOMNode* pChild, IXMLDOMNode** ppNode)
            {
                const HRESULT nResult = pParent->appendChild(pChild, ppNode);
                state->Add(nResult, *ppNode);
                return nResult;
            });
    }
    dom.Replace<HRESULT(IXMLDOMNode*, BSTR*)>(DomMethod::GetText,
                                              [state](IXMLDOMNode* pNode, BSTR* pbstrText)
                                              {
                                                  const HRESULT nResult = pNode->get_text(pbstrText);
                                                  state->AddText(*pbstrText);
                                                  return nResult;
                                              });
}

OwnershipLedger::~OwnershipLedger() = default;

std::size_t OwnershipLedger::Handed() const
{
    return m_state->nHanded;
}

std::size_t OwnershipLedger::TakeUnreturned()
{
    const UnscriptedScope unscripted;
    std::size_t nUnreturned = m_state->texts.size();
    for (auto object = m_state->objects.begin(); object != m_state->objects.end();)
    {
        IUnknown* const pObject = *object;
        const auto end = m_state->objects.upper_bound(pObject);
        ULONG nReferences = 0;
        for (; object != end; ++object)
        {
            nReferences = pObject->Release();
        }
        nUnreturned += nReferences != 0 ? 1 : 0;
    }
    m_state->objects.clear();
    m_state->texts.clear();
    return nUnreturned;
}

} // namespace varnex::test
