// The C form of the interfaces names the places of their method tables.
#define CINTERFACE

#include "DomMethods.h"

#include <windows.h>

#include <msxml2.h>

#include <cstddef>
#include <stdexcept>

namespace varnex::test
{

DomMethodPlace PlaceOf(DomMethod method)
{
    constexpr std::size_t cbPlace = sizeof(void*);
    switch (method)
    {
    case DomMethod::DocumentQueryInterface:
        return {true, offsetof(IXMLDOMDocumentVtbl, QueryInterface) / cbPlace};
    case DomMethod::Load:
        return {true, offsetof(IXMLDOMDocumentVtbl, load) / cbPlace};
    case DomMethod::SelectSingleNode:
        return {true, offsetof(IXMLDOMDocumentVtbl, selectSingleNode) / cbPlace};
    case DomMethod::GetDocumentElement:
        return {true, offsetof(IXMLDOMDocumentVtbl, get_documentElement) / cbPlace};
    case DomMethod::CreateNode:
        return {true, offsetof(IXMLDOMDocumentVtbl, createNode) / cbPlace};
    case DomMethod::AppendToDocument:
        return {true, offsetof(IXMLDOMDocumentVtbl, appendChild) / cbPlace};
    case DomMethod::Save:
        return {true, offsetof(IXMLDOMDocumentVtbl, save) / cbPlace};
    case DomMethod::AppendToElement:
        return {false, offsetof(IXMLDOMElementVtbl, appendChild) / cbPlace};
    case DomMethod::GetText:
        return {false, offsetof(IXMLDOMElementVtbl, get_text) / cbPlace};
    case DomMethod::PutText:
        return {false, offsetof(IXMLDOMElementVtbl, put_text) / cbPlace};
    }
    throw std::invalid_argument("no such method");
}

} // namespace varnex::test
