#include "XmlTree.h"

#include "support/TestText.h"

#include <rapidxml/rapidxml.hpp>

#include <ostream>
#include <stdexcept>

namespace varnex::test
{

namespace
{

using Node = rapidxml::xml_node<char>;

XmlElement Read(const Node& node, std::string space)
{
    XmlElement element;
    element.name.assign(node.name(), node.name_size());
    for (const auto* pAttribute = node.first_attribute(); pAttribute != nullptr;
         pAttribute = pAttribute->next_attribute())
    {
        const std::string name(pAttribute->name(), pAttribute->name_size());
        const std::string value(pAttribute->value(), pAttribute->value_size());
        if (name == "xmlns")
        {
            space = value;
        }
        else
        {
            element.attributes.emplace_back(name, value);
        }
    }
    for (const Node* pChild = node.first_node(); pChild != nullptr; pChild = pChild->next_sibling())
    {
        if (pChild->type() == rapidxml::node_element)
        {
            element.children.push_back(Read(*pChild, space));
        }
        else
        {
            element.text.append(pChild->value(), pChild->value_size());
        }
    }
    element.space = std::move(space);
    return element;
}

} // namespace

bool XmlElement::operator==(const XmlElement& other) const
{
    return name == other.name && attributes == other.attributes && text == other.text && children == other.children &&
           space == other.space;
}

std::ostream& operator<<(std::ostream& stream, const XmlElement& element)
{
    stream << '<' << element.name << " {" << element.space << '}';
    for (const auto& [name, value] : element.attributes)
    {
        stream << ' ' << name << "=\"" << value << '"';
    }
    stream << '>' << element.text;
    for (const XmlElement& child : element.children)
    {
        stream << "\n  " << child;
    }
    return stream;
}

XmlElement ParseXml(const std::wstring& text)
{
    std::string buffer = Utf8FromWide(text);
    buffer.push_back('\0');
    rapidxml::xml_document<char> document;
    document.parse<rapidxml::parse_declaration_node | rapidxml::parse_trim_whitespace |
                   rapidxml::parse_validate_closing_tags>(buffer.data());
    const Node* const pRoot = document.first_node();
    if (pRoot == nullptr || pRoot->type() != rapidxml::node_element || pRoot->next_sibling() != nullptr)
    {
        throw std::runtime_error("not exactly one element: " + Utf8FromWide(text));
    }
    return Read(*pRoot, "");
}

} // namespace varnex::test
