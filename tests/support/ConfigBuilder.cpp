#include "support/ConfigBuilder.h"

#include <algorithm>

namespace varnex::test
{

namespace
{

// An element of the document while it is put together.
struct Element
{
    std::string name;
    std::string text;
    std::vector<Element> children;

    Element& Child(const std::string& childName)
    {
        const auto found = std::find_if(children.begin(), children.end(),
                                        [&](const Element& child) { return child.name == childName; });
        return found != children.end() ? *found : children.emplace_back(Element{childName, {}, {}});
    }
};

std::string Escaped(const std::string& text)
{
    std::string result;
    for (const char chText : text)
    {
        switch (chText)
        {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        default:
            result += chText;
        }
    }
    return result;
}

void Append(std::string& document, const Element& element, int nDepth)
{
    const std::string indent(static_cast<std::size_t>(nDepth) * 2, ' ');
    document += indent + "<" + element.name + ">" + Escaped(element.text);
    if (!element.children.empty())
    {
        document += "\r\n";
        for (const Element& child : element.children)
        {
            Append(document, child, nDepth + 1);
        }
        document += indent;
    }
    document += "</" + element.name + ">\r\n";
}

Element& Descend(Element& root, const std::string& path)
{
    Element* pElement = &root;
    std::size_t nStart = 0;
    while (nStart < path.size())
    {
        const std::size_t nEnd = std::min(path.find('/', nStart), path.size());
        pElement = &pElement->Child(path.substr(nStart, nEnd - nStart));
        nStart = nEnd + 1;
    }
    return *pElement;
}

} // namespace

ConfigBuilder& ConfigBuilder::Set(const std::string& name, int nValue)
{
    return Set(name, std::to_string(nValue));
}

ConfigBuilder& ConfigBuilder::Set(const std::string& name, const std::string& text)
{
    return SetNode("KPMConfiguration/PkiAlert/" + name, text);
}

ConfigBuilder& ConfigBuilder::SetPolicy(const std::string& resource, int nInterval, int nThreshold, int nSamplingAmount,
                                        int nMaxAlertNum)
{
    return Set(resource + "Interval", nInterval)
        .Set(resource + "Threshold", nThreshold)
        .Set(resource + "SamplingAmount", nSamplingAmount)
        .Set(resource + "MaxAlertNum", nMaxAlertNum);
}

ConfigBuilder& ConfigBuilder::SetLogLevel(int nLevel)
{
    return SetNode("KPMConfiguration/VarnexLog/Level", std::to_string(nLevel));
}

ConfigBuilder& ConfigBuilder::SetCounter(const std::string& name, const std::string& text)
{
    return SetNode("KPMConfiguration/PkiAlertNum/" + name, text);
}

ConfigBuilder& ConfigBuilder::SetNode(const std::string& path, const std::string& text)
{
    const auto found =
        std::find_if(m_nodes.begin(), m_nodes.end(), [&](const auto& node) { return node.first == path; });
    if (found != m_nodes.end())
    {
        found->second = text;
    }
    else
    {
        m_nodes.emplace_back(path, text);
    }
    return *this;
}

std::string ConfigBuilder::Build() const
{
    Element document;
    document.Child("KPMConfiguration");
    for (const auto& [path, text] : m_nodes)
    {
        Descend(document, path).text = text;
    }
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n";
    for (const Element& root : document.children)
    {
        Append(text, root, 0);
    }
    return text;
}

} // namespace varnex::test
