#pragma once

#include "LocalizedNames.h"
#include "Sample.h"

#include <optional>
#include <string>
#include <string_view>

namespace varnex::winepdh
{

// A performance object with its one counter.
struct PerfObject
{
    ObjectNames LocalizedNames::*pNames;
    DWORD dwCounterType;
    CounterScale scale;
    // Reads all instances afresh; nothing when the machine does not have the object.
    std::optional<InstanceSamples> (*pfnRead)();

    const ObjectNames& Names() const noexcept { return CurrentNames().*pNames; }
};

// The object of that display name, or null.
const PerfObject* FindPerfObject(std::wstring_view name) noexcept;

// Names as the enumeration lists them: each ends in a terminator.
std::wstring CounterList(const PerfObject& object);
std::wstring InstanceList(const InstanceSamples& samples);

} // namespace varnex::winepdh
