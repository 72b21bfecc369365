#pragma once

#include <cstddef>

namespace varnex::test
{

// The methods of the document object model that the module calls, and that a test can answer for.
enum class DomMethod
{
    DocumentQueryInterface,
    Load,
    SelectSingleNode,
    GetDocumentElement,
    CreateNode,
    AppendToDocument,
    AppendToElement,
    GetText,
    PutText,
    GetReadyState,
    GetParseError,
    GetErrorCode,
    Abort,
    GetXml,
    GetAttributes,
    PutAttributeText,
    SetNamedItem
};
constexpr std::size_t DOM_METHODS = 17;

// Whose method table a method stands in.
enum class DomObject
{
    Document,
    ParseError,
    Element,
    Attribute,
    AttributeMap
};

// Where a method stands: in whose method table, and at which place of it.
struct DomMethodPlace
{
    DomObject object;
    std::size_t nIndex;
};

DomMethodPlace PlaceOf(DomMethod method);

} // namespace varnex::test
