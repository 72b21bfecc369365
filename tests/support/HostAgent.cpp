#include "support/HostAgent.h"

#include "support/PrivateNames.h"
#include "support/ScriptScope.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <cstring>

namespace varnex::test
{

namespace
{

constexpr char PATTERN = '\x5A';

} // namespace

HostAgent::HostAgent(const std::wstring& key)
{
    const UnscriptedScope unscripted;
    m_begin.Reset(OpenEventW(EVENT_ALL_ACCESS, FALSE, PrivateName(BEGIN_NAME, key).c_str()));
    m_finish.Reset(OpenEventW(EVENT_ALL_ACCESS, FALSE, PrivateName(FINISH_NAME, key).c_str()));
    m_section.Reset(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, PrivateName(SECTION_NAME, key).c_str()));
    REQUIRE(m_begin);
    REQUIRE(m_finish);
    REQUIRE(m_section);
    m_view.Reset(MapViewOfFile(m_section.Get(), FILE_MAP_ALL_ACCESS, 0, 0, SECTION_BYTES));
    REQUIRE(m_view);
    m_pBytes = static_cast<char*>(m_view.Get());
}

void HostAgent::Ask(std::uint32_t nTotal, std::uint32_t nMinimum)
{
    const UnscriptedScope unscripted;
    std::memset(m_pBytes + 8, PATTERN, SECTION_BYTES - 8);
    std::memcpy(m_pBytes, &nTotal, sizeof nTotal);
    std::memcpy(m_pBytes + 4, &nMinimum, sizeof nMinimum);
    SetEvent(m_begin.Get());
}

bool HostAgent::TakeFinish(DWORD dwMilliseconds)
{
    const UnscriptedScope unscripted;
    const bool bFinished = WaitForSingleObject(m_finish.Get(), dwMilliseconds) == WAIT_OBJECT_0;
    ResetEvent(m_finish.Get());
    return bFinished;
}

bool HostAgent::IsBeginSet() const
{
    const UnscriptedScope unscripted;
    return WaitForSingleObject(m_begin.Get(), 0) == WAIT_OBJECT_0;
}

void HostAgent::SetBegin()
{
    const UnscriptedScope unscripted;
    SetEvent(m_begin.Get());
}

void HostAgent::ResetBegin()
{
    const UnscriptedScope unscripted;
    ResetEvent(m_begin.Get());
}

std::uint32_t HostAgent::Length() const
{
    std::uint32_t nLength;
    std::memcpy(&nLength, m_pBytes + 8, sizeof nLength);
    return nLength;
}

std::wstring HostAgent::Text() const
{
    const std::size_t cchText = std::min<std::size_t>(Length(), (SECTION_BYTES - TEXT_OFFSET) / sizeof(wchar_t));
    std::wstring text(cchText, L'\0');
    std::memcpy(text.data(), m_pBytes + TEXT_OFFSET, cchText * sizeof(wchar_t));
    return text;
}

std::string HostAgent::Bytes() const
{
    return std::string(m_pBytes, SECTION_BYTES);
}

bool HostAgent::IsRestUntouched() const
{
    const char* const pRest = m_pBytes + TEXT_OFFSET + std::size_t{Length()} * sizeof(wchar_t);
    const char* const pEnd = m_pBytes + SECTION_BYTES;
    return pRest <= pEnd && std::all_of(pRest, pEnd, [](char chByte) { return chByte == PATTERN; });
}

} // namespace varnex::test
