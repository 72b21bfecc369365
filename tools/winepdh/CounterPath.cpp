#include "CounterPath.h"

#include <windows.h>

namespace varnex::winepdh
{

namespace
{

constexpr std::wstring_view machinePrefix = L"\\\\";

bool TakePrefix(std::wstring_view& text, std::wstring_view prefix) noexcept
{
    if (text.substr(0, prefix.size()) != prefix)
    {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

// Takes what stands before the first of the marks, which must be there and must not come first.
std::optional<std::wstring> TakeUpTo(std::wstring_view& text, const wchar_t* pwszMarks)
{
    const std::size_t nEnd = text.find_first_of(pwszMarks);
    if (nEnd == text.npos || nEnd == 0)
    {
        return std::nullopt;
    }
    std::wstring part(text.substr(0, nEnd));
    text.remove_prefix(nEnd);
    return part;
}

// Takes "(instance)". Instance and counter names may have brackets of their own, as in "Prozessorzeit (%)": the
// instance ends at the first closing one that a backslash follows.
std::optional<std::wstring> TakeInstance(std::wstring_view& text)
{
    const std::size_t nEnd = text.find(L")\\");
    if (nEnd == text.npos || nEnd < 2)
    {
        return std::nullopt;
    }
    std::wstring instance(text.substr(1, nEnd - 1));
    text.remove_prefix(nEnd + 1);
    return instance;
}

} // namespace

std::optional<CounterPath> ParseCounterPath(std::wstring_view text)
{
    CounterPath path;
    if (TakePrefix(text, machinePrefix))
    {
        auto machine = TakeUpTo(text, L"\\");
        if (!machine)
        {
            return std::nullopt;
        }
        path.machine = std::move(*machine);
    }
    auto object = TakePrefix(text, L"\\") ? TakeUpTo(text, L"(\\") : std::nullopt;
    if (!object)
    {
        return std::nullopt;
    }
    path.object = std::move(*object);
    if (text.front() == L'(')
    {
        auto instance = TakeInstance(text);
        if (!instance)
        {
            return std::nullopt;
        }
        path.instance = std::move(*instance);
    }
    path.counter = text.substr(1);
    return path.counter.empty() ? std::nullopt : std::optional<CounterPath>(std::move(path));
}

bool EqualNames(std::wstring_view first, std::wstring_view second) noexcept
{
    return CompareStringOrdinal(first.data(), static_cast<int>(first.size()), second.data(),
                                static_cast<int>(second.size()), TRUE) == CSTR_EQUAL;
}

bool IsThisMachine(std::wstring_view machine) noexcept
{
    TakePrefix(machine, machinePrefix);
    if (machine.empty() || machine == L".")
    {
        return true;
    }
    wchar_t wszComputer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD cchComputer = ARRAYSIZE(wszComputer);
    return GetComputerNameW(wszComputer, &cchComputer) && EqualNames(machine, {wszComputer, cchComputer});
}

} // namespace varnex::winepdh
