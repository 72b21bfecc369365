#pragma once

#include "ConfigReading.h"
#include "ConfigTree.h"

#include <string>
#include <vector>

namespace varnex::host
{

// Something in a configuration file that its writer should know.
struct ConfigFinding
{
    bool bProblem = false; // it will not do what its writer meant; else it is good to know
    int nLine = 0;         // 0: nothing in the file to point at
    std::wstring text;
};

// All findings, by line.
std::vector<ConfigFinding> AdviseOn(const ConfigTree& tree, const ConfigReading& reading);

// Why the number in force is not one from the file: "missing", "not a number", ... Empty when it is from the file.
std::wstring ReasonForDefault(const ConfigNumber& number);

// The line of the element that the module finds at section/name; 0 when there is none.
int LineOfValue(const ConfigTree& tree, const std::wstring& section, const std::wstring& name);

} // namespace varnex::host
