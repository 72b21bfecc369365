#include "ChartReport.h"

#include "ConfigNames.h"
#include "HostError.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <rapidxml/rapidxml.hpp>

namespace varnex::host
{

namespace
{

using XmlNode = rapidxml::xml_node<char>;

// A report has at most 16384 characters. The parser goes one call deeper with each element inside another.
constexpr std::ptrdiff_t MOST_TAGS = 2000;

class ReportReader
{
public:
    ReportReader(const XmlNode& root, const std::string& name) : m_root(root), m_name(name) {}
    SavedReport Read() const;

private:
    [[noreturn]] void ThrowIncomplete(const char* pszWhat) const
    {
        throw HostError(FromUtf8(m_name) + L" is not a whole report: it has no valid " + FromUtf8(pszWhat) + L".");
    }
    std::string Text(const XmlNode& node, const char* pszAttribute) const
    {
        const auto* pAttribute = node.first_attribute(pszAttribute);
        return pAttribute != nullptr ? ToUtf8(Printable(FromUtf8(pAttribute->value())))
                                     : (ThrowIncomplete(pszAttribute), std::string());
    }
    template <class Number = int>
    Number Value(const XmlNode& node, const char* pszAttribute) const
    {
        const std::string text = Text(node, pszAttribute);
        Number nValue = 0;
        const auto [pEnd, error] = std::from_chars(text.data(), text.data() + text.size(), nValue);
        if (text.empty() || error != std::errc() || pEnd != text.data() + text.size())
        {
            ThrowIncomplete(pszAttribute);
        }
        return nValue;
    }
    template <class Action>
    void ForEach(const char* pszName, Action action) const
    {
        for (const XmlNode* pNode = m_root.first_node(pszName); pNode != nullptr; pNode = pNode->next_sibling(pszName))
        {
            action(*pNode);
        }
    }

    const XmlNode& m_root;
    const std::string& m_name;
};

SavedReport ReportReader::Read() const
{
    SavedReport report;
    const XmlNode* pTime = m_root.first_node("Time");
    const std::optional<ChartMoment> moment = ParseMoment(pTime != nullptr ? pTime->value() : "");
    if (!moment)
    {
        ThrowIncomplete("Time");
    }
    report.moment = *moment;
    ForEach("CPUUtil", [&](const XmlNode& node) { report.processors.push_back(Value(node, "Utilization")); });
    ForEach("MemoryUtil",
            [&](const XmlNode& node) {
                report.memory = {Value(node, "PhysicalMemUtil"), Value(node, "PageFileUtil")};
            });
    ForEach("DiskUtil",
            [&](const XmlNode& node)
            {
                report.diskNames.push_back(Text(node, "Index"));
                report.disks.push_back(Value<std::int64_t>(node, "Throughput"));
            });
    ForEach(
        "NetworkUtil",
        [&](const XmlNode& node) {
            report.adapters.push_back({Text(node, "MACAddress"), Value(node, "LinkSpeed"), Value(node, "Utilization")});
        });
    return report;
}

} // namespace

std::optional<SavedReport> ReadSavedReport(std::string text, const std::string& name)
{
    const std::size_t nStart = text.find_first_not_of(" \t\r\n");
    if (nStart == std::string::npos || text[nStart] != '<' || std::count(text.begin(), text.end(), '<') > MOST_TAGS)
    {
        return std::nullopt;
    }
    rapidxml::xml_document<char> document;
    try
    {
        document.parse<rapidxml::parse_default>(text.data());
    }
    catch (const rapidxml::parse_error& error)
    {
        throw HostError(FromUtf8(name) + L" begins as XML does, but is not whole: " + FromUtf8(error.what()) + L".");
    }
    const XmlNode* pRoot = document.first_node();
    if (pRoot != nullptr && FromUtf8(pRoot->name()) == CONFIG_ROOT)
    {
        throw HostError(FromUtf8(name) + L" is a configuration; hand it over with --config.");
    }
    if (pRoot == nullptr || std::strcmp(pRoot->name(), "ServerPKIInformation") != 0)
    {
        return std::nullopt;
    }
    return ReportReader(*pRoot, name).Read();
}

} // namespace varnex::host
