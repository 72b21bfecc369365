#include "StoreFilling.h"

#include "common/BoundedText.h"
#include "support/ScriptScope.h"

#include <cstring>

namespace varnex::test
{

namespace
{

template <class Sample>
void FillNamed(NamedHistories<Sample>& store, const std::vector<Filling<Sample>>& fillings)
{
    const UnscriptedScope unscripted;
    std::vector<std::wstring> names;
    for (const Filling<Sample>& filling : fillings)
    {
        names.push_back(filling.name);
    }
    store.Publish(MakeNames(names));
    for (std::size_t i = 0; i < fillings.size(); ++i)
    {
        for (const Sample sample : fillings[i].samples)
        {
            store.Append(i, sample);
        }
    }
}

} // namespace

InstanceNames<wchar_t> MakeNames(const std::vector<std::wstring>& names)
{
    InstanceNames<wchar_t> made;
    for (const std::wstring& name : names)
    {
        made.push_back(std::make_unique<wchar_t[]>(name.size() + 1));
        std::memcpy(made.back().get(), name.c_str(), (name.size() + 1) * sizeof(wchar_t));
    }
    return made;
}

void FillCpus(const std::vector<Filling<int>>& fillings)
{
    FillNamed(Stores().cpu, fillings);
}

void FillDisks(const std::vector<Filling<std::int64_t>>& fillings)
{
    FillNamed(Stores().disk, fillings);
}

void FillMemoryStore(const std::vector<int>& physical, const std::vector<int>& pagingFile)
{
    const UnscriptedScope unscripted;
    Stores().memory.physical = MakeHistory(physical);
    Stores().memory.pagingFile = MakeHistory(pagingFile);
}

NetworkCard MakeCard(DWORD dwInterfaceIndex, const std::wstring& address, std::int64_t nSpeed,
                     std::uint32_t nUtilization)
{
    NetworkCard card;
    CopyTextW(card.Name, L"Card");
    CopyTextW(card.MACAddress, address.c_str());
    card.InterfaceIndex = dwInterfaceIndex;
    card.Speed = nSpeed;
    card.Utilization = nUtilization;
    return card;
}

void FillCards(const std::vector<NetworkCard>& records)
{
    const UnscriptedScope unscripted;
    const StoreLockHold hold(Stores().network.lock);
    for (const NetworkCard& record : records)
    {
        Stores().network.Append(record);
    }
}

} // namespace varnex::test
