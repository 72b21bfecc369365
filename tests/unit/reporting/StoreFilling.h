#pragma once

#include "reporting/UtilizationStores.h"

#include <cstdint>
#include <string>
#include <vector>

namespace varnex::test
{

// Stores filled by hand, for tests of what reads them.

InstanceNames<wchar_t> MakeNames(const std::vector<std::wstring>& names);

template <class Sample>
BoundedHistory<Sample> MakeHistory(const std::vector<Sample>& samples)
{
    BoundedHistory<Sample> history;
    for (const Sample& sample : samples)
    {
        history.Append(sample);
    }
    return history;
}

template <class Sample>
std::vector<Sample> SamplesOf(const BoundedHistory<Sample>& history)
{
    std::vector<Sample> samples;
    for (std::size_t nBack = history.Size(); nBack > 0; --nBack)
    {
        samples.push_back(history.FromNewest(nBack - 1));
    }
    return samples;
}

// Names with their samples, all at once.
template <class Sample>
struct Filling
{
    std::wstring name;
    std::vector<Sample> samples;
};
void FillCpus(const std::vector<Filling<int>>& fillings);
void FillDisks(const std::vector<Filling<std::int64_t>>& fillings);
void FillMemoryStore(const std::vector<int>& physical, const std::vector<int>& pagingFile);
NetworkCard MakeCard(DWORD dwInterfaceIndex, const std::wstring& address, std::int64_t nSpeed,
                     std::uint32_t nUtilization);
void FillCards(const std::vector<NetworkCard>& records);

} // namespace varnex::test
