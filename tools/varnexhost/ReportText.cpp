#include "ReportText.h"

#include "HostError.h"

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <rapidxml/rapidxml.hpp>

namespace varnex::host
{

namespace
{

using XmlNode = rapidxml::xml_node<char>;

// The parser works in the text that it is given, so text and tree live together.
class ParsedReport
{
public:
    explicit ParsedReport(const std::wstring& xml) : m_text(ToUtf8(xml))
    {
        try
        {
            m_document.parse<rapidxml::parse_default>(m_text.data());
        }
        catch (const rapidxml::parse_error& error)
        {
            throw HostError(L"The answer is not XML: " + FromUtf8(error.what()) + L".");
        }
        m_pRoot = m_document.first_node("ServerPKIInformation");
        if (m_pRoot == nullptr)
        {
            throw HostError(L"The answer is not a utilization report.");
        }
    }

    const XmlNode& Root() const noexcept { return *m_pRoot; }

private:
    std::string m_text;
    rapidxml::xml_document<char> m_document;
    const XmlNode* m_pRoot = nullptr;
};

std::string Attribute(const XmlNode& node, const char* pszName)
{
    const auto* pAttribute = node.first_attribute(pszName);
    if (pAttribute == nullptr)
    {
        throw HostError(L"The report is not complete: " + FromUtf8(node.name()) + L" has no " + FromUtf8(pszName) +
                        L".");
    }
    return pAttribute->value();
}

std::string TimeOf(const XmlNode& root)
{
    const XmlNode* pTime = root.first_node("Time");
    return pTime != nullptr ? pTime->value() : "";
}

template <class Action>
void ForEach(const XmlNode& root, const char* pszName, Action action)
{
    for (const XmlNode* pNode = root.first_node(pszName); pNode != nullptr; pNode = pNode->next_sibling(pszName))
    {
        action(*pNode);
    }
}

std::string Line(std::string name, const std::string& amount, const std::string& rest)
{
    name.resize(std::max<std::size_t>(name.size(), 28), ' ');
    const std::string padding(amount.size() < 12 ? 12 - amount.size() : 0, ' ');
    return name + padding + amount + (rest.empty() ? "" : "   ") + rest + "\n";
}

// A name is there when it is known; a report has only its first character.
std::string Named(const char* pszKind, const std::string& name)
{
    return name.empty() ? pszKind : std::string(pszKind) + " " + name;
}

// With one decimal: a quiet disk's throughput is well below 1.
std::string MegabytesASecond(const std::string& bytes)
{
    const long long nTenths = std::atoll(bytes.c_str()) * 10 / 1048576;
    return std::to_string(nTenths / 10) + "." + std::to_string(nTenths % 10) + " MB/s";
}

std::string MemoryLines(const XmlNode& node)
{
    return Line("Physical memory", Attribute(node, "PhysicalMemUtil") + " %",
                "of " + Attribute(node, "PhysicalMemCapacity") + " MB") +
           Line("Paging file", Attribute(node, "PageFileUtil") + " %",
                "of " + Attribute(node, "PageFileCapacity") + " MB");
}

std::string AdapterLine(const XmlNode& node)
{
    const std::string speed = Attribute(node, "LinkSpeed");
    return Line(Named("Adapter", Attribute(node, "MACAddress")), Attribute(node, "Utilization") + " %",
                speed == "0" ? "of an unknown link speed" : "of " + speed + " Mbit/s");
}

// Numbers as numbers where they are such; text is kept as it came.
nlohmann::ordered_json AttributesOf(const XmlNode& node)
{
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const auto* pAttribute = node.first_attribute(); pAttribute != nullptr;
         pAttribute = pAttribute->next_attribute())
    {
        const std::string name = pAttribute->name();
        if (name == "Index" || name == "MACAddress")
        {
            object[name] = pAttribute->value();
        }
        else if (name != "xmlns")
        {
            object[name] = std::atoll(pAttribute->value());
        }
    }
    return object;
}

nlohmann::ordered_json ArrayOf(const XmlNode& root, const char* pszName)
{
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    ForEach(root, pszName, [&](const XmlNode& node) { array.push_back(AttributesOf(node)); });
    return array;
}

} // namespace

std::wstring ReportAsTable(const std::wstring& xml)
{
    const ParsedReport report(xml);
    const XmlNode& root = report.Root();
    std::string table = "Utilization report of " + TimeOf(root) + "\n";
    ForEach(root, "CPUUtil",
            [&](const XmlNode& node) {
                table += Line(Named("Processor", Attribute(node, "Index")), Attribute(node, "Utilization") + " %", "");
            });
    ForEach(root, "MemoryUtil", [&](const XmlNode& node) { table += MemoryLines(node); });
    ForEach(root, "DiskUtil",
            [&](const XmlNode& node) {
                table +=
                    Line(Named("Disk", Attribute(node, "Index")), MegabytesASecond(Attribute(node, "Throughput")), "");
            });
    ForEach(root, "NetworkUtil", [&](const XmlNode& node) { table += AdapterLine(node); });
    return FromUtf8(table);
}

std::wstring ReportAsJson(const std::wstring& xml)
{
    const ParsedReport report(xml);
    const XmlNode& root = report.Root();
    nlohmann::ordered_json json;
    json["Time"] = TimeOf(root);
    json["CPUUtil"] = ArrayOf(root, "CPUUtil");
    const XmlNode* pMemory = root.first_node("MemoryUtil");
    json["MemoryUtil"] = pMemory != nullptr ? AttributesOf(*pMemory) : nlohmann::ordered_json();
    json["DiskUtil"] = ArrayOf(root, "DiskUtil");
    json["NetworkUtil"] = ArrayOf(root, "NetworkUtil");
    return FromUtf8(json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace)) + L"\n";
}

} // namespace varnex::host
