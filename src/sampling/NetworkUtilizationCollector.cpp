#include "sampling/NetworkUtilizationCollector.h"

#include "sampling/AdapterQuery.h"
#include "sampling/InterfaceTable.h"

#include "common/BoundedText.h"
#include "diag/SPLogger.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace varnex
{

namespace
{

constexpr ULONG FIRST_TABLE_BYTES = 8;
constexpr std::int64_t SPEED_TOO_LARGE = std::numeric_limits<std::int64_t>::max();

// What the 32-bit speed column shows for ten gigabits, which it cannot hold.
constexpr DWORD CUT_TEN_GIGABITS = 1'410'065'408;
constexpr std::int64_t TEN_GIGABITS = 10'000'000'000;

// The link speed in bits per second from the interface table; 0 when it is not to be had.
std::int64_t GetNICSpeed(DWORD dwInterfaceIndex) noexcept
{
    InterfaceTable table;
    switch (table.Read(0))
    {
    case InterfaceTable::ReadResult::Failed:
    {
        const DWORD dwError = GetLastError();
        Log()->Level1A("GetNICSpeed::GetIfTable()failed! Error code=%d", dwError);
        return 0;
    }
    case InterfaceTable::ReadResult::NoMemory:
    {
        const DWORD dwError = GetLastError();
        Log()->Level1A("GetNICSpeed::ifTable: memory allocate failed! Error code=%d", dwError);
        return 0;
    }
    case InterfaceTable::ReadResult::Read:
        break;
    }
    const auto row =
        std::find_if(table.begin(), table.end(),
                     [dwInterfaceIndex](const MIB_IFROW& candidate) { return candidate.dwIndex == dwInterfaceIndex; });
    if (row == table.end())
    {
        return 0;
    }
    return row->dwSpeed == CUT_TEN_GIGABITS ? TEN_GIGABITS : std::int64_t{row->dwSpeed};
}

// A property's value; false when it cannot be read.
bool ReadProperty(IWbemClassObject& adapter, const wchar_t* pwszName, ScopedVariant& value) noexcept
{
    return SUCCEEDED(adapter.Get(pwszName, 0, value.Receive(), nullptr, nullptr));
}

// The text of a value, or null for one of another type.
const wchar_t* TextOf(const ScopedVariant& value) noexcept
{
    if (value.Get().vt != VT_BSTR)
    {
        return nullptr;
    }
    return value.Get().bstrVal != nullptr ? value.Get().bstrVal : L"";
}

std::int64_t ReadSpeed(IWbemClassObject& adapter, DWORD dwInterfaceIndex) noexcept
{
    ScopedVariant value;
    if (!ReadProperty(adapter, L"Speed", value) || TextOf(value) == nullptr)
    {
        return GetNICSpeed(dwInterfaceIndex);
    }
    const std::int64_t nSpeed = _wcstoi64(TextOf(value), nullptr, 10); // saturates
    return nSpeed == SPEED_TOO_LARGE ? -1 : nSpeed;
}

// Fills a card from an adapter. False for an adapter without a name to read, which is left out; a name of another type
// is an empty one.
bool ReadCard(IWbemClassObject& adapter, NetworkCard& card) noexcept
{
    ScopedVariant value;
    if (ReadProperty(adapter, L"MACAddress", value) && TextOf(value) != nullptr)
    {
        CopyTextW(card.MACAddress, TextOf(value));
    }
    if (ReadProperty(adapter, L"InterfaceIndex", value) && value.Get().vt == VT_I4)
    {
        card.InterfaceIndex = static_cast<DWORD>(value.Get().lVal);
    }
    card.Speed = ReadSpeed(adapter, card.InterfaceIndex);
    if (!ReadProperty(adapter, L"Name", value))
    {
        return false;
    }
    if (TextOf(value) != nullptr)
    {
        CopyTextW(card.Name, TextOf(value));
    }
    return true;
}

// Octets moved between two readings of a 32-bit counter. A counter that went backwards counts one less than the wrap
// gives: the utilization has always been computed so.
DWORD OctetDelta(DWORD dwLast, DWORD dwNow) noexcept
{
    return dwNow - dwLast - (dwLast > dwNow ? 1 : 0);
}

std::uint32_t UtilizationPercent(std::uint64_t nDeltaBytes, std::int64_t nSpeed) noexcept
{
    if (nSpeed < 1)
    {
        return 0;
    }
    const auto nBitsPerSecond = static_cast<std::uint64_t>(nSpeed);
    return nDeltaBytes * 8 <= nBitsPerSecond ? static_cast<std::uint32_t>(nDeltaBytes * 800 / nBitsPerSecond) : 100;
}

void TakeReading(NetworkCard& card, const MIB_IFROW& row) noexcept
{
    const bool bHasPrevious = card.LastInOctets != 0 && card.LastOutOctets != 0;
    card.DeltaBytes = bHasPrevious ? std::uint64_t{OctetDelta(card.LastInOctets, row.dwInOctets)} +
                                         OctetDelta(card.LastOutOctets, row.dwOutOctets)
                                   : 0;
    card.LastInOctets = row.dwInOctets;
    card.LastOutOctets = row.dwOutOctets;
    card.Utilization = UtilizationPercent(card.DeltaBytes, card.Speed);
}

} // namespace

HRESULT NetworkUtilizationCollector::RefreshCardList()
{
    AdapterQuery query;
    const HRESULT nOpened = query.Open();
    if (FAILED(nOpened))
    {
        return nOpened;
    }
    for (;;)
    {
        ComPtr<IWbemClassObject> adapter;
        const HRESULT nResult = query.Next(adapter);
        if (!adapter)
        {
            return FAILED(nResult) ? nResult : S_OK; // the end of the enumeration is a success
        }
        NetworkCard card;
        if (ReadCard(*adapter.Get(), card))
        {
            m_cardList.push_back(card);
        }
    }
}

NetworkCard* NetworkUtilizationCollector::FindCard(DWORD dwInterfaceIndex) noexcept
{
    const auto card =
        std::find_if(m_cardList.begin(), m_cardList.end(),
                     [dwInterfaceIndex](const NetworkCard& c) { return c.InterfaceIndex == dwInterfaceIndex; });
    return card == m_cardList.end() ? nullptr : &*card;
}

unsigned NetworkUtilizationCollector::CollectUtilization() noexcept
{
    InterfaceTable table;
    if (table.Read(FIRST_TABLE_BYTES) == InterfaceTable::ReadResult::NoMemory)
    {
        return 1;
    }
    for (const MIB_IFROW& row : table)
    {
        NetworkCard* const pCard = FindCard(row.dwIndex);
        if (pCard != nullptr)
        {
            TakeReading(*pCard, row);
        }
    }
    return 0;
}

} // namespace varnex
