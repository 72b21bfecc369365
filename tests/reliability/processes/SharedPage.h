#pragma once

#include "common/Handles.h"

#include <catch2/catch.hpp>

#include <string>

#include <windows.h>

namespace varnex::test
{

// A zeroed structure that processes share by name. What one process has put into it is there after its end.
template <class Content>
class SharedPage
{
public:
    explicit SharedPage(const std::wstring& name)
        : m_section(
              CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Content), name.c_str())),
          m_view(MapViewOfFile(m_section.Get(), FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Content)))
    {
        REQUIRE(m_view);
    }

    Content* operator->() const noexcept { return static_cast<Content*>(m_view.Get()); }

private:
    UniqueHandle m_section;
    UniqueView m_view;
};

// Raises a shared maximum.
inline void RaiseTo(volatile LONG& nMaximum, LONG nValue)
{
    for (LONG nSeen = nMaximum; nSeen < nValue;)
    {
        const LONG nFormer = InterlockedCompareExchange(&nMaximum, nValue, nSeen);
        if (nFormer == nSeen)
        {
            return;
        }
        nSeen = nFormer;
    }
}

} // namespace varnex::test
