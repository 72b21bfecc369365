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
        return {DomObject::Document, offsetof(IXMLDOMDocumentVtbl, QueryInterface) / cbPlace};
    case DomMethod::Load:
        return {DomObject::Document, offsetof(IXMLDOMDocumentVtbl, load) / cbPlace};
    case DomMethod::SelectSingleNode:
        return {DomObject::Document, offsetof(IXMLDOMDocumentVtbl, selectSingleNode) / cbPlace};
    case DomMethod::GetDocumentElement:
        return {DomObject::Document, offsetof(IXMLDOMDocumentVtbl, get_documentElement) / cbPlace};
    case DomMethod::CreateNode:
        return {DomObject::Document, offsetof(IXMLDOMDocumentVtbl, createNode) / cbPlace};
    case DomMethod::AppendToDocument:
        return {DomObject::Document, offsetof(IXMLDOMDocumentVtbl, appendChild) / cbPlace};
    case DomMethod::GetReadyState:
        return {DomObject::Document, offsetof(IXMLDOMDocumentVtbl, get_readyState) / cbPlace};
    case DomMethod::GetParseError:
        return {DomObject::Document, offsetof(IXMLDOMDocumentVtbl, get_parseError) / cbPlace};
    case DomMethod::GetErrorCode:
        return {DomObject::ParseError, offsetof(IXMLDOMParseErrorVtbl, get_errorCode) / cbPlace};
    case DomMethod::Abort:
        return {DomObject::Document, offsetof(IXMLDOMDocumentVtbl, abort) / cbPlace};
    case DomMethod::AppendToElement:
        return {DomObject::Element, offsetof(IXMLDOMElementVtbl, appendChild) / cbPlace};
    case DomMethod::GetText:
        return {DomObject::Element, offsetof(IXMLDOMElementVtbl, get_text) / cbPlace};
    case DomMethod::PutText:
        return {DomObject::Element, offsetof(IXMLDOMElementVtbl, put_text) / cbPlace};
    case DomMethod::GetXml:
        return {DomObject::Document, offsetof(IXMLDOMDocumentVtbl, get_xml) / cbPlace};
    case DomMethod::GetAttributes:
        return {DomObject::Element, offsetof(IXMLDOMElementVtbl, get_attributes) / cbPlace};
    case DomMethod::PutAttributeText:
        return {DomObject::Attribute, offsetof(IXMLDOMAttributeVtbl, put_text) / cbPlace};
    case DomMethod::SetNamedItem:
        return {DomObject::AttributeMap, offsetof(IXMLDOMNamedNodeMapVtbl, setNamedItem) / cbPlace};
    }
    throw std::invalid_argument("no such method");
}

} // namespace varnex::test
