#include "FuzzInput.h"

#include "common/BoundedText.h"

#include <windows.h>

#include <cwchar>
#include <memory>
#include <vector>

// Any text into any buffer.

using namespace varnex;
using namespace varnex::fuzz;

namespace
{

template <class Character>
std::vector<Character> Text(const std::string& bytes)
{
    std::vector<Character> text(bytes.size() / sizeof(Character) + 1);
    std::memcpy(text.data(), bytes.data(), (text.size() - 1) * sizeof(Character));
    return text;
}

void CheckNarrow(const std::string& bytes, std::size_t cchTarget)
{
    const std::vector<char> source = Text<char>(bytes);
    const auto target = std::make_unique<char[]>(cchTarget);
    CopyTextA(target.get(), cchTarget, source.data());
    const std::size_t cchSource = std::strlen(source.data());
    if (cchTarget != 0)
    {
        const std::size_t cchKept = std::min(cchSource, cchTarget - 1);
        Require(std::strlen(target.get()) == cchKept, "as much is kept as fits");
        Require(std::memcmp(target.get(), source.data(), cchKept) == 0, "what is kept is the text's beginning");
    }
    FormatTextA(target.get(), cchTarget, "%s;%d;%s", source.data(), static_cast<int>(cchSource), source.data());
    if (cchTarget != 0)
    {
        const std::size_t cchWhole = 2 * cchSource + 2 + std::to_string(cchSource).size();
        Require(std::strlen(target.get()) == std::min(cchWhole, cchTarget - 1), "a format fills what there is");
    }
}

// What of a text of cchText characters fits: a pair of surrogates whole or not at all.
std::size_t Fitting(const std::vector<wchar_t>& text, std::size_t cchText, std::size_t cchRoom)
{
    const std::size_t cchFitting = std::min(cchText, cchRoom);
    const bool bHalved = cchFitting != 0 && IS_SURROGATE_PAIR(text[cchFitting - 1], text[cchFitting]);
    return bHalved ? cchFitting - 1 : cchFitting;
}

void CheckWide(const std::string& bytes, std::size_t cchTarget)
{
    const std::vector<wchar_t> source = Text<wchar_t>(bytes);
    const auto target = std::make_unique<wchar_t[]>(cchTarget);
    CopyTextW(target.get(), cchTarget, source.data());
    const std::size_t cchSource = std::wcslen(source.data());
    if (cchTarget != 0)
    {
        const std::size_t cchKept = Fitting(source, cchSource, cchTarget - 1);
        Require(std::wcslen(target.get()) == cchKept, "as much is kept as fits");
        AppendTextW(target.get(), cchTarget, source.data());
        const std::size_t cchAdded = Fitting(source, cchSource, cchTarget - 1 - cchKept);
        Require(std::wcslen(target.get()) == cchKept + cchAdded, "as much is added as fits");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t cbData)
{
    FuzzInput input(pData, cbData);
    const std::size_t cchTarget = input.Take<std::uint8_t>();
    CheckNarrow(input.Rest(), cchTarget);
    CheckWide(input.Rest(), cchTarget);
    return 0;
}
