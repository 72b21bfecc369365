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
    Save
};
constexpr std::size_t DOM_METHODS = 10;

// Where a method stands: in the document's method table or in the element's, and at which place of it.
struct DomMethodPlace
{
    bool bOfDocument;
    std::size_t nIndex;
};

DomMethodPlace PlaceOf(DomMethod method);

} // namespace varnex::test
