#pragma once

#include <deque>
#include <random>
#include <string>
#include <vector>

#include <windows.h>

namespace varnex::test
{

// Memory of that many bytes whose end is the end of what may be touched: one byte further the process dies.
class GuardedBytes
{
public:
    explicit GuardedBytes(std::size_t cbSize);
    // A text with its terminator.
    explicit GuardedBytes(const std::string& text);
    ~GuardedBytes();
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;

    template <class Element>
    Element* As() const noexcept
    {
        return static_cast<Element*>(m_pBytes);
    }

private:
    void* m_pRegion;
    void* m_pBytes;
};

// A caller's arrays and text buffers for a fetch, each just large enough.
struct GuardedArrays
{
    GuardedArrays(int nEntries, unsigned cchText);

    GuardedBytes types;
    GuardedBytes texts;
    GuardedBytes thresholds;
    GuardedBytes values;
    std::deque<GuardedBytes> buffers;
};

// Runs cases with numbers of their own until the time is over: a share of a minute, or of ten in the long form. The
// same case always has the same input.
class FuzzRun
{
public:
    explicit FuzzRun(unsigned nShareOfSixty);
    // Whether another case is due; seeds its random numbers.
    bool Next();
    int Cases() const noexcept { return m_nCase; }
    std::mt19937& Random() noexcept { return m_random; }
    // A number from 0 to nMost.
    std::size_t Upto(std::size_t nMost);

private:
    ULONGLONG m_ullEnd;
    int m_nCase = 0;
    std::mt19937 m_random;
};

// A few changes of a text: bytes flipped, put in, taken out, doubled, cut, or replaced by words that mean something.
std::string Mutated(std::string text, const std::vector<std::string>& words, FuzzRun& run,
                    std::size_t nMostChanges = 6);

// The text as a document can have it: each unit that is no character of XML's becomes a mark.
std::wstring Readable(const std::wstring& text);

} // namespace varnex::test
