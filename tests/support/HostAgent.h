#pragma once

#include "common/Handles.h"

#include <cstdint>
#include <string>
#include <vector>

namespace varnex::test
{

// The names as other processes know them, and the section's size: written out here once more, so that a change of the
// module's own constants shows.
constexpr wchar_t BEGIN_NAME[] = L"Global\\{0362D603-1A78-45f6-92F9-A070F876338A}";
constexpr wchar_t FINISH_NAME[] = L"Global\\{6E0677E3-DC12-4591-81E3-E63E95E4D023}";
constexpr wchar_t SECTION_NAME[] = L"Global\\{EA7425FD-1ED7-4e48-B0CD-EE962879E787}";
constexpr std::size_t SECTION_BYTES = 32768;
constexpr std::size_t TEXT_OFFSET = 12;

// The process that asks for reports, by the private names of one key; knows the section by its offsets only.
class HostAgent
{
public:
    // Opens what the module has made; fails the test when one of them is missing.
    explicit HostAgent(const std::wstring& key);
    HostAgent(const HostAgent&) = delete;
    HostAgent& operator=(const HostAgent&) = delete;

    // Fills the section behind the two numbers with a pattern, writes the numbers and sets the begin event.
    void Ask(std::uint32_t nTotal, std::uint32_t nMinimum);
    // Whether the finish event is set within that real time; resets it.
    bool TakeFinish(DWORD dwMilliseconds = 0);
    bool IsBeginSet() const;
    void SetBegin();
    void ResetBegin();

    std::uint32_t Length() const;
    // As many units as the length says.
    std::wstring Text() const;
    std::string Bytes() const;
    // Whether everything behind the text still holds the pattern of Ask.
    bool IsRestUntouched() const;

private:
    UniqueHandle m_begin;
    UniqueHandle m_finish;
    UniqueHandle m_section;
    UniqueView m_view;
    char* m_pBytes = nullptr;
};

} // namespace varnex::test
