#pragma once

#include <cstdint>
#include <vector>

#include <windows.h>

namespace varnex
{

// One physical network adapter; zero-filled when it is made but for its utilization.
struct NetworkCard
{
    static constexpr std::uint32_t UTILIZATION_MISSING = 0xFFFFFFFF;

    wchar_t Name[256] = {};
    wchar_t MACAddress[64] = {};
    DWORD InterfaceIndex = 0; // joins the record to the interface table and to histories
    std::int64_t Speed = 0;   // bits per second; -1 for one too large to tell, 0 when unknown
    DWORD LastInOctets = 0;   // the previous collection's counters; 0 means there is none
    DWORD LastOutOctets = 0;
    std::uint32_t Utilization = UTILIZATION_MISSING; // percent of the speed, 0 to 100
    std::uint64_t DeltaBytes = 0;                    // moved in and out since the previous collection
};

// Knows the machine's Ethernet adapters (from WMI) and turns the octet counters of the interface table into a
// percentage of each adapter's link speed. Used by one thread, which has initialised COM.
class NetworkUtilizationCollector
{
public:
    // Adds the adapters to the card list. Clear the list first: records never survive a refresh, so that the first
    // collection after one gives 0. Negative for the status of a step that failed, else 0. Throws std::bad_alloc.
    HRESULT RefreshCardList();
    void ClearCardList() noexcept { std::vector<NetworkCard>().swap(m_cardList); } // {} would keep the buffer

    // Reads the counters. The utilization is that since the previous collection, taken as one second: callers collect,
    // wait a second and collect. Returns 1 only when there is no memory for the first look at the table; a table that
    // cannot be read changes nothing and gives 0.
    unsigned CollectUtilization() noexcept;

    // In the order in which WMI lists them.
    const std::vector<NetworkCard>& CardList() const noexcept { return m_cardList; }
    // Never filled: what a caller reads in place of the card list after a collection that failed.
    const std::vector<NetworkCard>& EmptyCardList() const noexcept { return m_emptyCardList; }

private:
    NetworkCard* FindCard(DWORD dwInterfaceIndex) noexcept;

    std::vector<NetworkCard> m_cardList;
    std::vector<NetworkCard> m_emptyCardList;
};

} // namespace varnex
