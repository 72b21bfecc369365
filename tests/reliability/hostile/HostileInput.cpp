#include "HostileInput.h"

#include "reliability/LongForm.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <cstring>

namespace varnex::test
{

namespace
{

constexpr std::size_t PAGE_BYTES = 4096;
constexpr unsigned SEED = 20260131;

} // namespace

GuardedBytes::GuardedBytes(std::size_t cbSize)
{
    const std::size_t cbOpen = (cbSize + PAGE_BYTES - 1) / PAGE_BYTES * PAGE_BYTES;
    m_pRegion = VirtualAlloc(nullptr, cbOpen + PAGE_BYTES, MEM_RESERVE, PAGE_NOACCESS);
    if (m_pRegion == nullptr || (cbOpen != 0 && VirtualAlloc(m_pRegion, cbOpen, MEM_COMMIT, PAGE_READWRITE) == nullptr))
    {
        FAIL("no memory for a guarded block");
    }
    m_pBytes = static_cast<char*>(m_pRegion) + cbOpen - cbSize;
}

GuardedBytes::GuardedBytes(const std::string& text) : GuardedBytes(text.size() + 1)
{
    std::memcpy(m_pBytes, text.c_str(), text.size() + 1);
}

GuardedBytes::~GuardedBytes()
{
    VirtualFree(m_pRegion, 0, MEM_RELEASE);
}

GuardedArrays::GuardedArrays(int nEntries, unsigned cchText)
    : types(sizeof(int) * static_cast<std::size_t>(nEntries)),
      texts(sizeof(wchar_t*) * static_cast<std::size_t>(nEntries)),
      thresholds(sizeof(int) * static_cast<std::size_t>(nEntries)),
      values(sizeof(int) * static_cast<std::size_t>(nEntries))
{
    for (int i = 0; i < nEntries; ++i)
    {
        texts.As<wchar_t*>()[i] = buffers.emplace_back(sizeof(wchar_t) * cchText).As<wchar_t>();
    }
}

FuzzRun::FuzzRun(unsigned nShareOfSixty)
    : m_ullEnd(GetTickCount64() + nShareOfSixty * (IsLongForm() ? 10'000ULL : 1'000ULL))
{
}

bool FuzzRun::Next()
{
    if (GetTickCount64() >= m_ullEnd)
    {
        return false;
    }
    ++m_nCase;
    m_random.seed(SEED + static_cast<unsigned>(m_nCase));
    return true;
}

std::size_t FuzzRun::Upto(std::size_t nMost)
{
    return std::uniform_int_distribution<std::size_t>(0, nMost)(m_random);
}

std::string Mutated(std::string text, const std::vector<std::string>& words, FuzzRun& run, std::size_t nMostChanges)
{
    for (std::size_t nChanges = 1 + run.Upto(nMostChanges - 1); nChanges != 0; --nChanges)
    {
        const std::size_t nPlace = run.Upto(text.size());
        const std::size_t nCount = run.Upto((std::min)(text.size() - nPlace, std::size_t{40}));
        switch (run.Upto(6))
        {
        case 0:
            text.insert(nPlace, 1, static_cast<char>(run.Upto(255)));
            break;
        case 1:
            text.erase(nPlace, nCount);
            break;
        case 2:
            text.insert(nPlace, text.substr(nPlace, nCount));
            break;
        case 3:
            text.resize(nPlace);
            break;
        case 4:
            text.insert(nPlace, std::string(run.Upto(3000), static_cast<char>(run.Upto(255))));
            break;
        default:
            text.replace(nPlace, nCount, words[run.Upto(words.size() - 1)]);
            break;
        }
    }
    return text;
}

std::wstring Readable(const std::wstring& text)
{
    std::wstring readable = text;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const bool bPair = IS_HIGH_SURROGATE(text[i]) && i + 1 < text.size() && IS_LOW_SURROGATE(text[i + 1]);
        const bool bAlone = (text[i] >= 0xD800 && text[i] <= 0xDFFF) && !bPair;
        readable[i] = bAlone || text[i] == 0xFFFE || text[i] == 0x1 ? wchar_t{0xFFFD} : text[i];
        i += bPair ? 1 : 0;
    }
    return readable;
}

} // namespace varnex::test
