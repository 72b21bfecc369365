#include "ConfigNames.h"

#include <algorithm>
#include <cwctype>
#include <numeric>

namespace varnex::host
{

namespace
{

ConfigSection PolicySection()
{
    ConfigSection section{L"PkiAlert", {}};
    for (const wchar_t* pwszResource : {L"CPU", L"Memory", L"Disk", L"Network"})
    {
        for (const wchar_t* pwszValue : {L"Interval", L"Threshold", L"SamplingAmount", L"MaxAlertNum"})
        {
            section.values.push_back(std::wstring(pwszResource) + pwszValue);
        }
    }
    return section;
}

bool AreAlike(wchar_t wchFirst, wchar_t wchSecond) noexcept
{
    return std::towlower(wchFirst) == std::towlower(wchSecond);
}

std::size_t EditDistance(const std::wstring& first, const std::wstring& second)
{
    // One row of the usual table: the distances of the part of first so far to every beginning of second.
    std::vector<std::size_t> distances(second.size() + 1);
    std::iota(distances.begin(), distances.end(), std::size_t{0});
    for (std::size_t i = 0; i < first.size(); ++i)
    {
        std::size_t nDiagonal = distances[0];
        distances[0] = i + 1;
        for (std::size_t j = 0; j < second.size(); ++j)
        {
            const std::size_t nChanged = nDiagonal + (AreAlike(first[i], second[j]) ? 0 : 1);
            nDiagonal = distances[j + 1];
            distances[j + 1] = std::min({nChanged, nDiagonal + 1, distances[j] + 1});
        }
    }
    return distances.back();
}

} // namespace

const std::vector<ConfigSection>& ConfigSections()
{
    static const std::vector<ConfigSection> sections = {
        PolicySection(),
        {L"PkiAlertNum", {L"Date", L"CPU", L"PH", L"PF", L"Disk", L"Network"}},
        {L"VarnexLog", {L"Level"}}};
    return sections;
}

const ConfigSection* FindConfigSection(const std::wstring& name)
{
    const auto found = std::find_if(ConfigSections().begin(), ConfigSections().end(),
                                    [&](const ConfigSection& section) { return section.name == name; });
    return found == ConfigSections().end() ? nullptr : &*found;
}

const ConfigSection* FindSectionOfValue(const std::wstring& name)
{
    const auto found = std::find_if(ConfigSections().begin(), ConfigSections().end(),
                                    [&](const ConfigSection& section)
                                    { return std::count(section.values.begin(), section.values.end(), name) != 0; });
    return found == ConfigSections().end() ? nullptr : &*found;
}

std::vector<std::wstring> ConfigSectionNames()
{
    std::vector<std::wstring> names;
    for (const ConfigSection& section : ConfigSections())
    {
        names.push_back(section.name);
    }
    return names;
}

std::wstring NearestName(const std::wstring& name, const std::vector<std::wstring>& names)
{
    std::wstring nearest;
    std::size_t nLeast = name.size() / 3 + 2; // further away it would be a guess
    for (const std::wstring& candidate : names)
    {
        const std::size_t nDistance = EditDistance(name, candidate);
        if (nDistance < std::min(nLeast, candidate.size()))
        {
            nLeast = nDistance;
            nearest = candidate;
        }
    }
    return nearest;
}

} // namespace varnex::host
