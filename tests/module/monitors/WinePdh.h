#pragma once

#include "common/Handles.h"
#include "support/ImportRedirector.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <pdh.h>

#include <cstdlib>
#include <string>

namespace varnex::test
{

// The stand-in pdh.dll, loaded by its path and unloaded at the end.
class WinePdh
{
public:
    HMODULE Handle() const noexcept { return m_module.Get(); }
    static std::wstring Path()
    {
        const char* pszPath = std::getenv("VARNEX_WINEPDH_DLL");
#ifdef VARNEX_WINEPDH_DLL
        pszPath = pszPath != nullptr ? pszPath : VARNEX_WINEPDH_DLL;
#endif
        REQUIRE(pszPath != nullptr);
        return WideFromUtf8(pszPath);
    }

private:
    template <class Call>
    Call* Find(const char* pszName) const
    {
        INFO("no " << pszName);
        const FARPROC pfnCall = GetProcAddress(m_module.Get(), pszName);
        REQUIRE(pfnCall != nullptr);
        return reinterpret_cast<Call*>(reinterpret_cast<void*>(pfnCall));
    }

    const UniqueModule m_module{LoadLibraryW(Path().c_str())};

public:
    decltype(::PdhAddCounterA)* const AddCounterA = Find<decltype(::PdhAddCounterA)>("PdhAddCounterA");
    decltype(::PdhAddCounterW)* const AddCounterW = Find<decltype(::PdhAddCounterW)>("PdhAddCounterW");
    decltype(::PdhCloseQuery)* const CloseQuery = Find<decltype(::PdhCloseQuery)>("PdhCloseQuery");
    decltype(::PdhCollectQueryData)* const Collect = Find<decltype(::PdhCollectQueryData)>("PdhCollectQueryData");
    decltype(::PdhEnumObjectItemsA)* const EnumA = Find<decltype(::PdhEnumObjectItemsA)>("PdhEnumObjectItemsA");
    decltype(::PdhEnumObjectItemsW)* const EnumW = Find<decltype(::PdhEnumObjectItemsW)>("PdhEnumObjectItemsW");
    decltype(::PdhGetFormattedCounterValue)* const GetValue =
        Find<decltype(::PdhGetFormattedCounterValue)>("PdhGetFormattedCounterValue");
    decltype(::PdhOpenQueryA)* const OpenQueryA = Find<decltype(::PdhOpenQueryA)>("PdhOpenQueryA");
    decltype(::PdhOpenQueryW)* const OpenQueryW = Find<decltype(::PdhOpenQueryW)>("PdhOpenQueryW");
    decltype(::PdhRemoveCounter)* const RemoveCounter = Find<decltype(::PdhRemoveCounter)>("PdhRemoveCounter");

    // The module reads every counter from the stand-in, for as long as the redirector lives.
    void Serve(ImportRedirector& imports) const
    {
        imports.Redirect("PdhEnumObjectItemsA", EnumA);
        imports.Redirect("PdhEnumObjectItemsW", EnumW);
        imports.Redirect("PdhOpenQueryA", OpenQueryA);
        imports.Redirect("PdhOpenQueryW", OpenQueryW);
        imports.Redirect("PdhAddCounterA", AddCounterA);
        imports.Redirect("PdhAddCounterW", AddCounterW);
        imports.Redirect("PdhCollectQueryData", Collect);
        imports.Redirect("PdhGetFormattedCounterValue", GetValue);
        imports.Redirect("PdhRemoveCounter", RemoveCounter);
        imports.Redirect("PdhCloseQuery", CloseQuery);
    }
};

} // namespace varnex::test
