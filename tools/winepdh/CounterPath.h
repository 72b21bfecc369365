#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace varnex::winepdh
{

// \\machine\object(instance)\counter; machine and instance may be left out and are empty then.
struct CounterPath
{
    std::wstring machine;
    std::wstring object;
    std::wstring instance;
    std::wstring counter;
};

// Nothing when the text is no counter path.
std::optional<CounterPath> ParseCounterPath(std::wstring_view text);

// Names are compared without regard to case, as on Windows.
bool EqualNames(std::wstring_view first, std::wstring_view second) noexcept;

// An empty name, "." and this computer's own name (with or without leading backslashes).
bool IsThisMachine(std::wstring_view machine) noexcept;

} // namespace varnex::winepdh
