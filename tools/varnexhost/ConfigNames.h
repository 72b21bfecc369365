#pragma once

#include <string>
#include <vector>

namespace varnex::host
{

// The names of the elements that the module reads, and what was probably meant by another one.

constexpr wchar_t CONFIG_ROOT[] = L"KPMConfiguration";

struct ConfigSection
{
    std::wstring name;
    std::vector<std::wstring> values;
};

// The sections below the root, each with the values that the module reads in it.
const std::vector<ConfigSection>& ConfigSections();

// The section with this name, or null.
const ConfigSection* FindConfigSection(const std::wstring& name);

// The section that has a value with this name, or null.
const ConfigSection* FindSectionOfValue(const std::wstring& name);

std::vector<std::wstring> ConfigSectionNames();

// The name that is nearest to another one, by single characters changed, added or left out; case counts for nothing.
// Empty when none is near.
std::wstring NearestName(const std::wstring& name, const std::vector<std::wstring>& names);

} // namespace varnex::host
