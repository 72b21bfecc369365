#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace varnex::fuzz
{

// Takes values off the front of an input; zeros when it is used up.
class FuzzInput
{
public:
    FuzzInput(const std::uint8_t* pData, std::size_t cbData) : m_pData(pData), m_cbLeft(cbData) {}

    template <class Number>
    Number Take()
    {
        Number value{};
        const std::size_t cbTaken = std::min(sizeof value, m_cbLeft);
        std::memcpy(&value, m_pData, cbTaken);
        m_pData += cbTaken;
        m_cbLeft -= cbTaken;
        return value;
    }
    std::string Rest() const { return {reinterpret_cast<const char*>(m_pData), m_cbLeft}; }
    bool IsEmpty() const { return m_cbLeft == 0; }

private:
    const std::uint8_t* m_pData;
    std::size_t m_cbLeft;
};

// Ends the run, and the input is kept.
inline void Require(bool bHolds, const char* pszWhat)
{
    if (!bHolds)
    {
        std::fprintf(stderr, "does not hold: %s\n", pszWhat);
        std::abort();
    }
}

} // namespace varnex::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t cbData);
