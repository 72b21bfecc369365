#pragma once

#include <string>
#include <utility>
#include <vector>

namespace varnex::test
{

// The text of a KpmCfg.xml:
//
//     tree.WriteConfig(ConfigBuilder().Set("CPUInterval", 1).Set("CPUThreshold", 85).SetLogLevel(4));
//     tree.WriteConfig(ConfigBuilder().SetNode("KPMConfiguration/PkiAlertNum/Date", "2026-01-31"));
class ConfigBuilder
{
public:
    // A policy value: "CPUInterval", "MemoryThreshold", "DiskSamplingAmount", "NetworkMaxAlertNum", ...
    ConfigBuilder& Set(const std::string& name, int nValue);
    ConfigBuilder& Set(const std::string& name, const std::string& text);
    // All four policy values of "CPU", "Memory", "Disk" or "Network".
    ConfigBuilder& SetPolicy(const std::string& resource, int nInterval, int nThreshold, int nSamplingAmount,
                             int nMaxAlertNum);
    ConfigBuilder& SetLogLevel(int nLevel);
    // A daily counter node under PkiAlertNum: "Date", "CPU", ...
    ConfigBuilder& SetCounter(const std::string& name, const std::string& text);
    // Any node, by its path from the root element. Setting a path again replaces its text.
    ConfigBuilder& SetNode(const std::string& path, const std::string& text);

    // UTF-8 with a declaration; elements in the order in which they were first set.
    std::string Build() const;

private:
    std::vector<std::pair<std::string, std::string>> m_nodes;
};

} // namespace varnex::test
