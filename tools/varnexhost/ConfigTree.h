#pragma once

#include <optional>
#include <string>
#include <vector>

namespace varnex::host
{

// An element of the configuration as it stands in the file.
struct ConfigElement
{
    std::wstring name; // with its prefix, if it has one: that is how the module looks for it
    int nLine = 0;
    std::vector<std::wstring> attributes; // their names, without declarations of namespaces
    std::vector<ConfigElement> children;
};

// Why a text is no XML.
struct XmlFault
{
    std::wstring reason;
    int nLine = 0;
    int nColumn = 0;
};

struct ConfigTree
{
    ConfigElement root;
    std::optional<XmlFault> fault; // then the tree ends where the fault stands
};

// Reads the structure of a configuration file with the lines on which things stand; the system's document object, which
// the module reads by, does not tell those. COM is initialised on the thread. Throws HostError when the file cannot be
// read or there is no parser.
ConfigTree ReadConfigTree(const std::wstring& path);

} // namespace varnex::host
