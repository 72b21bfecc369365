#pragma once

#include "common/Handles.h"
#include "support/HostAgent.h"
#include "support/PrivateNames.h"
#include "support/ScriptScope.h"

#include <catch2/catch.hpp>

#include <string>

#include <windows.h>

namespace varnex::test
{

// A report section that somebody else made first, under a key of its own, with other memory: less of it, or the full
// size, but only reserved.
class ForeignSection
{
public:
    explicit ForeignSection(bool bReserved) : m_key(MakePrivateKey())
    {
        const UnscriptedScope unscripted;
        m_section.Reset(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr,
                                           PAGE_READWRITE | (bReserved ? SEC_RESERVE : SEC_COMMIT), 0,
                                           bReserved ? SECTION_BYTES : 4096, PrivateName(SECTION_NAME, m_key).c_str()));
        REQUIRE(m_section);
    }

    const std::wstring& Key() const noexcept { return m_key; }
    HANDLE Handle() const noexcept { return m_section.Get(); }

private:
    std::wstring m_key;
    UniqueHandle m_section;
};

} // namespace varnex::test
