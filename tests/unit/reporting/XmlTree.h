#pragma once

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace varnex::test
{

// An XML element as a reader sees it: without prefixes, declarations of namespaces and the blanks between elements.
struct XmlElement
{
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes; // in document order
    std::string text;
    std::vector<XmlElement> children;
    std::string space; // the namespace that it is in

    bool operator==(const XmlElement& other) const;
};
std::ostream& operator<<(std::ostream& stream, const XmlElement& element);

// The document element of a text, read by a parser that is not the module's. Throws std::runtime_error for a text that
// is no document, and for one with a declaration or with anything behind the document element.
XmlElement ParseXml(const std::wstring& text);

} // namespace varnex::test
