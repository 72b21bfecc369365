#include "PrometheusText.h"

#include "HostError.h"
#include "ReportText.h"

#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>
#include <vector>

namespace varnex::host
{

namespace
{

using Json = nlohmann::ordered_json;
using Labels = std::vector<std::pair<const char*, std::string>>;

constexpr std::int64_t BYTES_PER_MB = 1'048'576;
constexpr std::int64_t BYTES_PER_MEGABIT = 125'000;

std::string LabelValue(const std::string& text)
{
    std::string escaped;
    for (const char ch : text)
    {
        escaped += ch == '\\' ? "\\\\" : ch == '"' ? "\\\"" : ch == '\n' ? "\\n" : std::string(1, ch);
    }
    return escaped;
}

std::string LabelSet(const Labels& labels)
{
    std::string set;
    for (const auto& [pszName, text] : labels)
    {
        set += (set.empty() ? "{" : ",") + std::string(pszName) + "=\"" + LabelValue(text) + "\"";
    }
    return set.empty() ? set : set + "}";
}

// A report counts in whole percent.
std::string Ratio(std::int64_t nPercent)
{
    std::ostringstream text;
    text << static_cast<double>(nPercent) / 100;
    return text.str();
}

// A metric with its samples; nothing at all without any.
class Family
{
public:
    Family(std::string name, std::string help) : m_name(std::move(name)), m_help(std::move(help)) {}

    void Add(const Labels& labels, const std::string& value)
    {
        m_samples += m_name + LabelSet(labels) + " " + value + "\n";
    }
    void Add(const Labels& labels, std::int64_t nValue) { Add(labels, std::to_string(nValue)); }
    std::string Text() const
    {
        return m_samples.empty() ? ""
                                 : "# HELP " + m_name + " " + m_help + "\n# TYPE " + m_name + " gauge\n" + m_samples;
    }

private:
    std::string m_name;
    std::string m_help;
    std::string m_samples;
};

// The position keeps two apart whose names begin alike, which is all that a report tells of a name.
Labels LabelsOf(const char* pszName, const Json& entry, const char* pszAttribute, std::size_t nPosition)
{
    return {{pszName, entry.at(pszAttribute).get<std::string>()}, {"position", std::to_string(nPosition)}};
}

std::string Single(const char* pszName, const char* pszHelp, std::int64_t nValue)
{
    Family family(pszName, pszHelp);
    family.Add({}, nValue);
    return family.Text();
}

std::string ProcessorFamilies(const Json& processors)
{
    Family utilization("varnex_cpu_utilization_ratio", "Average utilization of one processor, 0 to 1.");
    for (std::size_t i = 0; i < processors.size(); ++i)
    {
        utilization.Add(LabelsOf("cpu", processors[i], "Index", i),
                        Ratio(processors[i].at("Utilization").get<std::int64_t>()));
    }
    return utilization.Text();
}

std::string MemoryFamilies(const std::string& prefix, const std::string& what, std::int64_t nPercent,
                           std::int64_t nMegabytes)
{
    Family utilization(prefix + "_utilization_ratio", "Average utilization of " + what + ", 0 to 1.");
    utilization.Add({}, Ratio(nPercent));
    Family size(prefix + "_size_bytes", "Size of " + what + ".");
    if (nMegabytes != 0) // else the system did not tell
    {
        size.Add({}, static_cast<std::uint32_t>(nMegabytes) * BYTES_PER_MB); // written as a signed 32-bit number
    }
    return utilization.Text() + size.Text();
}

std::string DiskFamilies(const Json& disks)
{
    Family throughput("varnex_disk_throughput_bytes_per_second",
                      "Average of the bytes read from and written to one physical disk in a second.");
    for (std::size_t i = 0; i < disks.size(); ++i)
    {
        throughput.Add(LabelsOf("disk", disks[i], "Index", i), disks[i].at("Throughput").get<std::int64_t>());
    }
    return throughput.Text();
}

std::string AdapterFamilies(const Json& adapters)
{
    Family utilization("varnex_network_utilization_ratio",
                       "Average utilization of one network adapter's link, both directions together, 0 to 1.");
    Family speed("varnex_network_link_speed_bytes_per_second", "Speed of one network adapter's link.");
    for (std::size_t i = 0; i < adapters.size(); ++i)
    {
        const Labels labels = LabelsOf("mac", adapters[i], "MACAddress", i);
        utilization.Add(labels, Ratio(adapters[i].at("Utilization").get<std::int64_t>()));
        const auto nSpeed = adapters[i].at("LinkSpeed").get<std::int64_t>();
        if (nSpeed > 0) // else it is unknown
        {
            speed.Add(labels, nSpeed * BYTES_PER_MEGABIT);
        }
    }
    return utilization.Text() + speed.Text();
}

std::string AllFamilies(const Json& report, const ReportCircumstances& circumstances)
{
    const Json& memory = report.at("MemoryUtil");
    return Single("varnex_report_timestamp_seconds", "When the report came, in seconds since 1970-01-01 UTC.",
                  circumstances.nUnixSeconds) +
           Single("varnex_report_span_seconds", "The time that each average covers.", circumstances.nSpanSeconds) +
           ProcessorFamilies(report.at("CPUUtil")) +
           MemoryFamilies("varnex_memory_physical", "the physical memory",
                          memory.at("PhysicalMemUtil").get<std::int64_t>(),
                          memory.at("PhysicalMemCapacity").get<std::int64_t>()) +
           MemoryFamilies("varnex_memory_paging_file", "the paging file, which is the commit limit",
                          memory.at("PageFileUtil").get<std::int64_t>(),
                          memory.at("PageFileCapacity").get<std::int64_t>()) +
           DiskFamilies(report.at("DiskUtil")) + AdapterFamilies(report.at("NetworkUtil"));
}

} // namespace

std::string ReportAsPrometheus(const std::wstring& xml, const ReportCircumstances& circumstances)
{
    try
    {
        return AllFamilies(Json::parse(ToUtf8(ReportAsJson(xml))), circumstances);
    }
    catch (const Json::exception&)
    {
        throw HostError(L"The report is not complete; nothing was written. See it with varnexhost report --xml.");
    }
}

} // namespace varnex::host
